#pragma once

#include "CommandLine.h"
#include "SorviKit/library/Shot.h"
#include "Terminal.h"

#include <QList>
#include <QString>

#include <optional>

/// What the commands that work on a whole folder share.
namespace FolderShots {

/// The canonical path of `path` when it is a folder; otherwise prints why on stderr and
/// returns nothing (the command then exits with status 1).
std::optional<QString> existingFolder(const QString &path);

/// For a command of the form "NAME FOLDER [--json]": the folder's canonical path.
/// Otherwise nothing, with `usage` (exit status 2) or the reason the folder is unusable
/// (exit status 1) printed on stderr and the status in `exitCode`.
std::optional<QString> onlyFolderArgument(const CommandLine &line, const QString &usage, int &exitCode);

/// The shots of `folder` in order, with their details read on all cores, reporting on
/// `progress` while it works.
QList<Shot> withDetails(const QString &folder, Terminal::ProgressLine &progress);

} // namespace FolderShots
