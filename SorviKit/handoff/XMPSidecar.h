#pragma once

#include "SorviKit/core/Rating.h"
#include "SorviKit/library/Shot.h"

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

/// Ratings in XMP sidecar files that Lightroom Classic, Capture One and other editors
/// read. Handled as text: an existing sidecar keeps everything that is not ours byte for
/// byte; only xmp:Rating, xmp:Label, kestrane:Pick and our two keywords are replaced.
namespace XMPSidecar {

inline const QString kestraneNamespace = QStringLiteral("https://kestrane.app/ns/sorvi/1.0/");
inline const QString pickKeyword = QStringLiteral("Sorvi Pick");
inline const QString rejectKeyword = QStringLiteral("Sorvi Reject");

/// The sidecar of a photo: same folder, extension replaced by lower-case "xmp".
QString pathFor(const QString &photoPath);
/// Writes or updates the sidecar of `photoPath` atomically. Throws FileError.
void write(const Rating &rating, const QString &photoPath);
/// The rating a sidecar file states; none when unreadable or when it states none.
std::optional<Rating> read(const QString &sidecarPath);

/// The attribute string, e.g. ` xmp:Rating="3" xmp:Label="Green" kestrane:Pick="1"`.
QString attributes(const Rating &rating);
QString fresh(const Rating &rating);
QString update(const QString &existingText, const Rating &rating);
std::optional<Rating> parse(const QString &text);

/// The ratings that existing sidecars state for the shots, as read when a folder is
/// opened: per shot, its files in order, the first sidecar that yields a rating.
QHash<QString, Rating> ratingsOf(const QList<Shot> &shots);

} // namespace XMPSidecar
