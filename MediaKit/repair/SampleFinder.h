#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// Recognising where one sample of a track starts and ends in media data that has no
/// index, each kind of track by its own structure. Every function reads only inside the
/// span it is given and answers 0 for "no sample of this kind starts here".
namespace SampleFinder {

using Bytes = std::span<const std::uint8_t>;

/// How a camera writes H.264 or HEVC pictures, learned from its good clips: each picture
/// is a run of NAL units, each preceded by its length.
struct VideoLayout {
    bool hevc = false;
    unsigned lengthSize = 4;            ///< bytes of each NAL unit's length field
    std::uint32_t largestUnit = 0;      ///< longest NAL unit accepted
    std::uint64_t unitTypes = 0;        ///< bit per NAL unit type the camera writes
    unsigned slicesPerPicture = 1;      ///< most picture slices seen in one sample

    /// Learns the layout from the camera's own samples (the reference clip).
    void learn(Bytes sample);
};

/// Length of the picture (access unit) that starts at `at`, or 0.
std::size_t pictureAt(const VideoLayout &layout, Bytes data, std::size_t at);
/// Whether the NAL units from `at` on run into the end of the data, the last cut short.
bool pictureCutAt(const VideoLayout &layout, Bytes data, std::size_t at);
/// Whether the picture is one a player can start from (IDR, or an HEVC IRAP picture).
bool isSyncPicture(const VideoLayout &layout, Bytes picture);
/// The length field size written in an avcC or hvcC box, or 0 when the box is unreadable.
unsigned lengthSizeOf(Bytes configuration, bool hevc);

/// Length of the KLV telemetry sample (a GoPro-style "DEVC" block whose nested entries
/// all fit exactly) that starts at `at`, or 0.
std::size_t telemetryAt(Bytes data, std::size_t at);

/// Finds AAC frames by decoding them: the shortest run of bytes the decoder accepts as a
/// whole frame is the frame.
class AacFrames {
public:
    /// `decoderConfiguration` is the AudioSpecificConfig of the track's esds box.
    explicit AacFrames(Bytes decoderConfiguration);
    ~AacFrames();
    AacFrames(const AacFrames &) = delete;
    AacFrames &operator=(const AacFrames &) = delete;

    [[nodiscard]] bool usable() const;
    [[nodiscard]] std::size_t largestFrame() const { return m_largestFrame; }
    /// Length of the frame that starts at `at`, or 0.
    std::size_t frameAt(Bytes data, std::size_t at);

private:
    bool decodes(const std::uint8_t *bytes, std::size_t size);
    struct Decoder;
    std::unique_ptr<Decoder> m_decoder;
    std::size_t m_largestFrame = 0;
    int m_firstElement = -1; ///< syntax element every frame starts with, when the layout fixes it
    std::size_t m_cachedAt = SIZE_MAX;
    std::size_t m_cachedLength = 0;
    const std::uint8_t *m_cachedData = nullptr;
};

/// The AudioSpecificConfig inside an esds box's payload, or empty.
std::vector<std::uint8_t> aacConfiguration(Bytes esds);

} // namespace SampleFinder
