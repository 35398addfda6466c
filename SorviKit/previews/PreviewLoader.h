#pragma once

#include "SorviKit/previews/ShotPreview.h"

#include <QCache>
#include <QMutex>
#include <QString>

#include <optional>

struct Shot;

/// Turns a shot into a decoded picture of a requested size as fast as possible and keeps
/// recent pictures in a memory cache bounded by their decoded size in bytes. For a RAW
/// shot it prefers the smallest JPEG the camera stored in the file that is still large
/// enough over decoding sensor data. One loader is shared by every view and background
/// task; all functions are thread-safe. preview() and the static decoders block and must
/// not run on the GUI thread.
class PreviewLoader {
public:
    /// The loader the application owns holds up to 1.5 GB of decoded pictures.
    static constexpr qint64 defaultCostLimit = 1'500'000'000;

    explicit PreviewLoader(qint64 costLimit = defaultCostLimit);
    PreviewLoader(const PreviewLoader &) = delete;
    PreviewLoader &operator=(const PreviewLoader &) = delete;

    /// The shot's picture with its long side at most `maxPixels` (smaller when the best
    /// source is smaller; never enlarged), from the cache or decoded now and cached.
    /// Nothing when no file of the shot decodes; that is not cached, so a later request
    /// tries again. Blocking.
    std::optional<ShotPreview> preview(const Shot &shot, int maxPixels);

    /// The same picture as preview(), decoded now and not cached: for one-off sizes that
    /// nothing else asks for. Blocking.
    std::optional<ShotPreview> decoded(const Shot &shot, int maxPixels) const { return make(shot, maxPixels); }

    /// The cached picture for the same request, never decoding. Safe on the GUI thread.
    std::optional<ShotPreview> cached(const Shot &shot, int maxPixels) const;

    /// The cache key: the shot's display file, "|", and `maxPixels` in decimal.
    static QString cacheKey(const Shot &shot, int maxPixels);

    /// The whole picture at its full pixel size, for zooming; upright (orientation 1).
    /// Not cached. Blocking.
    static std::optional<ShotPreview> fullResolution(const Shot &shot);

    /// The decoded picture of the file at `path`, long side at most `maxPixels`, turned by
    /// the file's own orientation (HEIC: only the turns libheif applies itself). JPEG
    /// through TurboJPEG with DCT scaling, HEIC/HEIF through libheif, RAW through LibRaw,
    /// anything else through Qt's image readers. Nothing when it does not decode.
    static std::optional<ShotPreview> thumbnail(const QString &path, int maxPixels);

    /// A copy of `image` turned upright from EXIF orientation `orientation`; 1 or an
    /// unknown code returns the image unchanged.
    static QImage upright(const QImage &image, int orientation);

private:
    std::optional<ShotPreview> make(const Shot &shot, int maxPixels) const;

    mutable QMutex m_mutex;
    QCache<QString, ShotPreview> m_cache;
};
