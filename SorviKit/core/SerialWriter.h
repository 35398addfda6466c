#pragma once

#include <QThreadPool>

#include <functional>

/// One background thread that writes our own files (catalogs, check results) one after
/// another, in the order the writes were asked for, so that the GUI thread never waits
/// for a disk. Owned by whoever outlives every store that posts to it (the model, or a
/// command of `sorvi`); destroying it waits for the last write.
class SerialWriter {
public:
    SerialWriter();
    ~SerialWriter();
    SerialWriter(const SerialWriter &) = delete;
    SerialWriter &operator=(const SerialWriter &) = delete;

    /// Runs `job` on the writer's thread after every job posted before it. Any thread.
    void post(std::function<void()> job);
    /// Blocks until every job posted so far has run.
    void waitForIdle();

private:
    QThreadPool m_thread;
};
