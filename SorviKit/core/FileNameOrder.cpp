#include "SorviKit/core/FileNameOrder.h"

namespace {

qsizetype digitRunEnd(const QString &text, qsizetype from)
{
    while (from < text.size() && text.at(from).isDigit())
        ++from;
    return from;
}

// Compares two digit runs by value without converting them, so any length works.
int compareNumbers(QStringView a, QStringView b)
{
    while (a.size() > 1 && a.front() == QLatin1Char('0'))
        a = a.mid(1);
    while (b.size() > 1 && b.front() == QLatin1Char('0'))
        b = b.mid(1);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

} // namespace

namespace FileNameOrder {

int compare(const QString &a, const QString &b)
{
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (a.at(i).isDigit() && b.at(j).isDigit()) {
            const qsizetype endA = digitRunEnd(a, i), endB = digitRunEnd(b, j);
            if (const int order = compareNumbers(QStringView(a).mid(i, endA - i), QStringView(b).mid(j, endB - j)))
                return order;
            i = endA;
            j = endB;
            continue;
        }
        const char32_t x = a.at(i).toCaseFolded().unicode(), y = b.at(j).toCaseFolded().unicode();
        if (x != y)
            return x < y ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size() || j < b.size())
        return i < a.size() ? 1 : -1;
    return a.compare(b);
}

} // namespace FileNameOrder
