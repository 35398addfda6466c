#pragma once

#include "Shot.h"
#include "Terminal.h"

#include <QList>
#include <QString>

#include <optional>

/// What the commands that work on a whole folder share.
namespace FolderShots {

/// The canonical path of `path` when it is a folder; otherwise prints why on stderr and
/// returns nothing (the command then exits with status 1).
std::optional<QString> existingFolder(const QString &path);

/// The shots of `folder` in order, with their details read on all cores, reporting on
/// `progress` while it works.
QList<Shot> withDetails(const QString &folder, Terminal::ProgressLine &progress);

} // namespace FolderShots
