#include "SorviKit/library/Exiv2_p.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/Handoff_p.h"
#include "HashKit/XXH64.h"

#include <QMutex>
#include <QSet>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

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

// Writes bytes to a new file and reads them back from the device.
void writeNewVerified(const QString &path, const QByteArray &bytes)
{
    Descriptor fd = createNew(path);
    try {
        writeAll(fd.get(), bytes.constData(), std::size_t(bytes.size()), path);
        finishWriting(fd, path);
        XXH64 expected(0);
        expected.update(bytes.constData(), std::size_t(bytes.size()));
        if (hash(path, true) != QString::fromStdString(expected.finalize()))
            throw VerifyFailed(path.section(QLatin1Char('/'), -1));
    } catch (...) {
        fd.close();
        ::unlink(native(path).constData());
        throw;
    }
}

bool carriesLocation(const QString &path)
{
    static const QSet<QString> extensions{QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("heic"),
                                          QStringLiteral("heif"), QStringLiteral("hif")};
    const QString name = path.section(QLatin1Char('/'), -1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 && extensions.contains(name.mid(dot + 1).toLower());
}

template<typename Data>
void eraseWhere(Data &data, const char *prefix)
{
    for (auto it = data.begin(); it != data.end();)
        it = it->key().rfind(prefix, 0) == 0 ? data.erase(it) : std::next(it);
}

// The source's bytes with its GPS IFD and XMP GPS properties removed and the image data
// left as it was; none when Exiv2 cannot read or cannot write the format.
std::optional<QByteArray> bytesWithoutLocation(const QString &source)
{
    QFile file(source);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray original = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    // Exiv2 0.27 promises nothing about concurrent writers.
    static QMutex exiv2Writer;
    const QMutexLocker locker(&exiv2Writer);
    try {
        const auto image = Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte *>(original.constData()),
                                                     long(original.size()));
        image->readMetadata();
        eraseWhere(image->exifData(), "Exif.GPSInfo.");
        eraseWhere(image->exifData(), "Exif.Image.GPSTag");
        eraseWhere(image->xmpData(), "Xmp.exif.GPS");
        image->writeMetadata();
        Exiv2::BasicIo &io = image->io();
        io.seek(0, Exiv2::BasicIo::beg);
        const Exiv2::DataBuf bytes = io.read(long(io.size()));
        return QByteArray(reinterpret_cast<const char *>(bytes.pData_), bytes.size_);
    } catch (const Exiv2::AnyError &) {
        // Unreadable or read-only formats (HEIC in this Exiv2) fall back to the plain copy.
        return std::nullopt;
    }
}

// The copy lands beside anything already at `target`; a copy that reads back
// differently, or cannot be read back, is removed so it never passes for a good one.
void copyVerified(const QString &source, const QString &target, const std::function<void(const QString &)> &afterWrite,
                  const std::function<void(std::uint64_t)> &onBytes)
{
    const QString written = uniqueTarget(target);
    const QString digest = copyHashing(source, written, onBytes);
    if (afterWrite)
        afterWrite(written);
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
}

// Same size first: a file of another size is told apart without reading either.
bool identicalFileAt(const QString &target, const QString &source, std::uint64_t sourceSize)
{
    struct stat info;
    if (::stat(native(target).constData(), &info) != 0 || !S_ISREG(info.st_mode)
        || std::uint64_t(info.st_size) != sourceSize)
        return false;
    return hash(target, false) == hash(source, false);
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
    Descriptor in = openForReading(source);
    Descriptor out = createNew(target);
    try {
        ::posix_fadvise(in.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        XXH64 hasher(0);
        const auto buffer = std::make_unique_for_overwrite<char[]>(chunk);
        // One read per chunk feeds both the fingerprint and the copy.
        while (const std::size_t got = readChunk(in.get(), buffer.get(), source)) {
            hasher.update(buffer.get(), got);
            writeAll(out.get(), buffer.get(), got, target);
            if (onBytes)
                onBytes(got);
        }
        finishWriting(out, target);
        return QString::fromStdString(hasher.finalize());
    } catch (const FileError &) {
        // A half-written file must not look like a copy; it is ours, made just above.
        out.close();
        ::unlink(native(target).constData());
        throw;
    }
}

bool writeWithoutLocation(const QString &source, const QString &target)
{
    const std::optional<QByteArray> bytes = bytesWithoutLocation(source);
    if (!bytes)
        return false;
    try {
        writeNewVerified(target, *bytes);
        return true;
    } catch (const std::runtime_error &) {
        // Not an error of the hand-off: the caller copies the file unchanged instead,
        // and that verified copy reports a failing destination in its own words.
        return false;
    }
}

CopyResult copy(const QList<Shot> &shots, const QString &root, const QString &destination, bool removeLocation,
                const CopyWatch &watch)
{
    const QStringList files = gatherFiles(shots);
    QList<std::uint64_t> sizes;
    std::uint64_t total = 0;
    for (const QString &file : files)
        total += sizes.emplace_back(size(file));
    // Each copied byte is written once and read back once.
    const double whole = double(std::max<std::uint64_t>(2 * total, 1));
    std::uint64_t done = 0;
    std::uint64_t inFile = 0;
    const auto onBytes = [&](std::uint64_t bytes) {
        inFile += bytes;
        if (watch.progress)
            watch.progress(std::min(1.0, double(done + inFile) / whole));
    };
    CopyResult result;
    for (qsizetype i = 0; i < files.size(); ++i) {
        if (watch.cancelled && watch.cancelled()) {
            result.notCopied = int(files.size() - i);
            return result;
        }
        const QString &file = files[i];
        const QString target = destination + QLatin1Char('/') + relativePath(file, root);
        makeFolder(folderOf(target));
        inFile = 0;
        // A stripped copy differs from its source by design, so it is never matched
        // against an earlier one and always takes a fresh name.
        if (removeLocation && carriesLocation(file) && writeWithoutLocation(file, uniqueTarget(target))) {
            ++result.files;
            ++result.locationRemoved;
        } else if (identicalFileAt(target, file, sizes[i])) {
            ++result.alreadyThere;
        } else {
            copyVerified(file, target, watch.afterWrite, onBytes);
            ++result.files;
            result.bytes += sizes[i];
        }
        done += 2 * sizes[i];
        if (watch.progress)
            watch.progress(double(done) / whole);
    }
    return result;
}

} // namespace Handoff
