#include "SorviApp/views/Clipping.h"

#include <algorithm>

QImage Clipping::overlay(const QImage &picture)
{
    if (picture.isNull())
        return {};
    const QImage rgb = picture.convertToFormat(QImage::Format_RGB32);
    QImage marks(rgb.size(), QImage::Format_ARGB32_Premultiplied);
    const QRgb red = qPremultiply(qRgba(255, 32, 32, 210)), blue = qPremultiply(qRgba(40, 110, 255, 210));
    for (int y = 0; y < rgb.height(); ++y) {
        const auto *in = reinterpret_cast<const QRgb *>(rgb.constScanLine(y));
        auto *out = reinterpret_cast<QRgb *>(marks.scanLine(y));
        for (int x = 0; x < rgb.width(); ++x) {
            const int brightest = std::max({qRed(in[x]), qGreen(in[x]), qBlue(in[x])});
            out[x] = brightest >= highlight ? red : brightest <= shadow ? blue : 0;
        }
    }
    marks.setDevicePixelRatio(picture.devicePixelRatio());
    return marks;
}
