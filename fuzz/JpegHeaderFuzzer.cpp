// Any bytes, cut in two, go through the header rebuild as a damaged photo and a reference.
// Only the documented exception may come out, and a rebuilt photo starts with the header.
#include "MediaKit/repair/JpegHeader.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return 0;
    const std::size_t cut = data[0] * size / 256; // the first byte chooses where to cut
    const std::span<const std::uint8_t> bytes(data + 1, size - 1);
    const auto damaged = bytes.first(std::min(cut, bytes.size())), reference = bytes.subspan(damaged.size());
    try {
        const JpegHeader::Result result = JpegHeader::transplant(damaged, reference);
        if (result.jpeg.size() < 4 || result.jpeg[0] != 0xff || result.jpeg[1] != 0xd8)
            std::abort();
    } catch (const JpegHeader::Error &) {
        // No readable reference or nothing left of the photo: the usual answer.
    }
    return 0;
}
