// Any bytes go through extract, which cuts candidates out, repairs cut ones and decodes
// them with TurboJPEG. Only the one documented exception may come out.
#include "MediaKit/RAWPreview.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    try {
        const RAWPreview::Found found = RAWPreview::extract({data, size}, false);
        if (found.jpeg.size() < 4 || found.width <= 0 || found.height <= 0)
            std::abort();
    } catch (const RAWPreview::Unsupported &) {
        // No usable picture: the expected answer for most inputs.
    }
    return 0;
}
