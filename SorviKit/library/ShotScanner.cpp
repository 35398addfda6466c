#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/core/FileNameOrder.h"
#include "SorviKit/library/ShotDetails.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

namespace {

QString lowerSuffix(const QString &path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    return dot > slash + 1 ? path.mid(dot + 1).toLower() : QString();
}

QString withoutExtension(const QString &path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    return dot > slash + 1 ? path.left(dot) : path;
}

// The path relative to the opened folder without extension, with every surrounding "/"
// trimmed; the id of a shot and, lower-cased, the key that groups its files.
QString relativeStem(const QString &path, const QString &root)
{
    QString stem = withoutExtension(path);
    if (stem.startsWith(root))
        stem.remove(0, root.size());
    qsizetype first = 0, last = stem.size();
    while (first < last && stem.at(first) == QLatin1Char('/'))
        ++first;
    while (last > first && stem.at(last - 1) == QLatin1Char('/'))
        --last;
    return stem.mid(first, last - first);
}

bool isDirectoryEntry(const QString &path, const dirent *entry)
{
    if (entry->d_type == DT_DIR)
        return true;
    if (entry->d_type != DT_UNKNOWN)
        return false;
    // Some file systems don't report the type; links are never followed so that a link
    // back up the tree can't make the walk endless.
    struct stat info {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Files of one shot share a key; `order` keeps the keys in the order first seen.
void addToGroup(QHash<QString, QStringList> &groups, QStringList &order, const QString &key,
                const QString &path)
{
    auto group = groups.find(key);
    if (group == groups.end()) {
        group = groups.insert(key, {});
        order << key;
    }
    if (!group->contains(path))
        group->append(path);
}

// Recursive walk that skips hidden items and the contents of the skip folders. An
// unreadable directory contributes nothing.
void collect(const QString &directory, QHash<QString, QStringList> &groups, QStringList &order,
             const QString &root)
{
    std::unique_ptr<DIR, int (*)(DIR *)> dir(opendir(QFile::encodeName(directory).constData()),
                                             closedir);
    if (!dir)
        return;
    while (const dirent *entry = readdir(dir.get())) {
        const QString name = QFile::decodeName(entry->d_name);
        if (name.startsWith(QLatin1Char('.')))
            continue;
        const QString path = directory + QLatin1Char('/') + name;
        if (isDirectoryEntry(path, entry)) {
            if (!ShotScanner::skipFolders().contains(name))
                collect(path, groups, order, root);
            continue;
        }
        if (!ShotScanner::allExtensions().contains(lowerSuffix(name)))
            continue;
        addToGroup(groups, order, relativeStem(path, root).toLower(), path);
    }
}

Shot makeShot(QStringList files, const QString &root)
{
    std::sort(files.begin(), files.end(), [](const QString &a, const QString &b) {
        const bool aRaw = ShotScanner::isRawFile(a), bRaw = ShotScanner::isRawFile(b);
        if (aRaw != bRaw)
            return aRaw;
        return a.section(QLatin1Char('/'), -1) < b.section(QLatin1Char('/'), -1);
    });
    return Shot(relativeStem(files.first(), root), files);
}

} // namespace

namespace ShotScanner {

const QSet<QString> &rawExtensions()
{
    static const QSet<QString> set{"cr2", "cr3", "crw", "nef", "nrw", "arw", "srf", "sr2",
                                   "dng", "raf", "orf", "rw2", "pef", "srw", "x3f", "3fr",
                                   "iiq", "erf", "kdc", "mrw", "rwl", "gpr"};
    return set;
}

const QSet<QString> &renderedExtensions()
{
    static const QSet<QString> set{"jpg", "jpeg", "heic", "heif", "hif", "png", "tif", "tiff"};
    return set;
}

const QSet<QString> &allExtensions()
{
    static const QSet<QString> set = rawExtensions() + renderedExtensions();
    return set;
}

const QSet<QString> &skipFolders()
{
    // "Rejected" is where hand-off moves rejects, so they never come back into the list.
    static const QSet<QString> set{"Rejected", ".Trashes", ".Spotlight-V100", ".fseventsd"};
    return set;
}

bool isRawFile(const QString &path)
{
    return rawExtensions().contains(lowerSuffix(path));
}

bool isRenderedFile(const QString &path)
{
    return renderedExtensions().contains(lowerSuffix(path));
}

QList<Shot> list(const QString &folder)
{
    // Resolve the folder once; every file path is built from it, so symbolic and
    // relative spellings of the folder give the same ids.
    QString root = QFileInfo(folder).canonicalFilePath();
    if (root.isEmpty())
        return {};
    if (root.endsWith(QLatin1Char('/')) && root.size() > 1)
        root.chop(1);

    QHash<QString, QStringList> groups;
    QStringList order;
    collect(root, groups, order, root == QLatin1String("/") ? QString() : root);

    QList<Shot> shots;
    shots.reserve(order.size());
    for (const QString &key : std::as_const(order))
        shots << makeShot(groups.value(key), root == QLatin1String("/") ? QString() : root);

    std::stable_sort(shots.begin(), shots.end(),
                     [](const Shot &a, const Shot &b) { return FileNameOrder::lessThan(a.id, b.id); });
    return shots;
}

QList<Shot> group(const QStringList &files)
{
    QHash<QString, QStringList> groups;
    QStringList order;
    for (const QString &file : files) {
        const QString path = QFileInfo(file).absoluteFilePath();
        addToGroup(groups, order, withoutExtension(path).toLower(), path);
    }
    QList<Shot> shots;
    shots.reserve(order.size());
    for (const QString &key : std::as_const(order)) {
        const QStringList &members = groups[key];
        shots << makeShot(members, QFileInfo(members.first()).absolutePath());
    }
    return shots;
}

Shot readDetails(const Shot &shot)
{
    return ShotDetails::read(shot);
}

void initializeMetadataReader()
{
    ShotDetails::initialize();
}

} // namespace ShotScanner
