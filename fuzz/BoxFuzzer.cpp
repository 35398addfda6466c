// Any bytes go through the box reader and the index reader as a whole file; what they read
// is written back and read again. Only the documented exception may come out.
#include "ByteKit/MemorySource.h"
#include "MediaKit/repair/Movie.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    try {
        const MemorySource source({data, data + size});
        const Movie::Movie movie = Movie::read(source);
        for (const Movie::Track &track : movie.tracks)
            for (const Movie::Sample &sample : track.samples)
                if (sample.offset + sample.size > size)
                    std::abort(); // a sample outside the file
        std::vector<std::uint8_t> written;
        IsoBox::write(movie.moov, written);
        if (IsoBox::parse(written).size() != 1)
            std::abort();
    } catch (const IsoBox::Malformed &) {
        // Not a readable clip: the expected answer for most inputs.
    }
    return 0;
}
