#pragma once

#include <QStringList>

/// Each subcommand takes its own arguments (without the program and subcommand names)
/// and returns the process exit status: 0 success, 1 failure, 2 bad usage or unknown id.
namespace Commands {
int scan(const QStringList &args);
int ratings(const QStringList &args);
int rate(const QStringList &args);
int demo(const QStringList &args);
int check(const QStringList &args);
int handoff(const QStringList &args);
int putBack(const QStringList &args);
int verify(const QStringList &args);
int previews(const QStringList &args);
int preview(const QStringList &args);
int ask(const QStringList &args);
int key(const QStringList &args);
int repair(const QStringList &args);
int join(const QStringList &args);
} // namespace Commands
