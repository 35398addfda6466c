#include "SorviKit/previews/Histogram.h"

namespace {

// Rec. 709 weights in 1/256ths; they sum to 256, so white stays 255.
constexpr quint32 redWeight = 54, greenWeight = 183, blueWeight = 19;

} // namespace

Histogram::Counts Histogram::luminance(const QImage &image)
{
    Counts counts{};
    if (image.isNull())
        return counts;
    if (image.format() == QImage::Format_Grayscale8) {
        for (int y = 0; y < image.height(); ++y) {
            const uchar *line = image.constScanLine(y);
            for (int x = 0; x < image.width(); ++x)
                ++counts[line[x]];
        }
        return counts;
    }
    // One layout for the loop; alpha plays no part in a photo's tones.
    const QImage rgb = image.format() == QImage::Format_RGB32 || image.format() == QImage::Format_ARGB32
                           ? image
                           : image.convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < rgb.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(rgb.constScanLine(y));
        for (int x = 0; x < rgb.width(); ++x) {
            const QRgb pixel = line[x];
            ++counts[(redWeight * quint32(qRed(pixel)) + greenWeight * quint32(qGreen(pixel)) +
                      blueWeight * quint32(qBlue(pixel))) >> 8];
        }
    }
    return counts;
}
