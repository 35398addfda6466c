#pragma once

#include <QElapsedTimer>
#include <QMutex>

#include <functional>

/// Progress of a parallel loop, told from whichever worker finishes an item, at most
/// once per interval and never from two threads at once, so that a fast loop neither
/// floods its listener nor makes the caller poll.
class ThrottledProgress {
public:
    using Callback = std::function<void(int done, int total)>;
    static constexpr int intervalMs = 100;

    ThrottledProgress(Callback callback, int total)
        : m_callback(std::move(callback))
        , m_total(total)
    {
        m_clock.start();
    }

    /// One more item is done; tells the listener when the interval has passed. Any thread.
    void itemDone()
    {
        const QMutexLocker locker(&m_lock);
        ++m_done;
        if (m_callback && m_clock.elapsed() >= intervalMs) {
            m_clock.restart();
            m_callback(m_done, m_total);
        }
    }
    /// The loop is over: tells the final count once.
    void finish()
    {
        const QMutexLocker locker(&m_lock);
        if (m_callback)
            m_callback(m_done, m_total);
    }
    int done() const
    {
        const QMutexLocker locker(&m_lock);
        return m_done;
    }

private:
    Callback m_callback;
    const int m_total;
    mutable QMutex m_lock;
    QElapsedTimer m_clock;
    int m_done = 0;
};
