#include "SorviKit/handoff/ManifestCheck.h"

#include "SorviKit/core/FileError.h"
#include "SorviKit/core/OwnFile.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/MediaHashList.h"
#include "HashKit/HashAlgorithm.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace ManifestCheck {

namespace {

// The digest of a file by a list's algorithm name; none for algorithms we do not compute.
// XXH64 is read past the page cache, like a copy's read-back, so that the check reaches
// the drive even right after a copy. Throws FileError when the file cannot be read.
std::optional<QString> digestOf(const QString &path, const QString &algorithm,
                                const std::function<void(std::uint64_t)> &onBytes)
{
    if (algorithm == QLatin1String("xxhash64be"))
        return Handoff::hash(path, true, onBytes);
    if (algorithm != QLatin1String("md5"))
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw FileError::couldNot(QStringLiteral("open"), path, file.errorString());
    const auto hasher = makeHasher(HashAlgorithm::md5);
    QByteArray chunk;
    while (!(chunk = file.read(Handoff::chunkBytes)).isEmpty()) {
        hasher->update(chunk.constData(), std::size_t(chunk.size()));
        onBytes(std::uint64_t(chunk.size()));
    }
    if (file.error() != QFileDevice::NoError)
        throw FileError::couldNot(QStringLiteral("read"), path, file.errorString());
    return QString::fromStdString(hasher->finalize());
}

// Where a listed file is, when it lies inside the folder; a list naming "../x" or "/x"
// does not get to send the check elsewhere.
std::optional<QString> inside(const QString &folder, const QString &file)
{
    const QString path = QDir::cleanPath(folder + QLatin1Char('/') + file);
    if (QDir::isAbsolutePath(file) || !path.startsWith(QDir::cleanPath(folder) + QLatin1Char('/')))
        return std::nullopt;
    return path;
}

Finding checkEntry(const QString &folder, const QString &manifest, const MediaHashList::Entry &entry,
                   const std::function<void(std::uint64_t)> &onBytes)
{
    Finding finding{manifest, entry.file, State::unchecked, {}};
    const std::optional<QString> path = inside(folder, entry.file);
    if (!path) {
        finding.reason = QStringLiteral("it lies outside the folder");
        return finding;
    }
    const QFileInfo info(*path);
    if (!info.isFile()) {
        finding.state = State::missing;
        return finding;
    }
    if (std::uint64_t(info.size()) != entry.size) {
        finding.state = State::differs;
        finding.reason = QStringLiteral("%1 bytes, listed with %2").arg(info.size()).arg(entry.size);
        return finding;
    }
    try {
        const std::optional<QString> digest = digestOf(*path, entry.algorithm, onBytes);
        if (!digest) {
            finding.reason = QStringLiteral("listed only with a %1 digest, which Sorvi does not compute")
                                 .arg(entry.algorithm.isEmpty() ? QStringLiteral("missing") : entry.algorithm);
        } else if (*digest == entry.digest) {
            finding.state = State::matches;
        } else {
            finding.state = State::differs;
            finding.reason = QStringLiteral("its %1 is %2, listed as %3").arg(entry.algorithm, *digest, entry.digest);
        }
    } catch (const FileError &error) {
        finding.reason = error.description();
    }
    return finding;
}

} // namespace

int Result::count(State state) const
{
    return int(std::count_if(findings.begin(), findings.end(),
                             [state](const Finding &finding) { return finding.state == state; }));
}

bool Result::allMatch() const
{
    return !findings.isEmpty() && unreadable.isEmpty() && count(State::matches) == findings.size();
}

Result check(const QString &folder, const std::function<void(double)> &progress)
{
    Result result;
    QList<std::pair<QString, QList<MediaHashList::Entry>>> lists;
    for (const QString &name : QDir(folder).entryList({QStringLiteral("*.mhl")}, QDir::Files, QDir::Name)) {
        // Lists we kept aside because they did not parse are not lists to check.
        if (name.contains(QLatin1String(".unreadable-")))
            continue;
        result.manifests << name;
        const std::optional<QByteArray> bytes = OwnFile::read(folder + QLatin1Char('/') + name);
        const std::optional<QList<MediaHashList::Entry>> entries = bytes ? MediaHashList::parse(*bytes) : std::nullopt;
        if (entries)
            lists.append({name, *entries});
        else
            result.unreadable << name + (bytes ? QStringLiteral(": not a Media Hash List") : QStringLiteral(": unreadable"));
    }
    std::uint64_t total = 0;
    for (const auto &[name, entries] : lists)
        for (const MediaHashList::Entry &entry : entries)
            total += entry.size;
    std::uint64_t done = 0;
    const auto onBytes = [&](std::uint64_t bytes) {
        done += bytes;
        if (progress && total > 0)
            progress(std::min(1.0, double(done) / double(total)));
    };
    for (const auto &[name, entries] : lists)
        for (const MediaHashList::Entry &entry : entries)
            result.findings << checkEntry(folder, name, entry, onBytes);
    return result;
}

} // namespace ManifestCheck
