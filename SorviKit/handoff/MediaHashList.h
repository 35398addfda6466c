#pragma once

#include "SorviKit/handoff/Handoff.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

/// Manifests of verified copies as Media Hash List files, version 1.1: the flat XML
/// format of mediahashlist.org that the copy-and-verify tools of film and television
/// sets write and check. One file at the top of a destination, a <hashlist version="1.1">
/// with a <creatorinfo> and one <hash> per file: <file> (its path below the manifest's
/// folder), <size>, <lastmodificationdate>, <xxhash64be> (the XXH64 we copy with, 16 hex
/// digits, most significant first as xxhsum prints it) and <hashdate>, the time its
/// bytes were read back and matched.
///
/// Version 1.1 rather than ASC MHL 2: version 2 keeps an "ascmhl" folder of numbered
/// generations tied by a chain file and hashes whole folders, made for a card's content
/// copied as one unit. A hand-off adds chosen photos to a folder run after run, which one
/// flat list that each run brings up to date describes exactly, and which people and the
/// existing tools can read.
namespace MediaHashList {

inline const QString manifestName = QStringLiteral("kestrane-sorvi.mhl");

/// One <hash> of a list.
struct Entry {
    QString file;           ///< below the manifest's folder, "/"-separated
    std::uint64_t size = 0;
    QString algorithm;      ///< the element the digest was listed under: "xxhash64be", "md5", …
    QString digest;         ///< lower-case hex
    QDateTime lastModified; ///< UTC; invalid when not listed
    QDateTime hashDate;     ///< UTC; invalid when not listed
    friend bool operator==(const Entry &, const Entry &) = default;
};

/// Who made a list, and when the work it lists started and ended.
struct Creator {
    QString username;
    QString hostname;
    QDateTime start;
    QDateTime finish;
};

QByteArray render(const QList<Entry> &entries, const Creator &creator);
/// The entries of a version 1.x list; none when the text is not one. Each <hash> gives
/// its first digest; <hash> elements without a <file> are left out.
std::optional<QList<Entry>> parse(const QByteArray &bytes);

struct Recorded {
    int listed = 0; ///< files the list names now
    QString notice; ///< set when an earlier list could not be read and was kept aside
};

/// Brings the manifest at the top of `folder` up to date with files just verified there:
/// they are listed, replacing earlier entries of the same path; earlier entries of files
/// still in the folder stay, those of files gone are dropped. A list there that does not
/// parse is kept aside first (see OwnFile). Written atomically. Throws FileError.
Recorded record(const QString &folder, const QList<Handoff::VerifiedFile> &verified);

} // namespace MediaHashList
