#pragma once

#include <QImage>

#include <cstdint>
#include <optional>
#include <span>

/// Decoding of HEIF pictures (HEIC from phones, Canon's HIF, AVIF where libheif has a
/// decoder for it) through libheif. Every function is safe on any thread and never throws.
namespace HeifDecoder {

/// Whether `bytes` begin with an ISO base media 'ftyp' box whose major or compatible
/// brands name a HEIF still-image brand. Other ISO media files (CR3, MP4, MOV) are not.
bool isHeif(std::span<const std::uint8_t> bytes);

/// The primary picture of the HEIF file in `bytes` at its full size as an opaque RGB32
/// image (10-bit pictures reduced to 8 bits), with the turns and mirrors stored in the file's own 'irot'/'imir' properties applied
/// and the EXIF orientation deliberately not applied on top (cameras that write both
/// describe one turn twice). The image owns its pixels; `bytes` need only live during
/// the call. Nothing when libheif cannot read or decode the data.
std::optional<QImage> decode(std::span<const std::uint8_t> bytes);

} // namespace HeifDecoder
