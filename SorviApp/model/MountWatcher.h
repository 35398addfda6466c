#pragma once

#include <QObject>

class QSocketNotifier;

/// Tells when a file system was mounted or unmounted in this process's view, so that
/// lists of folders on cards and disks can say again which of them are reachable. Watches
/// /proc/self/mountinfo, which the kernel marks with a priority event on every change.
/// Lives on the thread that creates it (the GUI thread); where the file can't be opened
/// it stays silent.
class MountWatcher : public QObject {
    Q_OBJECT
public:
    explicit MountWatcher(QObject *parent = nullptr);
    ~MountWatcher() override;

    /// True when changes can be noticed at all.
    bool isWatching() const { return m_fd >= 0; }

signals:
    /// A file system was mounted or unmounted; delivered on the watcher's thread.
    void mountsChanged();

private:
    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
};
