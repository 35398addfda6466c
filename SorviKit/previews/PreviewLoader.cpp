#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/previews/PictureDecoder.h"
#include "SorviKit/library/Shot.h"

#include "ByteKit/DeviceError.h"
#include "ByteKit/MappedFile.h"
#include "MediaKit/RAWPreview.h"
#include "MediaKit/RawDecoder.h"

#include <QFile>
#include <QMutexLocker>

#include <algorithm>
#include <limits>
#include <new>
#include <vector>

namespace {

using Bytes = std::span<const std::uint8_t>;
using Candidates = std::vector<RAWPreview::Candidate>;

// Cameras put their previews near the start of a RAW file, so a first look at this many
// bytes usually finds one without reading a large file to its end.
constexpr std::size_t firstPassBytes = 12'582'912;

constexpr int fullSize = std::numeric_limits<int>::max();

Candidates complete(const Candidates &candidates)
{
    Candidates result;
    std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(result),
                 [](const RAWPreview::Candidate &candidate) { return !candidate.incomplete; });
    return result;
}

// The stored pictures to try, in order: those at least `maxPixels` long, smallest first
// (the fewest pixels to decode), then every complete one largest first. A pass over only
// part of the file that finds nothing large enough tries nothing: the whole file may
// hold a better picture further on.
Candidates tryOrder(const Candidates &found, int maxPixels, bool partial)
{
    const Candidates usable = complete(found);
    Candidates order;
    std::copy_if(usable.begin(), usable.end(), std::back_inserter(order), [maxPixels](const auto &candidate) {
        return candidate.longSide() >= maxPixels;
    });
    std::stable_sort(order.begin(), order.end(), [](const auto &a, const auto &b) { return a.area() < b.area(); });
    if (partial && order.empty())
        return {};
    order.insert(order.end(), usable.begin(), usable.end());
    return order;
}

// One stored picture decoded at `maxPixels`. Its own EXIF orientation is ignored on
// purpose: cameras write it for the RAW, and the shot's orientation is the one that holds.
std::optional<ShotPreview> decodeStored(Bytes file, const RAWPreview::Candidate &candidate, int maxPixels)
{
    const Bytes jpeg =
        file.subspan(std::size_t(candidate.start), std::size_t(candidate.end - candidate.start));
    std::optional<QImage> image = PictureDecoder::decodeJpeg(jpeg, maxPixels);
    if (!image)
        return std::nullopt;
    const QString source = QStringLiteral("stored JPEG %1×%2 at byte %3")
                               .arg(candidate.width)
                               .arg(candidate.height)
                               .arg(candidate.start);
    return ShotPreview{std::move(*image), 1, source, candidate.width, candidate.height};
}

std::optional<ShotPreview> storedPicture(Bytes file, int maxPixels)
{
    const std::size_t prefixes[] = {std::min(file.size(), firstPassBytes), file.size()};
    for (const std::size_t prefix : prefixes) {
        const bool partial = prefix < file.size();
        const Candidates order = tryOrder(RAWPreview::candidates(file.first(prefix)), maxPixels, partial);
        for (const RAWPreview::Candidate &candidate : order)
            if (std::optional<ShotPreview> preview = decodeStored(file, candidate, maxPixels))
                return preview;
        if (!partial)
            break;
    }
    return std::nullopt;
}

// The sensor data at full size; when LibRaw cannot decode it (a camera newer than the
// library, or a file whose sensor data is damaged) the largest stored picture is the
// most detail the file still offers, turned upright here since the result has no
// orientation left to apply.
std::optional<ShotPreview> fullRaw(Bytes file, int orientation)
{
    if (std::optional<Bitmap> bitmap = RawDecoder::decode(file, 0)) {
        const int width = bitmap->width, height = bitmap->height;
        QImage image = PictureDecoder::toImage(std::move(*bitmap));
        if (!image.isNull())
            return ShotPreview{std::move(image), 1, QStringLiteral("LibRaw"), width, height};
    }
    for (const RAWPreview::Candidate &candidate : complete(RAWPreview::candidates(file)))
        if (std::optional<ShotPreview> stored = decodeStored(file, candidate, fullSize)) {
            stored->image = PictureDecoder::turned(stored->image, orientation);
            return stored;
        }
    return std::nullopt;
}

// Runs `read` over the mapped bytes of `path`; nothing when the file cannot be mapped or
// its picture does not fit in memory.
template<typename Read>
std::optional<ShotPreview> withMappedFile(const QString &path, Read read)
{
    try {
        const MappedFile file(QFile::encodeName(path).toStdString());
        return read(file.bytes());
    } catch (const DeviceError &) {
        return std::nullopt; // an unreadable file has no picture; the caller reports the shot
    } catch (const std::bad_alloc &) {
        return std::nullopt; // a damaged header can claim a picture larger than memory
    }
}

} // namespace

PreviewLoader::PreviewLoader(qint64 costLimit) : m_cache(costLimit) {}

QString PreviewLoader::cacheKey(const Shot &shot, int maxPixels)
{
    return shot.displayFile() + QLatin1Char('|') + QString::number(maxPixels);
}

std::optional<ShotPreview> PreviewLoader::preview(const Shot &shot, int maxPixels)
{
    if (std::optional<ShotPreview> hit = cached(shot, maxPixels))
        return hit;
    // Decoding happens outside the lock: two misses for one key may both decode, and the
    // later store wins, which costs time but never blocks other shots.
    std::optional<ShotPreview> made = make(shot, maxPixels);
    if (made) {
        const QMutexLocker lock(&m_mutex);
        m_cache.insert(cacheKey(shot, maxPixels), new ShotPreview(*made), made->image.sizeInBytes());
    }
    return made;
}

std::optional<ShotPreview> PreviewLoader::cached(const Shot &shot, int maxPixels) const
{
    const QString key = cacheKey(shot, maxPixels);
    const QMutexLocker lock(&m_mutex);
    if (const ShotPreview *hit = m_cache.object(key))
        return *hit;
    return std::nullopt;
}

std::optional<ShotPreview> PreviewLoader::make(const Shot &shot, int maxPixels) const
{
    if (maxPixels < 1)
        return std::nullopt;
    if (const std::optional<QString> rendered = shot.rendered())
        if (std::optional<ShotPreview> preview = thumbnail(*rendered, maxPixels))
            return preview;
    const QString file = shot.raw().value_or(shot.files.value(0));
    if (file.isEmpty())
        return std::nullopt;
    std::optional<ShotPreview> stored = withMappedFile(file, [maxPixels](Bytes bytes) {
        return storedPicture(bytes, maxPixels);
    });
    if (!stored)
        return thumbnail(file, maxPixels);
    // The stored picture has no turn of its own; the display applies the shot's.
    stored->orientation = shot.orientation;
    return stored;
}

std::optional<ShotPreview> PreviewLoader::fullResolution(const Shot &shot)
{
    const std::optional<QString> raw = shot.raw();
    if (!raw) {
        const QString file = shot.rendered().value_or(shot.files.value(0));
        return file.isEmpty() ? std::nullopt : thumbnail(file, fullSize);
    }
    return withMappedFile(*raw, [&shot](Bytes bytes) { return fullRaw(bytes, shot.orientation); });
}

std::optional<ShotPreview> PreviewLoader::thumbnail(const QString &path, int maxPixels)
{
    return PictureDecoder::thumbnail(path, maxPixels);
}

QImage PreviewLoader::upright(const QImage &image, int orientation)
{
    return PictureDecoder::turned(image, orientation);
}
