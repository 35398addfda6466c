#pragma once

#include "MediaKit/repair/RepairError.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Rebuilds a photo whose start is damaged (a lost first block of the file): the header a
/// decoder needs (quantisation and Huffman tables, frame and scan headers, restart
/// interval) comes from a good photo of the same camera and size and is put before the
/// photo's surviving entropy-coded data.
namespace JpegHeader {

enum class ErrorKind { noReference, unreadableReference, nothingRecoverable, cannotWrite };
using Error = RepairError<ErrorKind>;

/// The decoding header of a JPEG: its segments from SOI through SOS.
struct Header {
    std::vector<std::uint8_t> bytes; ///< SOI, JFIF, DQT, SOF, DHT, DRI and SOS segments, in file order
    std::size_t end = 0;             ///< where the entropy-coded data starts in the file
    int width = 0;
    int height = 0;
    bool baseline = true;            ///< sequential (SOF0/SOF1); progressive photos are not rebuilt
    bool standardTables = true;      ///< every Huffman table is one of the standard (Annex K) tables
    std::uint16_t restartInterval = 0;
};

/// Reads the header of a whole JPEG. Nothing when it is not a readable sequential JPEG.
std::optional<Header> read(std::span<const std::uint8_t> jpeg);

struct Result {
    std::vector<std::uint8_t> jpeg;
    std::size_t dataOffset = 0; ///< where the surviving entropy-coded data starts in the photo
    bool foundOwnScanHeader = false; ///< the photo's own scan header survived and marks the data
    bool optimisedTables = false;    ///< the reference's Huffman tables are made for its own picture
    bool sizeDiffers = false;        ///< the photo's surviving frame header gives another size
    bool decodes = false;            ///< the result decodes without a warning
    std::vector<std::string> warnings;
};

/// Puts the reference's header before the damaged photo's entropy-coded data. Never
/// throws but Error (nothingRecoverable, unreadableReference).
Result transplant(std::span<const std::uint8_t> damaged, std::span<const std::uint8_t> reference);

/// Repairs the photo at `photo` into `output` (empty: "NAME-repaired.EXT" beside it); the
/// photo itself is only read. Throws Error.
Result repair(const std::string &photo, const std::string &reference, const std::string &output, std::string &written);

/// Whether bytes start like a JPEG (a good reference photo does), to choose photo repair
/// over clip repair.
bool startsLikeJpeg(std::span<const std::uint8_t> bytes);

} // namespace JpegHeader
