#include "ByteKit/ByteSource.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <limits>

std::vector<std::uint8_t> ByteSource::read(std::uint64_t offset, std::int64_t count) const
{
    // Bad arguments mean a bug in the caller's arithmetic; carrying on would read the
    // wrong bytes silently, so stop loudly instead of throwing something catchable.
    if (count < 0) {
        std::fprintf(stderr, "ByteSource::read: negative count %" PRId64 "\n", count);
        std::abort();
    }
    const auto length = static_cast<std::uint64_t>(count);
    if (offset > std::numeric_limits<std::uint64_t>::max() - length) {
        std::fprintf(stderr, "ByteSource::read: offset %" PRIu64 " + count %" PRIu64 " overflows\n",
                     offset, length);
        std::abort();
    }
    return readChecked(offset, length);
}
