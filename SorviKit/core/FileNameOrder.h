#pragma once

#include <QString>

/// The order a file browser shows names in, the same on every computer and locale.
namespace FileNameOrder {

/// Negative, zero or positive as `a` sorts before, with or after `b`: letters compared
/// without regard to case, runs of digits by their value ("IMG_2" before "IMG_10",
/// "IMG_0001" before "IMG_2"); names equal that way fall back to a plain comparison.
int compare(const QString &a, const QString &b);

inline bool lessThan(const QString &a, const QString &b)
{
    return compare(a, b) < 0;
}

} // namespace FileNameOrder
