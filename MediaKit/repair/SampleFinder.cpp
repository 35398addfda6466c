#include "MediaKit/repair/SampleFinder.h"

#include <algorithm>
#include <cstring>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace SampleFinder {

namespace {

std::uint32_t lengthAt(const std::uint8_t *at, unsigned size)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < size; ++i)
        value = value << 8 | at[i];
    return value;
}

unsigned unitType(bool hevc, const std::uint8_t *unit) { return hevc ? (unit[0] >> 1) & 0x3f : unit[0] & 0x1f; }
bool isPictureSlice(bool hevc, unsigned type) { return hevc ? type <= 31 : type >= 1 && type <= 5; }
// Units that, after a picture's slices, open the next picture.
bool opensPicture(bool hevc, unsigned type)
{
    return hevc ? (type >= 32 && type <= 35) || type == 39 : (type >= 6 && type <= 9) || (type >= 14 && type <= 18);
}

bool headerValid(const VideoLayout &layout, const std::uint8_t *unit, std::uint32_t length)
{
    if (length < (layout.hevc ? 3u : 2u) || unit[0] & 0x80)
        return false;
    const unsigned type = unitType(layout.hevc, unit);
    if (!(layout.unitTypes >> type & 1))
        return false;
    if (layout.hevc)
        return (unit[0] & 1) == 0 && (unit[1] >> 3) == 0 && (unit[1] & 7) != 0; // layer 0, temporal id + 1 >= 1
    const unsigned importance = unit[0] >> 5;
    if ((type == 5 || type == 7 || type == 8) && importance == 0)
        return false;
    return !((type == 6 || type == 9 || type == 12) && importance != 0);
}

bool firstSliceOfPicture(bool hevc, const std::uint8_t *unit) { return (unit[hevc ? 2 : 1] & 0x80) != 0; }

std::once_flag quietDecoders;

} // namespace

void VideoLayout::learn(Bytes sample)
{
    std::size_t at = 0;
    unsigned slices = 0;
    while (lengthSize && at + lengthSize < sample.size()) {
        const std::uint32_t length = lengthAt(&sample[at], lengthSize);
        if (length == 0 || length > sample.size() - at - lengthSize)
            break;
        const unsigned type = unitType(hevc, &sample[at + lengthSize]);
        unitTypes |= std::uint64_t(1) << type;
        largestUnit = std::max(largestUnit, length);
        slices += isPictureSlice(hevc, type);
        at += lengthSize + length;
    }
    slicesPerPicture = std::max(slicesPerPicture, slices);
}

std::size_t pictureAt(const VideoLayout &layout, Bytes data, std::size_t at)
{
    const unsigned n = layout.lengthSize;
    // A damaged clip may hold pictures larger than the reference's; room is left for them.
    const std::uint64_t largest = std::max<std::uint64_t>(std::uint64_t(layout.largestUnit) * 4, 16 * 1024);
    std::size_t position = at;
    unsigned slices = 0;
    while (position + n + 2 < data.size()) {
        const std::uint32_t length = lengthAt(&data[position], n);
        if (length == 0 || length > largest || length > data.size() - position - n)
            break;
        const std::uint8_t *unit = &data[position + n];
        if (!headerValid(layout, unit, length))
            break;
        const unsigned type = unitType(layout.hevc, unit);
        const bool slice = isPictureSlice(layout.hevc, type);
        if (position == at) {
            if (slice && !firstSliceOfPicture(layout.hevc, unit))
                return 0;
        } else if (slices > 0) {
            if (opensPicture(layout.hevc, type) || (slice && firstSliceOfPicture(layout.hevc, unit)))
                break;
            if (!slice && !(layout.hevc && type >= 38 && type <= 40))
                break;
        }
        if (slice && ++slices > layout.slicesPerPicture)
            break;
        position += n + length;
    }
    return slices ? position - at : 0;
}

bool pictureCutAt(const VideoLayout &layout, Bytes data, std::size_t at)
{
    const unsigned n = layout.lengthSize;
    const std::uint64_t largest = std::max<std::uint64_t>(std::uint64_t(layout.largestUnit) * 4, 16 * 1024);
    // Whole units may come first (parameter sets, SEI); the one the data ends in decides.
    for (int unit = 0; unit < 16 && at + n + 3 <= data.size(); ++unit) {
        const std::uint32_t length = lengthAt(&data[at], n);
        if (length == 0 || length > largest || !headerValid(layout, &data[at + n], length))
            return false;
        if (length > data.size() - at - n)
            return true;
        at += n + length;
    }
    return false;
}

bool isSyncPicture(const VideoLayout &layout, Bytes picture)
{
    const unsigned n = layout.lengthSize;
    std::size_t at = 0;
    while (n && at + n < picture.size()) {
        const std::uint32_t length = lengthAt(&picture[at], n);
        if (length == 0 || length > picture.size() - at - n)
            return false;
        const unsigned type = unitType(layout.hevc, &picture[at + n]);
        if (isPictureSlice(layout.hevc, type))
            return layout.hevc ? type >= 16 && type <= 21 : type == 5;
        at += n + length;
    }
    return false;
}

unsigned lengthSizeOf(Bytes configuration, bool hevc)
{
    const std::size_t field = hevc ? 21 : 4;
    if (configuration.size() <= field)
        return 0;
    const unsigned size = (configuration[field] & 3) + 1;
    return size == 3 ? 0 : size;
}

std::size_t telemetryAt(Bytes data, std::size_t at)
{
    // key (4 ASCII), type, size of one entry, repeat (16 bits), payload padded to 4 bytes.
    auto entryLength = [&](std::size_t from) -> std::size_t {
        if (from + 8 > data.size())
            return 0;
        for (int i = 0; i < 4; ++i)
            if (data[from + i] < 0x20 || data[from + i] > 0x7e)
                return 0;
        const std::size_t payload = std::size_t(data[from + 5]) * (std::size_t(data[from + 6]) << 8 | data[from + 7]);
        const std::size_t padded = (payload + 3) & ~std::size_t(3);
        return padded <= data.size() - from - 8 ? 8 + padded : 0;
    };
    if (at + 8 > data.size() || std::memcmp(&data[at], "DEVC", 4) != 0 || data[at + 4] != 0)
        return 0;
    const std::size_t whole = entryLength(at);
    if (whole <= 8)
        return 0;
    // Every nested entry must end exactly where the block ends.
    const std::size_t end = at + whole;
    std::vector<std::pair<std::size_t, std::size_t>> open{{at + 8, end}};
    while (!open.empty()) {
        auto [from, to] = open.back();
        open.pop_back();
        while (from < to) {
            const std::size_t length = entryLength(from);
            if (length == 0 || length > to - from)
                return 0;
            if (data[from + 4] == 0 && length > 8)
                open.push_back({from + 8, from + length});
            from += length;
        }
    }
    return whole;
}

std::vector<std::uint8_t> aacConfiguration(Bytes esds)
{
    // Descriptors: tag, length in 7-bit groups, body. The one with tag 5 is the config.
    std::size_t at = 4;
    while (at + 2 <= esds.size()) {
        const std::uint8_t tag = esds[at++];
        std::size_t length = 0;
        for (int i = 0; i < 4 && at < esds.size(); ++i) {
            const std::uint8_t b = esds[at++];
            length = length << 7 | (b & 0x7f);
            if (!(b & 0x80))
                break;
        }
        if (tag == 5)
            return length <= esds.size() - at ? std::vector<std::uint8_t>(esds.begin() + std::ptrdiff_t(at),
                                                                          esds.begin() + std::ptrdiff_t(at + length))
                                              : std::vector<std::uint8_t>{};
        if (tag == 3)
            at += 3; // ES id and flags; the descriptors nested in it follow
        else if (tag == 4)
            at += 13; // object type, stream type, buffer size, bit rates
        else
            at += length;
    }
    return {};
}

struct AacFrames::Decoder {
    AVCodecContext *context = nullptr;
    AVPacket *packet = nullptr;
    AVFrame *frame = nullptr;
    std::vector<std::uint8_t> buffer;
    ~Decoder()
    {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&context);
    }
};

AacFrames::AacFrames(Bytes configuration) : m_decoder(std::make_unique<Decoder>())
{
    // Probing rejects many byte runs on purpose; the decoder's complaints would flood stderr.
    std::call_once(quietDecoders, [] { av_log_set_level(AV_LOG_QUIET); });
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (!codec || configuration.size() < 2)
        return;
    m_decoder->context = avcodec_alloc_context3(codec);
    m_decoder->context->thread_count = 1;
    m_decoder->context->extradata = static_cast<std::uint8_t *>(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(m_decoder->context->extradata, configuration.data(), configuration.size());
    m_decoder->context->extradata_size = int(configuration.size());
    if (avcodec_open2(m_decoder->context, codec, nullptr) < 0) {
        avcodec_free_context(&m_decoder->context);
        return;
    }
    m_decoder->packet = av_packet_alloc();
    m_decoder->frame = av_frame_alloc();
    const unsigned channels = std::max(1u, unsigned(configuration[1] >> 3 & 15));
    // A mono frame opens with a single channel element, a stereo one with a channel pair.
    if (configuration[1] >> 3 == 1 || configuration[1] >> 3 == 2)
        m_firstElement = (configuration[1] >> 3) - 1;
    m_largestFrame = 768 * channels + 16; // 6144 bits per channel at most
    m_decoder->buffer.resize(m_largestFrame + AV_INPUT_BUFFER_PADDING_SIZE);
}

AacFrames::~AacFrames() = default;

bool AacFrames::usable() const { return m_decoder->context != nullptr; }

bool AacFrames::decodes(const std::uint8_t *bytes, std::size_t size)
{
    Decoder &d = *m_decoder;
    std::memcpy(d.buffer.data(), bytes, size);
    std::memset(d.buffer.data() + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
    avcodec_flush_buffers(d.context);
    av_packet_unref(d.packet);
    d.packet->data = d.buffer.data();
    d.packet->size = int(size);
    if (avcodec_send_packet(d.context, d.packet) < 0)
        return false;
    const bool decoded = avcodec_receive_frame(d.context, d.frame) == 0;
    av_frame_unref(d.frame);
    return decoded;
}

std::size_t AacFrames::frameAt(Bytes data, std::size_t at)
{
    if (!usable() || at >= data.size())
        return 0;
    if (at == m_cachedAt && data.data() == m_cachedData)
        return m_cachedLength;
    std::size_t length = 0;
    std::size_t high = std::min(m_largestFrame, data.size() - at);
    const std::uint8_t *start = &data[at];
    if (m_firstElement >= 0 && start[0] >> 1 != m_firstElement << 4) // element type, instance 0
        return 0;
    const bool blank = std::all_of(start, start + std::min<std::size_t>(high, 8), [](std::uint8_t b) { return b == 0; });
    if (!blank && high >= 2 && decodes(start, high)) {
        // Accepted with room to spare; the shortest accepted length is the frame.
        std::size_t low = 1;
        while (low < high) {
            const std::size_t middle = low + (high - low) / 2;
            if (decodes(start, middle))
                high = middle;
            else
                low = middle + 1;
        }
        length = high;
    }
    m_cachedAt = at;
    m_cachedData = data.data();
    m_cachedLength = length;
    return length;
}

} // namespace SampleFinder
