#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/Handoff_p.h"
#include "HashKit/XXH64.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <vector>

namespace Handoff {

using namespace detail;

namespace {

constexpr std::size_t chunk = std::size_t(chunkBytes);

Descriptor openForReading(const QString &path)
{
    Descriptor fd(::open(native(path).constData(), O_RDONLY | O_CLOEXEC));
    if (!fd.isOpen())
        throw FileError::couldNot(QStringLiteral("open"), path, errnoText(errno));
    return fd;
}

// O_EXCL: whatever appeared at the name since it was chosen is refused, never replaced.
Descriptor createNew(const QString &path)
{
    Descriptor fd(::open(native(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!fd.isOpen())
        throw FileError::couldNot(QStringLiteral("create"), path, errnoText(errno));
    return fd;
}

std::size_t readChunk(int fd, char *buffer, const QString &path)
{
    for (;;) {
        const ssize_t got = ::read(fd, buffer, chunk);
        if (got >= 0)
            return std::size_t(got);
        if (errno != EINTR)
            throw FileError::couldNot(QStringLiteral("read"), path, errnoText(errno));
    }
}

void writeAll(int fd, const char *data, std::size_t length, const QString &path)
{
    while (length > 0) {
        const ssize_t put = ::write(fd, data, length);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            throw FileError::couldNot(QStringLiteral("write"), path, errnoText(errno));
        data += put;
        length -= std::size_t(put);
    }
}

// Until the data is on the device a full disk or a failing card can still refuse it,
// so both the flush and the close are checked.
void finishWriting(Descriptor &fd, const QString &path)
{
    if (::fdatasync(fd.get()) != 0 || fd.close() != 0)
        throw FileError::couldNot(QStringLiteral("write"), path, errnoText(errno));
}

// Writes bytes to a new file, reads them back from the device and returns their XXH64.
QString writeNewVerified(const QString &path, const QByteArray &bytes)
{
    Descriptor fd = createNew(path);
    try {
        writeAll(fd.get(), bytes.constData(), std::size_t(bytes.size()), path);
        finishWriting(fd, path);
        XXH64 expected(0);
        expected.update(bytes.constData(), std::size_t(bytes.size()));
        const QString digest = QString::fromStdString(expected.finalize());
        if (hash(path, true) != digest)
            throw VerifyFailed(path.section(QLatin1Char('/'), -1));
        return digest;
    } catch (...) {
        fd.close();
        ::unlink(native(path).constData());
        throw;
    }
}

// Same size first: a file of another size is told apart without reading either. The
// source's digest is worked out once for all destinations; the target's is returned
// when it matches.
std::optional<QString> identicalFileAt(const QString &target, const QString &source, std::uint64_t sourceSize,
                                       std::optional<QString> &sourceDigest)
{
    struct stat info;
    if (::stat(native(target).constData(), &info) != 0 || !S_ISREG(info.st_mode)
        || std::uint64_t(info.st_size) != sourceSize)
        return std::nullopt;
    const QString digest = hash(target, false);
    if (!sourceDigest)
        sourceDigest = hash(source, false);
    return digest == *sourceDigest ? std::optional(digest) : std::nullopt;
}

// One new file being written from a source, on one destination.
struct Leg {
    QString path;
    std::optional<Descriptor> out;
    std::exception_ptr failure;
    bool live() const { return !failure; }
    // A file that is not whole must not look like a copy; it is ours, made for this leg.
    void fail()
    {
        failure = std::current_exception();
        if (out) {
            out->close();
            ::unlink(native(path).constData());
        }
    }
};

// Reads the source once, feeding the fingerprint and every leg's file from the same
// chunks. A leg that cannot be created or written fails alone; a source that cannot be
// read throws, after every leg's partial file was removed.
QString copyHashingToEach(const QString &source, std::vector<Leg> &legs,
                          const std::function<void(std::uint64_t)> &onBytes)
{
    Descriptor in = openForReading(source);
    for (Leg &leg : legs) {
        try {
            leg.out.emplace(createNew(leg.path));
        } catch (const FileError &) {
            leg.failure = std::current_exception();
        }
    }
    const auto anyLive = [&legs] { return std::any_of(legs.begin(), legs.end(), [](const Leg &leg) { return leg.live(); }); };
    try {
        ::posix_fadvise(in.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        XXH64 hasher(0);
        const auto buffer = std::make_unique_for_overwrite<char[]>(chunk);
        while (anyLive()) {
            const std::size_t got = readChunk(in.get(), buffer.get(), source);
            if (got == 0)
                break;
            hasher.update(buffer.get(), got);
            for (Leg &leg : legs) {
                try {
                    if (leg.live())
                        writeAll(leg.out->get(), buffer.get(), got, leg.path);
                } catch (const FileError &) {
                    leg.fail();
                }
            }
            if (onBytes)
                onBytes(got);
        }
        for (Leg &leg : legs) {
            try {
                if (leg.live())
                    finishWriting(*leg.out, leg.path);
            } catch (const FileError &) {
                leg.fail();
            }
        }
        return QString::fromStdString(hasher.finalize());
    } catch (const FileError &) {
        for (Leg &leg : legs)
            if (leg.live())
                leg.fail();
        throw;
    }
}

// A copy that reads back differently, or cannot be read back, is removed so that it
// never passes for a good one.
QString readBack(const QString &written, const QString &source, const QString &digest,
                 const std::function<void(std::uint64_t)> &onBytes)
{
    bool same = false;
    try {
        same = hash(written, true, onBytes) == digest;
    } catch (const FileError &) {
        ::unlink(native(written).constData());
        throw;
    }
    if (!same) {
        ::unlink(native(written).constData());
        throw VerifyFailed(source.section(QLatin1Char('/'), -1));
    }
    return digest;
}

// What one file needs at one destination, and how it went there.
struct FileAtDestination {
    DestinationCopy *copy;
    QString target; ///< the path it would have below the destination
};

void noteVerified(DestinationCopy &copy, const QString &path, std::uint64_t size, const QString &digest)
{
    copy.verified.append({relativePath(path, copy.destination), size, digest, QDateTime::currentDateTimeUtc()});
}

// A stripped copy differs from its source by design, so it is never matched against an
// earlier one and always takes a fresh name. Returns the destinations still to serve:
// those where stripping failed get the plain verified copy instead.
QList<FileAtDestination> copyWithoutLocation(const QString &file, const QList<FileAtDestination> &wanted)
{
    const std::optional<QByteArray> bytes = bytesWithoutLocation(file);
    if (!bytes)
        return wanted;
    QList<FileAtDestination> rest;
    for (const FileAtDestination &at : wanted) {
        const QString written = uniqueTarget(at.target);
        try {
            noteVerified(*at.copy, written, std::uint64_t(bytes->size()), writeNewVerified(written, *bytes));
            ++at.copy->result.files;
            ++at.copy->result.locationRemoved;
        } catch (const std::runtime_error &) {
            // Not an error of the hand-off: the verified plain copy below reports a
            // failing destination in its own words.
            rest << at;
        }
    }
    return rest;
}

// Copies one file to every destination that has not failed, reading the source once.
void copyFileToEach(const QString &file, std::uint64_t size, const QString &root, QList<DestinationCopy> &copies,
                    bool removeLocation, const CopyWatch &watch, const std::function<void(std::uint64_t)> &onBytes)
{
    QList<FileAtDestination> wanted;
    for (DestinationCopy &copy : copies) {
        if (copy.failure)
            continue;
        const QString target = copy.destination + QLatin1Char('/') + relativePath(file, root);
        try {
            makeFolder(folderOf(target));
            wanted.append({&copy, target});
        } catch (const FileError &) {
            copy.failure = std::current_exception();
        }
    }
    if (removeLocation && carriesLocation(file))
        wanted = copyWithoutLocation(file, wanted);

    std::optional<QString> sourceDigest;
    QList<FileAtDestination> toWrite;
    std::vector<Leg> legs;
    for (const FileAtDestination &at : wanted) {
        try {
            if (const std::optional<QString> digest = identicalFileAt(at.target, file, size, sourceDigest)) {
                ++at.copy->result.alreadyThere;
                noteVerified(*at.copy, at.target, size, *digest);
                continue;
            }
        } catch (const FileError &) {
            at.copy->failure = std::current_exception();
            continue;
        }
        toWrite << at;
        legs.push_back({uniqueTarget(at.target), {}, {}});
    }
    if (legs.empty())
        return;

    QString digest;
    try {
        digest = copyHashingToEach(file, legs, onBytes);
    } catch (const FileError &) {
        for (const FileAtDestination &at : toWrite)
            at.copy->failure = std::current_exception();
        return;
    }
    for (qsizetype i = 0; i < toWrite.size(); ++i) {
        DestinationCopy &copy = *toWrite[i].copy;
        const Leg &leg = legs[std::size_t(i)];
        if (!leg.live()) {
            copy.failure = leg.failure;
            continue;
        }
        if (watch.afterWrite)
            watch.afterWrite(leg.path);
        try {
            noteVerified(copy, leg.path, size, readBack(leg.path, file, digest, onBytes));
            ++copy.result.files;
            copy.result.bytes += size;
        } catch (const std::runtime_error &) {
            copy.failure = std::current_exception();
        }
    }
}

} // namespace

QString hash(const QString &path, bool uncached, const std::function<void(std::uint64_t)> &onBytes)
{
    Descriptor fd = openForReading(path);
    if (uncached) {
        // DONTNEED drops only clean pages: flush first so that every page of the file
        // can go and the reads below come from the device. A file system that cannot
        // flush a read-only descriptor (EINVAL) still had its data flushed by the writer.
        if (::fdatasync(fd.get()) != 0 && errno != EINVAL)
            throw FileError::couldNot(QStringLiteral("flush"), path, errnoText(errno));
        ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_DONTNEED);
    }
    ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    XXH64 hasher(0);
    const auto buffer = std::make_unique_for_overwrite<char[]>(chunk);
    while (const std::size_t got = readChunk(fd.get(), buffer.get(), path)) {
        hasher.update(buffer.get(), got);
        if (onBytes)
            onBytes(got);
    }
    return QString::fromStdString(hasher.finalize());
}

QString copyHashing(const QString &source, const QString &target, const std::function<void(std::uint64_t)> &onBytes)
{
    std::vector<Leg> legs(1);
    legs.front().path = target;
    const QString digest = copyHashingToEach(source, legs, onBytes);
    if (legs.front().failure)
        std::rethrow_exception(legs.front().failure);
    return digest;
}

namespace {

// Which folder a destination is: its device and inode, taken when the copy starts.
struct FolderIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FolderIdentity &) const = default;
};

std::optional<FolderIdentity> identityOf(const QString &folder)
{
    struct stat info;
    if (::stat(native(folder).constData(), &info) != 0 || !S_ISDIR(info.st_mode))
        return std::nullopt;
    return FolderIdentity{info.st_dev, info.st_ino};
}

// A drive pulled or unmounted mid-copy leaves either nothing at its path or the empty
// mount point on the computer's own disk. Copying on would fill that disk with files the
// photographer believes are on the drive, so each file first checks that the folder is
// still the one chosen; and a file that failed because the drive went says so, rather
// than naming a copy that can no longer be found.
void stopIfDestinationGone(DestinationCopy &copy, const FolderIdentity &chosen)
{
    if (identityOf(copy.destination) == chosen)
        return;
    copy.failure = std::make_exception_ptr(FileError::couldNot(
        QStringLiteral("copy to"), copy.destination,
        QStringLiteral("the folder is no longer there. Was the drive removed?")));
}

} // namespace

QList<DestinationCopy> copyToEach(const QList<Shot> &shots, const QString &root, const QStringList &destinations,
                                  bool removeLocation, const CopyWatch &watch)
{
    QList<DestinationCopy> copies;
    QList<FolderIdentity> identities;
    for (const QString &destination : destinations) {
        copies.append({destination, {}, {}, {}});
        try {
            makeFolder(destination);
        } catch (const FileError &) {
            copies.last().failure = std::current_exception();
        }
        identities.append(identityOf(destination).value_or(FolderIdentity{}));
    }
    const QStringList files = gatherFiles(shots);
    QList<std::uint64_t> sizes;
    std::uint64_t total = 0;
    for (const QString &file : files)
        total += sizes.emplace_back(size(file));
    // Each byte is read from the source once, then read back once from every destination.
    const std::uint64_t passes = std::uint64_t(1 + destinations.size());
    const double whole = double(std::max<std::uint64_t>(passes * total, 1));
    std::uint64_t done = 0;
    std::uint64_t inFile = 0;
    const auto onBytes = [&](std::uint64_t bytes) {
        inFile += bytes;
        if (watch.progress)
            watch.progress(std::min(1.0, double(done + inFile) / whole));
    };
    const auto anyLeft = [&copies] {
        return std::any_of(copies.begin(), copies.end(), [](const DestinationCopy &copy) { return !copy.failure; });
    };
    for (qsizetype i = 0; i < files.size() && anyLeft(); ++i) {
        if (watch.cancelled && watch.cancelled()) {
            for (DestinationCopy &copy : copies)
                if (!copy.failure)
                    copy.result.notCopied = int(files.size() - i);
            return copies;
        }
        inFile = 0;
        QList<qsizetype> going;
        for (qsizetype d = 0; d < copies.size(); ++d) {
            if (copies[d].failure)
                continue;
            stopIfDestinationGone(copies[d], identities[d]);
            if (!copies[d].failure)
                going << d;
        }
        copyFileToEach(files[i], sizes[i], root, copies, removeLocation, watch, onBytes);
        for (const qsizetype d : going)
            if (copies[d].failure)
                stopIfDestinationGone(copies[d], identities[d]);
        done += passes * sizes[i];
        if (watch.progress)
            watch.progress(double(done) / whole);
    }
    return copies;
}

CopyResult copy(const QList<Shot> &shots, const QString &root, const QString &destination, bool removeLocation,
                const CopyWatch &watch)
{
    const DestinationCopy copied = copyToEach(shots, root, {destination}, removeLocation, watch).constFirst();
    if (copied.failure)
        std::rethrow_exception(copied.failure);
    return copied.result;
}

} // namespace Handoff
