#pragma once

// What the benchmarks that drive the real model and windows share.

#include <QCoreApplication>
#include <QFile>
#include <QKeyEvent>
#include <QTemporaryDir>
#include <QWidget>

namespace WindowBench {

/// Keeps the catalogs, move records and settings a run writes in `home`, out of the
/// user's own, and names the application as the window does. Call before the
/// application object is made; the identity is set once it exists (see nameApplication).
inline void useScratchHome(const QTemporaryDir &home)
{
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
}

/// The organisation and application names the window's settings live under.
inline void nameApplication()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrane"));
    QCoreApplication::setApplicationName(QStringLiteral("Sorvi"));
}

/// A key pressed and released on `target`, delivered at once.
inline void press(QWidget *target, Qt::Key key, const QString &text = {})
{
    QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier, text);
    QCoreApplication::sendEvent(target, &down);
    QKeyEvent up(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QCoreApplication::sendEvent(target, &up);
}

} // namespace WindowBench
