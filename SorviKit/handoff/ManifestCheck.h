#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

/// Checks a folder of copies against the Media Hash Lists found at its top (ours and
/// other tools'): every listed file is read again, from the device, and compared with
/// the digest listed for it. Synchronous; never throws.
namespace ManifestCheck {

enum class State {
    matches,   ///< same size and digest as listed
    differs,   ///< another size or another digest
    missing,   ///< listed, but not in the folder
    unchecked, ///< could not be read, lies outside the folder, or has no digest we compute
};

struct Finding {
    QString manifest; ///< the list's file name
    QString file;     ///< as listed
    State state = State::unchecked;
    QString reason;   ///< why it differs or was not checked; empty otherwise
    friend bool operator==(const Finding &, const Finding &) = default;
};

struct Result {
    QStringList manifests;  ///< the lists read, by file name
    QStringList unreadable; ///< lists that are not Media Hash Lists, each with the reason
    QList<Finding> findings;
    int count(State state) const;
    /// Something was listed, every listed file matches, and every list could be read.
    bool allMatch() const;
};

/// `progress` hears the fraction of listed bytes read so far (0…1).
Result check(const QString &folder, const std::function<void(double)> &progress = {});

} // namespace ManifestCheck
