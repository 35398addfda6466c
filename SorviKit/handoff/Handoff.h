#pragma once

#include "SorviKit/core/Rating.h"
#include "SorviKit/handoff/XMPSidecar.h"
#include "SorviKit/library/Shot.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>
#include <cstdint>
#include <exception>
#include <functional>
#include <stdexcept>

/// Takes the photographer's decisions out into files editors read: sidecars, verified
/// copies, the Lightroom flags list, rejects moved aside and back. Synchronous and
/// stateless; run it off the GUI thread. Never deletes or overwrites a photo. File
/// errors are thrown as FileError whose description names the file and the cause.
namespace Handoff {

struct CopyResult {
    int files = 0;              ///< files now at the destination because of this run
    std::uint64_t bytes = 0;    ///< bytes copied by verified copy
    int alreadyThere = 0;       ///< identical files found at the target, skipped
    int locationRemoved = 0;    ///< JPEG/HEIC copies written without location (also in files)
    int notCopied = 0;          ///< files left out because the copy was cancelled
    friend bool operator==(const CopyResult &, const CopyResult &) = default;
};

/// A file at a destination whose bytes are known to be right: copied and read back,
/// found identical to its original, or written without location and read back.
struct VerifiedFile {
    QString path;          ///< below the destination, as it landed ("DCIM/IMG_0001 2.CR3")
    std::uint64_t size = 0;
    QString xxh64;         ///< its XXH64, 16 lower-case hex digits
    QDateTime verifiedAt;  ///< UTC, when its bytes were last read and matched
    friend bool operator==(const VerifiedFile &, const VerifiedFile &) = default;
};

/// One destination's share of a copy to several.
struct DestinationCopy {
    QString destination;
    CopyResult result;
    QList<VerifiedFile> verified; ///< in the order they were done
    /// What stopped the copy to this destination (FileError or VerifyFailed); null when
    /// every file got there. Its copies so far stay, and the others carried on without it.
    std::exception_ptr failure;
};

/// What a copy tells whoever waits for it, and asks of them. Every member may be empty;
/// all are called on the copying thread.
struct CopyWatch {
    /// The fraction done (0…1), by bytes written and read back, also inside a file, so
    /// that one large RAW does not hold the bar still.
    std::function<void(double)> progress = {};
    /// Asked before each file: true stops the copy there, leaving the files so far
    /// copied and verified, and the rest counted in notCopied.
    std::function<bool()> cancelled = {};
    /// Test seam: each verified copy's path after it was written, before it is read back.
    std::function<void(const QString &)> afterWrite = {};
};

/// A copy whose read-back differed from the original.
class VerifyFailed : public std::runtime_error {
public:
    explicit VerifyFailed(const QString &name);
    QString name() const { return m_name; }
    /// "The copy of NAME didn't match the original when read back. …"
    QString description() const;

private:
    QString m_name;
};

struct Move {
    QString source;
    QString moved;
    friend bool operator==(const Move &, const Move &) = default;
};

struct MoveResult {
    QList<Move> moves;
    QString rejectedFolder;
};

inline const QString flagsListName = QStringLiteral(".kestrane-sorvi-flags.txt");
inline const QString rejectedFolderName = QStringLiteral("Rejected");
inline const QString writeProbePrefix = QStringLiteral(".kestrane-write-test-");
constexpr qint64 chunkBytes = 4 * 1024 * 1024;

/// Sidecars beside the photos: for RAW files in the Lightroom style, for every file in
/// the darktable style. A shot without a rating gets one only where a sidecar exists.
int writeSidecars(const QList<Shot> &shots, const QHash<QString, Rating> &ratings,
                  XMPSidecar::Style style = XMPSidecar::Style::lightroom);
/// The same in a tree below `into` that mirrors the folders below `root`; a sidecar
/// already beside a photo is copied there first, so what other tools wrote in it stays.
int writeSidecars(const QList<Shot> &shots, const QHash<QString, Rating> &ratings, const QString &root,
                  const QString &into, XMPSidecar::Style style = XMPSidecar::Style::lightroom);

/// Copies the shots' files (with their sidecars) below `destination`, keeping their
/// folders below `root`, each read back and checked against the original. Throws the
/// first FileError or VerifyFailed; the files copied before it stay.
CopyResult copy(const QList<Shot> &shots, const QString &root, const QString &destination, bool removeLocation,
                const CopyWatch &watch = {});
/// The same copy to several destinations at once (a second drive as a backup): each
/// source is read once for all of them, and every copy is read back from its own drive.
/// A failure on one destination stops only that one. Never throws a file error; each
/// destination's result says what happened there, in the order given.
QList<DestinationCopy> copyToEach(const QList<Shot> &shots, const QString &root, const QStringList &destinations,
                                  bool removeLocation, const CopyWatch &watch = {});

int writeFlagsList(const QList<Shot> &shots, const QHash<QString, Rating> &ratings, const QString &root,
                   const QString &folder = {});
/// Moves the shots' files, with their sidecars, into root/Rejected, keeping their
/// folders below root. `record` is called with each move before its rename is tried and
/// must have it on disk when it returns (MoveLog::append); it throws FileError to stop
/// the run before that move. Any error stops the run: files moved so far stay moved, and
/// their records stay. `afterMove` is a test seam called after each move.
MoveResult moveRejects(const QList<Shot> &shots, const QString &root, const std::function<void(const Move &)> &record,
                       const std::function<void(const Move &)> &afterMove = {});
/// Puts moved files back, the last moved first. A move whose file is not at its moved
/// path, or whose old place is taken again, is skipped without complaint. Each pair is
/// removed from `moves` once settled, so after a FileError `moves` holds what is still
/// to put back (the failed move and those before it); empty on success.
void undo(QList<Move> &moves);

bool canWrite(const QString &folder, bool test);
QString uniqueTarget(const QString &path);
QString relativePath(const QString &file, const QString &root);
std::uint64_t size(const QString &path);
/// `onBytes`, when given, hears of every chunk read (its length).
QString hash(const QString &path, bool uncached, const std::function<void(std::uint64_t)> &onBytes = {});
QString copyHashing(const QString &source, const QString &target,
                    const std::function<void(std::uint64_t)> &onBytes = {});

} // namespace Handoff
