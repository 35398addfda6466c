#include "SorviKit/library/Exiv2_p.h"
#include "SorviKit/handoff/Handoff_p.h"

#include <QMutex>
#include <QSet>

#include <iterator>

namespace Handoff::detail {

namespace {

template<typename Data>
void eraseWhere(Data &data, const char *prefix)
{
    for (auto it = data.begin(); it != data.end();)
        it = it->key().rfind(prefix, 0) == 0 ? data.erase(it) : std::next(it);
}

} // namespace

bool carriesLocation(const QString &path)
{
    static const QSet<QString> extensions{QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("heic"),
                                          QStringLiteral("heif"), QStringLiteral("hif")};
    const QString name = path.section(QLatin1Char('/'), -1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 && extensions.contains(name.mid(dot + 1).toLower());
}

// The source's bytes with its GPS IFD and XMP GPS properties removed and the image data
// left as it was; none when Exiv2 cannot read or cannot write the format.
std::optional<QByteArray> bytesWithoutLocation(const QString &source)
{
    QFile file(source);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray original = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    // Exiv2 0.27 promises nothing about concurrent writers.
    static QMutex exiv2Writer;
    const QMutexLocker locker(&exiv2Writer);
    try {
        const auto image = Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte *>(original.constData()),
                                                     long(original.size()));
        image->readMetadata();
        eraseWhere(image->exifData(), "Exif.GPSInfo.");
        eraseWhere(image->exifData(), "Exif.Image.GPSTag");
        eraseWhere(image->xmpData(), "Xmp.exif.GPS");
        image->writeMetadata();
        Exiv2::BasicIo &io = image->io();
        io.seek(0, Exiv2::BasicIo::beg);
        const Exiv2::DataBuf bytes = io.read(long(io.size()));
        return QByteArray(reinterpret_cast<const char *>(bytes.pData_), bytes.size_);
    } catch (const Exiv2::AnyError &) {
        // Unreadable or read-only formats (HEIC in this Exiv2) fall back to the plain copy.
        return std::nullopt;
    }
}

} // namespace Handoff::detail
