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

QString progressBar(const QString &label, double fraction)
{
    constexpr int width = 30;
    const int filled = int(fraction * width);
    return QStringLiteral("%1 [%2%3] %4%")
        .arg(label, QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char('-')))
        .arg(int(fraction * 100));
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
