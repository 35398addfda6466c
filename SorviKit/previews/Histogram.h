#pragma once

#include <QImage>
#include <QtGlobal>

#include <array>

/// Tallies of a picture's tones, for showing how its exposure is spread. Pure functions.
namespace Histogram {

/// One count per 8-bit level, 0 (black) to 255 (white).
using Counts = std::array<quint32, 256>;

/// How many pixels of `image` have each Rec. 709 luma level (0.2126 R + 0.7152 G +
/// 0.0722 B on the stored, gamma-encoded values). Every pixel counts once, so the counts
/// sum to width × height; a null image gives all zeros. Any thread.
Counts luminance(const QImage &image);

} // namespace Histogram
