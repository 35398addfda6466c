#pragma once

#include <stdexcept>
#include <string>

/// A failure of repair or join, with the sentence the user reads and a kind that a caller
/// (and a test) can tell apart. Each operation names its own kinds.
template <typename Kinds>
class RepairError : public std::runtime_error {
public:
    using Kind = Kinds;
    RepairError(Kind kind, const std::string &message) : std::runtime_error(message), m_kind(kind) {}
    [[nodiscard]] Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};
