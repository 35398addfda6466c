#pragma once

#include <QString>

/// How sentences of ours are worded, in the window and in `sorvi` alike.
namespace Wording {

/// "1 photo", "2 photos": a counted word takes an s when the count is not 1.
inline QString counted(qsizetype count, const QString &word)
{
    return QStringLiteral("%1 %2%3").arg(count).arg(word, count == 1 ? QString() : QStringLiteral("s"));
}

} // namespace Wording
