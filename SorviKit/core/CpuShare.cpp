#include "SorviKit/core/CpuShare.h"

#include <QtGlobal>

#ifdef Q_OS_LINUX
#include <cerrno>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace CpuShare {

bool standBack(int niceness)
{
#ifdef Q_OS_LINUX
    // On Linux the nice value belongs to the thread when addressed by its thread id.
    const auto thread = id_t(syscall(SYS_gettid));
    errno = 0;
    const int current = getpriority(PRIO_PROCESS, thread);
    if (errno != 0)
        return false;
    return current >= niceness || setpriority(PRIO_PROCESS, thread, niceness) == 0;
#else
    Q_UNUSED(niceness);
    return false;
#endif
}

} // namespace CpuShare
