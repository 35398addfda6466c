#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <ostream>

// Readable failure messages for the Qt types the tests compare.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *out)
{
    *out << '[' << list.join(", ").toStdString() << ']';
}
inline void PrintTo(const QDateTime &moment, std::ostream *out)
{
    *out << moment.toUTC().toString(Qt::ISODateWithMs).toStdString();
}

/// Small helpers for tests that build folders of real files.
namespace TestFiles {

inline void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

inline QString corpus()
{
    return QStringLiteral(SORVI_CORPUS_DIR);
}

inline bool hasCorpus()
{
    return QFileInfo(corpus() + QStringLiteral("/shoot/truth.json")).exists();
}

} // namespace TestFiles

#define SKIP_WITHOUT_CORPUS()                                                                    \
    if (!TestFiles::hasCorpus())                                                                 \
    GTEST_SKIP() << "camera corpus not found at " << SORVI_CORPUS_DIR                            \
                 << " (set -DSORVI_CORPUS_DIR=…/shared/corpus to run this test)"
