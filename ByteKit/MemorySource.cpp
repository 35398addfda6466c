#include "ByteKit/MemorySource.h"

#include <algorithm>
#include <utility>

MemorySource::MemorySource(std::vector<std::uint8_t> data)
    : data_(std::move(data))
{
}

std::uint64_t MemorySource::size() const
{
    return data_.size();
}

std::int64_t MemorySource::badReads() const
{
    return badReads_;
}

std::string MemorySource::descriptionForReport() const
{
    return "memory(" + std::to_string(data_.size()) + " bytes)";
}

std::vector<std::uint8_t> MemorySource::readChecked(std::uint64_t offset, std::uint64_t count) const
{
    if (offset >= data_.size())
        return {};
    const std::uint64_t end = std::min<std::uint64_t>(offset + count, data_.size());
    return {data_.begin() + static_cast<std::ptrdiff_t>(offset),
            data_.begin() + static_cast<std::ptrdiff_t>(end)};
}
