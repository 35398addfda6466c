#pragma once

#include "SorviKit/library/Shot.h"

#include <QList>
#include <QSet>
#include <QString>

/// Turns a folder into the ordered list of shots and reads their capture details.
/// Stateless and thread-safe; never writes anything and never reports an error: an
/// unreadable folder lists as empty, an unreadable file keeps its default details.
namespace ShotScanner {

const QSet<QString> &rawExtensions();      ///< 22 lower-case RAW extensions
const QSet<QString> &renderedExtensions(); ///< 8 lower-case rendered extensions
const QSet<QString> &allExtensions();
const QSet<QString> &skipFolders(); ///< folder names whose contents are ignored (exact case)

bool isRawFile(const QString &path);
bool isRenderedFile(const QString &path);

/// All shots under `folder`, sorted as a file browser sorts, with only id and files filled.
QList<Shot> list(const QString &folder);

/// The shots that loose files make, grouped as list() groups a folder (same folder and
/// name without extension, letter case aside; RAW files first) in the order the files
/// are given; each id is the name without extension. Files are taken as given, whatever
/// their extension.
QList<Shot> group(const QStringList &files);

/// A copy of `shot` with capture date, camera, lens, pixel size, orientation, exposure
/// and byte size filled as far as the files allow. Reads metadata headers only.
Shot readDetails(const Shot &shot);

/// Must run once on the main thread before details are read from worker threads.
void initializeMetadataReader();

} // namespace ShotScanner
