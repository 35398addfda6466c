#include "SorviKit/previews/JpegEncoder.h"

#include <QSysInfo>

#include <turbojpeg.h>

#include <memory>

namespace JpegEncoder {

std::optional<QByteArray> encode(const QImage &image, int quality, QString *error)
{
    const auto fail = [error](const QString &why) -> std::optional<QByteArray> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    if (image.isNull())
        return fail(QStringLiteral("There is no picture to encode."));
    // RGB32 keeps each pixel as one native-endian 0xffRRGGBB word; transparent pictures
    // are flattened onto black by the conversion, as JPEG has no alpha.
    const QImage pixels = image.format() == QImage::Format_RGB32 ? image : image.convertToFormat(QImage::Format_RGB32);
    const std::unique_ptr<void, int (*)(tjhandle)> handle(tjInitCompress(), tjDestroy);
    if (!handle)
        return fail(QString::fromLocal8Bit(tjGetErrorStr2(nullptr)));
    const int pixelFormat = QSysInfo::ByteOrder == QSysInfo::LittleEndian ? TJPF_BGRX : TJPF_XRGB;
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    const int status = tjCompress2(handle.get(), pixels.constBits(), pixels.width(), int(pixels.bytesPerLine()),
                                   pixels.height(), pixelFormat, &buffer, &size, TJSAMP_420, quality, 0);
    const std::unique_ptr<unsigned char, void (*)(unsigned char *)> owned(buffer, tjFree);
    if (status != 0)
        return fail(QString::fromLocal8Bit(tjGetErrorStr2(handle.get())));
    return QByteArray(reinterpret_cast<const char *>(buffer), qsizetype(size));
}

} // namespace JpegEncoder
