#pragma once

#include <cstdint>
#include <exception>
#include <string>

/// Failure to open or read a byte source. Each kind carries its own payload and a
/// readable, complete message (description(), also returned by what()).
class DeviceError final : public std::exception {
public:
    enum class Kind {
        cannotOpen,          ///< payload: path(), errorNumber()
        authorizationDenied, ///< payload: path()
        notAFileOrDevice,    ///< payload: path()
        readFailed,          ///< payload: offset(), errorNumber()
    };

    /// "Could not open <path>: <strerror(errorNumber)>"
    [[nodiscard]] static DeviceError cannotOpen(std::string path, int errorNumber);
    /// "Authorization to read <path> was denied."
    [[nodiscard]] static DeviceError authorizationDenied(std::string path);
    /// "<path> is not a readable file or device."
    [[nodiscard]] static DeviceError notAFileOrDevice(std::string path);
    /// "Read failed at offset <offset>: <strerror(errorNumber)>", where `offset` is the
    /// position of the read that failed.
    [[nodiscard]] static DeviceError readFailed(std::uint64_t offset, int errorNumber);

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    /// The path for cannotOpen, authorizationDenied and notAFileOrDevice; empty otherwise.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// The errno for cannotOpen and readFailed; 0 otherwise.
    [[nodiscard]] int errorNumber() const noexcept { return errorNumber_; }
    /// The byte offset for readFailed; 0 otherwise.
    [[nodiscard]] std::uint64_t offset() const noexcept { return offset_; }

    /// The message for people, complete in itself.
    [[nodiscard]] const std::string& description() const noexcept { return description_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    DeviceError(Kind kind, std::string path, int errorNumber, std::uint64_t offset,
                std::string description);

    Kind kind_;
    std::string path_;
    int errorNumber_;
    std::uint64_t offset_;
    std::string description_;
};
