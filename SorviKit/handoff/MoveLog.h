#pragma once

#include "SorviKit/handoff/Handoff.h"

#include <QList>
#include <QString>

/// The last move of rejects of a folder, remembered beside its catalog so that a later
/// process can put them back. Written atomically; an unreadable log reads as empty.
class MoveLog {
public:
    /// The log of `folder` in the catalogs' directory.
    explicit MoveLog(const QString &folder, const QString &directory = defaultDirectory());

    static QString defaultDirectory();
    QString file() const { return m_file; }

    QList<Handoff::Move> load() const;
    /// Replaces the remembered moves; an empty list removes the log. Throws FileError.
    void save(const QList<Handoff::Move> &moves) const;

private:
    QString m_folder;
    QString m_file;
};
