#pragma once

#include "SorviKit/core/Rating.h"
#include "SorviKit/library/Shot.h"

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

/// Ratings in XMP sidecar files that editors read. Handled as text: an existing sidecar
/// keeps everything that is not ours byte for byte; only the properties of the chosen
/// style and our two keywords are replaced.
namespace XMPSidecar {

/// Which editors a sidecar is written for: its name and the properties it carries.
enum class Style {
    /// NAME.xmp beside NAME.RAW (a RAW+JPEG pair shares it), read by Lightroom Classic and
    /// Capture One: xmp:Rating, xmp:Label, kestrane:Pick and the pick/reject keyword.
    lightroom,
    /// NAME.EXT.xmp for every file, JPEGs too, as darktable and digiKam name them: the
    /// Lightroom properties plus darktable:colorlabels, digiKam:ColorLabel and
    /// digiKam:PickLabel.
    darktable,
};

inline const QString kestraneNamespace = QStringLiteral("https://kestrane.app/ns/sorvi/1.0/");
inline const QString pickKeyword = QStringLiteral("Sorvi Pick");
inline const QString rejectKeyword = QStringLiteral("Sorvi Reject");

/// The sidecar of a photo, in the same folder: the Lightroom style replaces the
/// extension with lower-case "xmp" (IMG_0001.xmp), the darktable style appends ".xmp" to
/// the whole name (IMG_0001.CR3.xmp).
QString pathFor(const QString &photoPath, Style style = Style::lightroom);
/// Writes or updates the sidecar of `photoPath` atomically. Throws FileError.
void write(const Rating &rating, const QString &photoPath, Style style = Style::lightroom);
/// The rating a sidecar file states; none when unreadable or when it states none.
std::optional<Rating> read(const QString &sidecarPath);

/// The attribute string, e.g. ` xmp:Rating="3" xmp:Label="Green" kestrane:Pick="1"`.
QString attributes(const Rating &rating, Style style = Style::lightroom);
QString fresh(const Rating &rating, Style style = Style::lightroom);
QString update(const QString &existingText, const Rating &rating, Style style = Style::lightroom);
/// Reads xmp:Rating, xmp:Label and kestrane:Pick, which both styles write.
std::optional<Rating> parse(const QString &text);

/// The ratings that existing sidecars state for the shots, as read when a folder is
/// opened: per shot, its files in order, the first sidecar that yields a rating.
QHash<QString, Rating> ratingsOf(const QList<Shot> &shots);

} // namespace XMPSidecar
