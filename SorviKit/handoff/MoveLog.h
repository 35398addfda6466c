#pragma once

#include "SorviKit/handoff/Handoff.h"

#include <QList>
#include <QString>

/// The record of the rejects moved aside in a folder, kept beside its catalog so that a
/// later process can put them back. One JSON object a line ({"source":…,"moved":…}),
/// each appended and on the device before its move is attempted, so a failure or a crash
/// part-way never leaves a moved photo unrecorded. The moves of several runs accumulate
/// until they are put back. Not for two processes moving rejects of one folder at once.
class MoveLog {
public:
    /// The log of `folder` in the catalogs' directory.
    explicit MoveLog(const QString &folder, const QString &directory = defaultDirectory());

    static QString defaultDirectory();
    QString file() const { return m_file; }

    /// The recorded moves, oldest first; none when there is no record. A last line cut
    /// short (a crash while it was written, so before its move began) is left out; an
    /// older record holding one whole document is read too. Throws FileError when the
    /// record cannot be read or is damaged anywhere else.
    QList<Handoff::Move> load() const;

    /// Makes the record ready to take a run's moves: a record that does not parse is kept
    /// aside first (the returned sentence says where; empty otherwise), a line cut short
    /// is dropped and an older whole-document record rewritten a move a line. Call before
    /// the first append of a run. Throws FileError when that cannot be done.
    [[nodiscard]] QString prepare() const;
    /// Adds one move at the end and has it on the device before returning. Throws FileError.
    void append(const Handoff::Move &move) const;
    /// Replaces the record with `moves` atomically; an empty list removes it. Throws FileError.
    void save(const QList<Handoff::Move> &moves) const;

private:
    QString m_file;
};
