#include "SorviKit/library/Shot.h"
#include "SorviKit/library/ShotScanner.h"

#include <QFileInfo>

namespace {

std::optional<QString> firstFile(const QStringList &files, bool (*matches)(const QString &))
{
    for (const QString &file : files)
        if (matches(file))
            return file;
    return std::nullopt;
}

} // namespace

std::optional<QString> Shot::raw() const
{
    return firstFile(files, ShotScanner::isRawFile);
}

std::optional<QString> Shot::rendered() const
{
    return firstFile(files, ShotScanner::isRenderedFile);
}

QString Shot::displayFile() const
{
    if (auto file = rendered())
        return *file;
    return files.isEmpty() ? QString() : files.first();
}

QString Shot::kinds() const
{
    QStringList extensions;
    extensions.reserve(files.size());
    for (const QString &file : files)
        extensions << QFileInfo(file).suffix().toUpper();
    return extensions.join(QStringLiteral(" + "));
}

QString Shot::name() const
{
    return id.section(QLatin1Char('/'), -1);
}

size_t qHash(const Shot &shot, size_t seed) noexcept
{
    // Hash over the identity-carrying fields; equal shots still hash equal because
    // every field that takes part here also takes part in ==.
    return qHashMulti(seed, shot.id, shot.files, shot.width, shot.height, shot.orientation,
                      shot.byteSize);
}
