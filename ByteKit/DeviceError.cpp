#include "ByteKit/DeviceError.h"

#include <cstring>
#include <utility>

namespace {

// strerror_r comes in two flavours (GNU returns the text, XSI fills the buffer and returns
// a status); these overloads accept whichever the C library declares. strerror itself is
// avoided because reads fail on several threads at once.
[[maybe_unused]] std::string strerrorText(int status, const char* buffer)
{
    return status == 0 ? std::string(buffer) : std::string("Unknown error");
}

[[maybe_unused]] std::string strerrorText(const char* text, const char*)
{
    return text;
}

std::string errorText(int errorNumber)
{
    char buffer[256] = {};
    return strerrorText(strerror_r(errorNumber, buffer, sizeof buffer), buffer);
}

} // namespace

DeviceError::DeviceError(Kind kind, std::string path, int errorNumber, std::uint64_t offset,
                         std::string description)
    : kind_(kind)
    , path_(std::move(path))
    , errorNumber_(errorNumber)
    , offset_(offset)
    , description_(std::move(description))
{
}

DeviceError DeviceError::cannotOpen(std::string path, int errorNumber)
{
    std::string message = "Could not open " + path + ": " + errorText(errorNumber);
    return {Kind::cannotOpen, std::move(path), errorNumber, 0, std::move(message)};
}

DeviceError DeviceError::authorizationDenied(std::string path)
{
    std::string message = "Authorization to read " + path + " was denied.";
    return {Kind::authorizationDenied, std::move(path), 0, 0, std::move(message)};
}

DeviceError DeviceError::notAFileOrDevice(std::string path)
{
    std::string message = path + " is not a readable file or device.";
    return {Kind::notAFileOrDevice, std::move(path), 0, 0, std::move(message)};
}

DeviceError DeviceError::readFailed(std::uint64_t offset, int errorNumber)
{
    std::string message = "Read failed at offset " + std::to_string(offset) + ": "
        + errorText(errorNumber);
    return {Kind::readFailed, {}, errorNumber, offset, std::move(message)};
}
