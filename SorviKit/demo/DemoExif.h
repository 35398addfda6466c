#pragma once

#include "SorviKit/demo/DemoShoot.h"

#include <QByteArray>
#include <QImage>
#include <QSize>

#include <optional>
#include <string>

/// Turns a drawn demo picture into the bytes of a camera JPEG: TurboJPEG encoding, the
/// frame's EXIF with a nested thumbnail, and the deliberate damage some frames carry.
namespace DemoExif {

/// What the files say wrote them.
inline constexpr char software[] = "Kestrane Sorvi demo shoot";

/// The JPEG encodings of one stored picture, made once and shared by the files of a
/// frame (the JPEG and the previews of its RAW). A plain value.
struct Encoded {
    QByteArray picture;   ///< the whole picture: baseline, quality 88, 4:2:0 chroma, no metadata
    QByteArray thumbnail; ///< 160 pixels on the long side, quality 80, no metadata
    QSize thumbnailSize;
};

/// The picture and thumbnail encodings of the stored picture `image` (RGB32). Returns
/// nothing and sets `error` when an encoder fails; safe on any thread.
std::optional<Encoded> encode(const QImage &image, QString *error);

/// The capture moment of `frame` as EXIF text fields state it, in the camera's own
/// time: "yyyy:MM:dd HH:mm:ss", two digits of hundredths, and the offset ("+02:00").
struct CaptureText {
    std::string dateTime;
    std::string subSeconds;
    std::string offset;
};
CaptureText captureText(const DemoShoot::DemoFrame &frame);

/// The complete JPEG file for `frame` from its encoded stored picture: EXIF holding the
/// frame's camera, lens, exposure, orientation, capture time and pixel size plus the
/// thumbnail. For a frame planned with damaged metadata, IFD0 then claims more entries
/// than the EXIF block holds. Returns nothing and sets `error` when the metadata can't
/// be written; never throws. Safe on any thread.
std::optional<QByteArray> jpegFile(const Encoded &encoded, const DemoShoot::DemoFrame &frame, QString *error);

/// Makes the first EXIF block of `jpeg` unreadable by giving IFD0 an entry count that
/// runs past the block's end, leaving every other byte as it was. False when `jpeg`
/// holds no EXIF block with a reachable IFD0.
bool damageExif(QByteArray &jpeg);

} // namespace DemoExif
