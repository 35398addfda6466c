#pragma once

// What the benchmarks that drive the real model and windows share.

#include <QApplication>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QKeyEvent>
#include <QTemporaryDir>
#include <QWidget>

#include <algorithm>
#include <cstdio>
#include <vector>

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

/// Times every event dispatched from the event loop itself (not nested sends) while
/// recording is on: how long the GUI thread was busy at a stretch.
class TimingApplication : public QApplication {
public:
    using QApplication::QApplication;
    bool notify(QObject *receiver, QEvent *event) override
    {
        if (m_depth > 0 || !m_recording)
            return QApplication::notify(receiver, event);
        ++m_depth;
        QElapsedTimer timer;
        timer.start();
        const bool result = QApplication::notify(receiver, event);
        dispatched.push_back(timer.nsecsElapsed() / 1e6);
        --m_depth;
        return result;
    }
    void record(bool on) { m_recording = on; }
    std::vector<double> dispatched;

private:
    int m_depth = 0;
    bool m_recording = false;
};

/// Runs the event loop for `ms` milliseconds, as a user pausing between inputs.
inline void idle(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, int(ms - timer.elapsed()));
}

/// One line of timings: count, median, 95th percentile and worst, in milliseconds.
inline void report(const char *what, std::vector<double> times)
{
    if (times.empty())
        return;
    std::sort(times.begin(), times.end());
    const double p95 = times[std::min(times.size() - 1, size_t(times.size() * 0.95))];
    std::printf("%-34s n=%5zu  median %6.2f ms  p95 %6.2f ms  worst %7.2f ms\n", what, times.size(),
                times[times.size() / 2], p95, times.back());
}

} // namespace WindowBench
