#include "SorviApp/model/MountWatcher.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcMounts, "sorvi.mounts", QtWarningMsg)

MountWatcher::MountWatcher(QObject *parent)
    : QObject(parent)
{
    m_fd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        qCWarning(lcMounts) << "cannot watch /proc/self/mountinfo; connected folders are not refreshed";
        return;
    }
    // The kernel reports a changed mount table as POLLPRI, which Qt calls an exception
    // on the descriptor. Each poll consumes the event, so the file need not be re-read.
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Exception, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &MountWatcher::mountsChanged);
}

MountWatcher::~MountWatcher()
{
    delete m_notifier;
    if (m_fd >= 0)
        ::close(m_fd);
}
