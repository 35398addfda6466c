#pragma once

#include <QDateTime>
#include <QString>
#include <optional>

/// The metadata values of one file that capture details are made from, as read; absent
/// when the file doesn't carry them (or carries them with the wrong type).
struct ExifValues {
    std::optional<QString> dateTimeOriginal;
    std::optional<QString> subSecTimeOriginal;
    std::optional<QString> offsetTimeOriginal;
    std::optional<QString> make;
    std::optional<QString> model;
    std::optional<QString> lensModel;    ///< the EXIF lens model
    std::optional<QString> auxLensModel; ///< from XMP or the maker note, when EXIF has none
    std::optional<double> exposureTime;  ///< seconds
    std::optional<double> fNumber;
    std::optional<long> iso; ///< first ISO speed rating
    std::optional<double> focalLengthMm;
    int pixelWidth = 0;
    int pixelHeight = 0;
    std::optional<int> orientation;
};

/// Pure text rules that turn metadata values into a shot's capture details.
namespace CaptureDetails {

/// Seconds east of UTC for an offset text such as "+02:00" or "-05:30"; none for
/// anything else ("Z", "+2", "+02:00:00").
std::optional<int> offsetSeconds(const QString &text);

/// The moment of capture: the "yyyy:MM:dd HH:mm:ss" text read in the given offset's zone
/// (the computer's zone when there is none), plus the sub-second digits ("07" = 0.07 s).
std::optional<QDateTime> captureDate(const ExifValues &exif);

/// "Canon" + "Canon EOS R5" gives "Canon EOS R5"; "SONY" + "ILCE-7M4" gives "SONY ILCE-7M4".
std::optional<QString> cameraName(const ExifValues &exif);

/// One-line summary such as "1/250 s · f/2.8 · ISO 400 · 35 mm"; none when nothing is known.
std::optional<QString> exposureSummary(const ExifValues &exif);

} // namespace CaptureDetails
