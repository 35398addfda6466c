// Any bytes at all go through the scan for stored JPEGs; every candidate it reports must
// lie inside the data and describe a picture with a size.
#include "MediaKit/RAWPreview.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::span<const std::uint8_t> bytes(data, size);
    const std::vector<RAWPreview::Candidate> found = RAWPreview::candidates(bytes);
    std::int64_t previousArea = INT64_MAX;
    for (const RAWPreview::Candidate &candidate : found) {
        const bool inside = candidate.start >= 0 && candidate.start + 4 <= candidate.end
                            && candidate.end <= std::int64_t(size);
        const bool sized = candidate.width > 0 && candidate.height > 0;
        const bool ordered = candidate.area() <= previousArea;
        if (!inside || !sized || !ordered)
            std::abort();
        if (bytes[std::size_t(candidate.start)] != 0xFF || bytes[std::size_t(candidate.start) + 1] != 0xD8)
            std::abort();
        previousArea = candidate.area();
    }
    return 0;
}
