#pragma once

#include "SorviKit/library/CaptureDetails.h"
#include "SorviKit/library/Shot.h"

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcShotDetails)

/// Reads capture details from the photos' own metadata (headers only, never pixels).
namespace ShotDetails {

/// Prepares the metadata library; call once on the main thread before any worker reads.
void initialize();

/// The metadata values of one file, or none when the file can't be read at all.
/// Never throws; safe to call from many threads at once.
std::optional<ExifValues> readExif(const QString &path);

/// A copy of `shot` with its details filled: RAW first, the rendered twin fills the rest.
Shot read(const Shot &shot);

} // namespace ShotDetails
