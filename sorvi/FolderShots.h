#pragma once

#include "CommandLine.h"
#include "Terminal.h"

#include "SorviKit/library/Shot.h"
#include "SorviKit/session/FolderSession.h"

#include <QList>
#include <QString>

#include <optional>

/// What the commands that work on a whole folder share: the folder argument, and the
/// same folder session the application runs.
namespace FolderShots {

/// The canonical path of `path` when it is a folder; otherwise prints why on stderr and
/// returns nothing (the command then exits with status 1).
std::optional<QString> existingFolder(const QString &path);

/// For a command of the form "NAME FOLDER [--json]": the folder's canonical path.
/// Otherwise nothing, with `usage` (exit status 2) or the reason the folder is unusable
/// (exit status 1) printed on stderr and the status in `exitCode`.
std::optional<QString> onlyFolderArgument(const CommandLine &line, const QString &usage, int &exitCode);

/// The session's shots in order with their details read, reporting on `progress`.
QList<Shot> withDetails(FolderSession &session, Terminal::ProgressLine &progress);

/// Ends a command that used `session`: prints on stderr where files of ours that could
/// not be read were kept and every write that failed; 1 when a write failed, else `status`.
int finish(FolderSession &session, int status);

} // namespace FolderShots
