#pragma once

#include <QImage>
#include <QString>

/// A decoded picture of a shot, ready to draw. A plain value; QImage shares its pixels
/// implicitly, so copies are cheap and safe across threads.
struct ShotPreview {
    QImage image;
    /// EXIF orientation (1–8) the picture still needs for display; 1 means upright.
    /// Stored RAW previews carry the shot's orientation here, decoded files are turned
    /// already.
    int orientation = 1;
    /// Which picture was decoded and by what, for people and for tests, e.g.
    /// "stored JPEG 1620×1080 at byte 19535", "TurboJPEG", "libheif", "LibRaw".
    QString source;
    /// Pixel size of the picture the decoder read, before any scaling (as stored, not
    /// turned); 0 when unknown.
    int sourceWidth = 0;
    int sourceHeight = 0;
};
