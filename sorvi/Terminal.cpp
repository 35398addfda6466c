#include "Terminal.h"

#include <cstdio>
#include <unistd.h>

namespace Terminal {

bool stderrIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void printOut(const QString &text)
{
    std::fputs(text.toUtf8().constData(), stdout);
}

void printErr(const QString &text)
{
    std::fputs(text.toUtf8().constData(), stderr);
}

void ProgressLine::show(const QString &text)
{
    if (!stderrIsTerminal())
        return;
    std::fprintf(stderr, "\r\033[K%s", text.toUtf8().constData());
    std::fflush(stderr);
    m_shown = true;
}

void ProgressLine::clear()
{
    if (!m_shown)
        return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    m_shown = false;
}

} // namespace Terminal
