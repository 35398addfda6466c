#include "SorviKit/library/ShotDetails.h"
#include "SorviKit/library/Exiv2_p.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/library/TiffView.h"

#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <list>
#include <mutex>

Q_LOGGING_CATEGORY(lcShotDetails, "sorvi.details", QtWarningMsg)

namespace {

// The EXIF values we use, found by tag number in the primary image's IFD and its Exif
// IFD. Looking up by number (not by group name) lets the same rules read blocks that
// some containers store apart, such as CR3's separate IFD0 and Exif IFD boxes.
class TagTable {
public:
    explicit TagTable(const Exiv2::ExifData &exif)
    {
        add(exif);
    }
    void add(const Exiv2::ExifData &exif)
    {
        for (const Exiv2::Exifdatum &datum : exif) {
            const std::string group = datum.groupName();
            if ((group == "Image" || group == "Photo") && !m_tags.contains(datum.tag()))
                m_tags.insert(datum.tag(), &datum);
        }
    }
    const Exiv2::Exifdatum *find(std::uint16_t tag) const { return m_tags.value(tag, nullptr); }

private:
    QHash<std::uint16_t, const Exiv2::Exifdatum *> m_tags;
};

namespace Tag {
constexpr std::uint16_t make = 0x010f, model = 0x0110, orientation = 0x0112;
constexpr std::uint16_t exposureTime = 0x829a, fNumber = 0x829d, iso = 0x8827;
constexpr std::uint16_t dateTimeOriginal = 0x9003, offsetTimeOriginal = 0x9011;
constexpr std::uint16_t focalLength = 0x920a, subSecTimeOriginal = 0x9291;
constexpr std::uint16_t pixelXDimension = 0xa002, pixelYDimension = 0xa003, lensModel = 0xa434;
} // namespace Tag

std::optional<QString> text(const Exiv2::Exifdatum *datum)
{
    if (!datum || datum->typeId() != Exiv2::asciiString)
        return std::nullopt;
    // Cameras pad fixed-size text fields with NULs and spaces.
    QString value = QString::fromStdString(datum->toString());
    const qsizetype nul = value.indexOf(QChar(0));
    if (nul >= 0)
        value.truncate(nul);
    return value.trimmed();
}

std::optional<QString> makerNoteText(const Exiv2::ExifData &exif, const char *key)
{
    const auto it = exif.findKey(Exiv2::ExifKey(key));
    return it == exif.end() ? std::nullopt : text(&*it);
}

std::optional<QString> xmpText(const Exiv2::XmpData &xmp, const char *key)
{
    const auto it = xmp.findKey(Exiv2::XmpKey(key));
    if (it == xmp.end() || it->count() == 0)
        return std::nullopt;
    return QString::fromStdString(it->toString()).trimmed();
}

bool isNumeric(Exiv2::TypeId type)
{
    switch (type) {
    case Exiv2::unsignedByte: case Exiv2::unsignedShort: case Exiv2::unsignedLong:
    case Exiv2::unsignedRational: case Exiv2::signedByte: case Exiv2::signedShort:
    case Exiv2::signedLong: case Exiv2::signedRational: case Exiv2::tiffFloat:
    case Exiv2::tiffDouble:
        return true;
    default:
        return false;
    }
}

std::optional<double> number(const Exiv2::Exifdatum *datum)
{
    if (!datum || datum->count() == 0 || !isNumeric(datum->typeId()))
        return std::nullopt;
    // Rationals are divided in full precision; Exiv2's own conversion goes through a
    // signed pair, which overflows on the large unsigned terms some cameras write.
    if (const auto *unsignedValue = dynamic_cast<const Exiv2::URationalValue *>(&datum->value())) {
        const Exiv2::URational r = unsignedValue->value_.front();
        return r.second == 0 ? std::nullopt : std::optional<double>(double(r.first) / double(r.second));
    }
    if (const auto *signedValue = dynamic_cast<const Exiv2::RationalValue *>(&datum->value())) {
        const Exiv2::Rational r = signedValue->value_.front();
        return r.second == 0 ? std::nullopt : std::optional<double>(double(r.first) / double(r.second));
    }
    return double(datum->toFloat(0));
}

std::optional<QString> firstNonEmpty(std::initializer_list<std::optional<QString>> candidates)
{
    for (const auto &candidate : candidates)
        if (candidate && !candidate->isEmpty())
            return candidate;
    return std::nullopt;
}

ExifValues valuesFrom(const TagTable &tags)
{
    ExifValues values;
    values.dateTimeOriginal = text(tags.find(Tag::dateTimeOriginal));
    values.subSecTimeOriginal = text(tags.find(Tag::subSecTimeOriginal));
    values.offsetTimeOriginal = text(tags.find(Tag::offsetTimeOriginal));
    values.make = text(tags.find(Tag::make));
    values.model = text(tags.find(Tag::model));
    values.lensModel = firstNonEmpty({text(tags.find(Tag::lensModel))});
    values.exposureTime = number(tags.find(Tag::exposureTime));
    values.fNumber = number(tags.find(Tag::fNumber));
    if (auto iso = number(tags.find(Tag::iso)))
        values.iso = long(*iso);
    values.focalLengthMm = number(tags.find(Tag::focalLength));
    if (auto orientation = number(tags.find(Tag::orientation)))
        values.orientation = int(*orientation);
    return values;
}

// One value of a directory that Exiv2 names apart from EXIF (a RAW format's own first
// directory, a maker note), found by group and tag number.
const Exiv2::Exifdatum *inGroup(const Exiv2::ExifData &exif, const char *group, std::uint16_t tag)
{
    const auto it = exif.findKey(Exiv2::ExifKey(tag, group));
    return it == exif.end() ? nullptr : &*it;
}

// The `index`th integer of a value, when it has that many and it is above zero: the
// makers write 0 for "not recorded".
std::optional<long> positiveAt(const Exiv2::Exifdatum *datum, long index = 0)
{
    if (!datum || datum->count() <= index || !isNumeric(datum->typeId()))
        return std::nullopt;
    const long value = datum->toLong(index);
    return value > 0 ? std::optional<long>(value) : std::nullopt;
}

// Canon's shot information codes ISO in steps of 1/32 EV: base 160 is ISO 100; an
// automatic ISO adds its own steps (0 when fixed).
std::optional<long> canonIso(const Exiv2::ExifData &exif)
{
    const std::optional<long> base = positiveAt(inGroup(exif, "CanonSi", 0x0002));
    if (!base)
        return std::nullopt;
    const Exiv2::Exifdatum *autoIso = inGroup(exif, "CanonSi", 0x0001);
    const double steps = double(std::int16_t(*base)) + (autoIso ? double(std::int16_t(autoIso->toLong(0))) : 0.0);
    return std::lround(std::exp2(steps / 32.0) * 100.0 / 32.0);
}

// Where EXIF has no value, the directories where RAW formats keep it instead. A Panasonic
// RAW's first directory holds make, model, ISO and orientation, and Exiv2 adds EXIF only
// from the embedded JPEG, when that carries any. Nikon notes keep the ISO as (0, ISO);
// Canon notes, the only record of them in CRW files, the ISO and the focal length (in
// focal units per mm).
void fillFromRawDirectories(const Exiv2::ExifData &exif, ExifValues &values)
{
    if (!values.make)
        values.make = text(inGroup(exif, "PanasonicRaw", Tag::make));
    if (!values.model)
        values.model = text(inGroup(exif, "PanasonicRaw", Tag::model));
    if (!values.orientation)
        values.orientation = positiveAt(inGroup(exif, "PanasonicRaw", Tag::orientation));
    if (!values.iso)
        values.iso = positiveAt(inGroup(exif, "PanasonicRaw", 0x0017));
    if (!values.iso)
        values.iso = positiveAt(inGroup(exif, "Nikon3", 0x0002), 1);
    if (!values.iso)
        values.iso = canonIso(exif);
    if (values.focalLengthMm)
        return;
    if (const std::optional<long> focal = positiveAt(inGroup(exif, "Canon", 0x0002), 1))
        values.focalLengthMm = double(*focal) / double(positiveAt(inGroup(exif, "CanonCs", 0x0019)).value_or(1));
}

// A Panasonic RAW's picture is the sensor inside the borders its first directory gives
// (top, left, bottom, right); the sensor size that Exiv2 reports includes them.
std::optional<std::pair<int, int>> panasonicPictureSize(const Exiv2::ExifData &exif)
{
    const auto top = positiveAt(inGroup(exif, "PanasonicRaw", 0x0004));
    const auto left = positiveAt(inGroup(exif, "PanasonicRaw", 0x0005));
    const auto bottom = positiveAt(inGroup(exif, "PanasonicRaw", 0x0006));
    const auto right = positiveAt(inGroup(exif, "PanasonicRaw", 0x0007));
    if (!bottom || !right || *right <= left.value_or(0) || *bottom <= top.value_or(0))
        return std::nullopt;
    return std::pair{int(*right - left.value_or(0)), int(*bottom - top.value_or(0))};
}

std::pair<int, int> exifPixelSize(const TagTable &tags)
{
    const auto width = number(tags.find(Tag::pixelXDimension));
    const auto height = number(tags.find(Tag::pixelYDimension));
    return {width ? int(*width) : 0, height ? int(*height) : 0};
}

// CRW stores the capture time as a count of seconds of the camera's wall clock, and
// Exiv2 renders it through localtime(), shifting it by the reading computer's zone.
// Undo that shift so the text is the camera's wall clock again.
std::optional<QString> crwWallClock(const std::optional<QString> &exiv2Text)
{
    if (!exiv2Text)
        return std::nullopt;
    const QString format = QStringLiteral("yyyy:MM:dd HH:mm:ss");
    const QDateTime local = QDateTime::fromString(*exiv2Text, format);
    if (!local.isValid())
        return exiv2Text;
    return QDateTime::fromSecsSinceEpoch(local.toSecsSinceEpoch(), Qt::UTC).toString(format);
}

ExifValues valuesOf(const Exiv2::Image &image, bool isRaw)
{
    const TagTable tags(image.exifData());
    ExifValues values = valuesFrom(tags);
    if (dynamic_cast<const Exiv2::CrwImage *>(&image) != nullptr)
        values.dateTimeOriginal = crwWallClock(values.dateTimeOriginal);
    // Where EXIF has no lens, the auxiliary XMP properties and the maker notes that
    // carry the lens as plain text stand in.
    values.auxLensModel = firstNonEmpty({xmpText(image.xmpData(), "Xmp.aux.Lens"),
                                         xmpText(image.xmpData(), "Xmp.exifEX.LensModel"),
                                         makerNoteText(image.exifData(), "Exif.Canon.LensModel"),
                                         makerNoteText(image.exifData(), "Exif.OlympusEq.LensModel")});
    fillFromRawDirectories(image.exifData(), values);
    values.pixelWidth = image.pixelWidth();
    values.pixelHeight = image.pixelHeight();
    const auto picture = dynamic_cast<const Exiv2::Rw2Image *>(&image) ? panasonicPictureSize(image.exifData())
                                                                       : std::nullopt;
    if (picture)
        std::tie(values.pixelWidth, values.pixelHeight) = *picture;
    // Some RAW containers keep only a stub as their first image; the EXIF pixel size
    // then tells the real picture's size.
    const auto [exifWidth, exifHeight] = exifPixelSize(tags);
    const bool frameUnknown = values.pixelWidth <= 0 || values.pixelHeight <= 0;
    if (frameUnknown || (isRaw && qint64(exifWidth) * exifHeight > qint64(values.pixelWidth) * values.pixelHeight)) {
        values.pixelWidth = exifWidth;
        values.pixelHeight = exifHeight;
    }
    return values;
}

// TIFF headers whose first IFD directly follows (the usual layout of an Exif block).
QList<qsizetype> tiffHeaders(const QByteArray &bytes)
{
    QList<qsizetype> found;
    for (const QByteArray &header : {QByteArray("II*\0\x08\0\0\0", 8), QByteArray("MM\0*\0\0\0\x08", 8)})
        for (qsizetype at = bytes.indexOf(header); at >= 0; at = bytes.indexOf(header, at + 1))
            found << at;
    return found;
}

// Containers the metadata library can't read (CR3, X3F) or that make it throw (a HEIC
// with one inconsistent box) still keep plain Exif blocks: decode every block found near
// the start and the end of the file and read the tags by number.
std::optional<ExifValues> readEmbeddedExif(const QString &path)
{
    constexpr qint64 headBytes = 4 * 1024 * 1024, tailBytes = 1024 * 1024;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = file.read(headBytes);
    if (file.size() > headBytes && file.seek(std::max(headBytes, file.size() - tailBytes)))
        bytes += file.readAll();

    std::list<Exiv2::ExifData> blocks; // the table points into these, so they must not move
    std::optional<TagTable> tags;
    for (const qsizetype at : tiffHeaders(bytes)) {
        Exiv2::ExifData &block = blocks.emplace_back();
        try {
            Exiv2::ExifParser::decode(block, reinterpret_cast<const Exiv2::byte *>(bytes.constData() + at),
                                      uint32_t(bytes.size() - at));
        } catch (const Exiv2::AnyError &error) {
            // A bytes pattern that only looked like a TIFF header; other blocks may still be good.
            qCDebug(lcShotDetails) << "no Exif block at" << at << "in" << path << error.what();
            continue;
        }
        if (!tags)
            tags.emplace(block);
        else
            tags->add(block);
    }
    if (!tags)
        return std::nullopt;
    ExifValues values = valuesFrom(*tags);
    std::tie(values.pixelWidth, values.pixelHeight) = exifPixelSize(*tags);
    return values;
}

// TIFF-structured files are read through a view that leaves out huge tag values, which
// the metadata library would otherwise copy whole (see TiffView).
std::optional<ExifValues> readTiffView(const QString &path)
{
    // JPEG, HEIC and PNG never are; most cards are mostly JPEG, so skip the mapping.
    if (!ShotScanner::isRawFile(path) && !path.endsWith(QLatin1String(".tif"), Qt::CaseInsensitive)
        && !path.endsWith(QLatin1String(".tiff"), Qt::CaseInsensitive))
        return std::nullopt;
    const TiffView view(path);
    if (!view.isValid())
        return std::nullopt;
    auto image = Exiv2::ImageFactory::open(view.data(), long(view.size()));
    if (image.get() == nullptr)
        return std::nullopt;
    image->readMetadata();
    return valuesOf(*image, ShotScanner::isRawFile(path));
}

} // namespace

namespace ShotDetails {

void initialize()
{
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize();
        Exiv2::enableBMFF(true);
    });
}

std::optional<ExifValues> readExif(const QString &path)
{
    try {
        if (auto values = readTiffView(path))
            return values;
        auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString());
        if (image.get() == nullptr)
            return readEmbeddedExif(path);
        image->readMetadata();
        return valuesOf(*image, ShotScanner::isRawFile(path));
    } catch (const Exiv2::AnyError &error) {
        qCDebug(lcShotDetails) << "metadata of" << path << "unreadable:" << error.what();
    } catch (const std::exception &error) {
        qCDebug(lcShotDetails) << "metadata of" << path << "unreadable:" << error.what();
    }
    try {
        return readEmbeddedExif(path);
    } catch (const Exiv2::AnyError &error) {
        qCDebug(lcShotDetails) << "embedded metadata of" << path << "unreadable:" << error.what();
    }
    return std::nullopt;
}

Shot read(const Shot &shot)
{
    Shot result = shot;
    result.byteSize = 0;
    for (const QString &file : shot.files)
        result.byteSize += std::uint64_t(std::max<qint64>(0, QFileInfo(file).size()));

    QStringList candidates;
    if (auto raw = shot.raw())
        candidates << *raw;
    if (auto rendered = shot.rendered())
        candidates << *rendered;

    for (const QString &file : std::as_const(candidates)) {
        const std::optional<ExifValues> exif = readExif(file);
        if (!exif)
            continue;
        if (!result.captureDate)
            result.captureDate = CaptureDetails::captureDate(*exif);
        if (!result.camera)
            result.camera = CaptureDetails::cameraName(*exif);
        if (!result.lens)
            result.lens = exif->lensModel ? exif->lensModel : exif->auxLensModel;
        if (result.width == 0) {
            result.width = exif->pixelWidth;
            result.height = exif->pixelHeight;
            const int orientation = exif->orientation.value_or(1);
            result.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
        }
        if (!result.exposure)
            result.exposure = CaptureDetails::exposureSummary(*exif);
        if (result.captureDate && result.camera && result.exposure)
            break;
    }
    return result;
}

} // namespace ShotDetails
