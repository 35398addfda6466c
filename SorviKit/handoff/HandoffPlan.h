#pragma once

#include "SorviKit/core/Rating.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/XMPSidecar.h"
#include "SorviKit/library/Shot.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

class MoveLog;

/// A hand-off as the photographer chose it: which steps run, in which order, on which
/// shots, and the sentences that report them. The window's hand-off sheet and
/// `sorvi handoff` both run it, so they do the same things and say them the same way.
/// Synchronous; run it off the GUI thread.
namespace HandoffPlan {

/// Which editors the sidecars are written for: lightroom (NAME.xmp beside NAME.RAW:
/// Lightroom, Capture One) or darktable (NAME.EXT.xmp for every file: darktable, digiKam).
using SidecarStyle = XMPSidecar::Style;

/// What to hand off. The defaults are those of a first hand-off.
struct Choices {
    bool sidecars = true;  ///< XMP sidecars for the RAW files
    bool flagsList = true; ///< the Lightroom flags list
    bool copy = false;     ///< copy photos to `destination`; nothing is copied while none is chosen
    QString destination = {};
    QString copyWhat = QStringLiteral("picks"); ///< "picks", "rated"; anything else: everything but rejects
    bool removeLocation = false;                ///< JPEG and HEIC copies written without location
    bool moveRejects = false;                   ///< rejects moved into "Rejected" inside the folder
    /// Where sidecars and the flags list go when not copying (a card that can't be
    /// written); empty: beside the photos.
    QString sidecarFolder = {};
    /// A second drive every chosen photo is also copied to and verified on (a backup);
    /// empty: none. A failure on one destination does not cost the other its copies,
    /// sidecars, flags list or manifest.
    QString secondDestination = {};
    SidecarStyle sidecarStyle = SidecarStyle::lightroom;
    /// A Media Hash List of the verified copies at the top of each destination
    /// (MediaHashList::manifestName), for `sorvi verify` and other checking tools.
    bool manifest = false;
    friend bool operator==(const Choices &, const Choices &) = default;
};

/// The folder handed off: its shots in order, their ratings, whether it can be written.
struct Folder {
    QString path;
    QList<Shot> shots;
    QHash<QString, Rating> ratings;
    bool writable = true;
};

/// What a run or a put-back said: a sentence per finished step, and the failure that
/// stopped it, if any.
struct Report {
    QStringList lines;
    /// Empty when every step finished. With two destinations, one sentence per destination
    /// that failed, each naming it, a line apart.
    QString failure;
    friend bool operator==(const Report &, const Report &) = default;
};

/// The shots a copy takes: "picks": picked; "rated": not rejected and one star or more;
/// anything else: every shot but the rejects. A shot without a rating has none of these.
QList<Shot> toCopy(const Folder &folder, const QString &what);
QList<Shot> rejects(const Folder &folder);
/// Shots with a RAW file, the ones that get sidecars.
int rawShots(const QList<Shot> &shots);
/// Neither sidecars nor a copy, and no rejects that can be moved: the flags list alone
/// is no reason to run.
bool nothingToDo(const Choices &choices, bool readOnly);
/// A card that can't be written, with sidecars or the flags list to write and no copy
/// to put them beside: a sidecar folder must be chosen first.
bool needsSidecarFolder(const Choices &choices, bool readOnly);

/// Runs the chosen steps in order: without a copy, sidecars then the flags list (into
/// the sidecar folder when one is chosen); with one, the copy (to both destinations at
/// once when a second is chosen), then sidecars, the flags list and the manifest beside
/// the copies on each destination that did not fail; last, when the folder can be
/// written and nothing failed, the rejects are moved, each recorded in `log` first.
/// `watch` hears the copy's progress and may cancel it between files; a cancelled copy
/// reports what it did and what it left, and nothing runs after it. Never throws a file error: the first one stops the run and becomes the
/// report's failure, the lines of the finished steps stay.
Report run(const Choices &choices, const Folder &folder, const MoveLog &log, const Handoff::CopyWatch &watch = {});

/// Puts back every reject recorded in `log` (see Handoff::undo) and then forgets them.
/// No lines and no failure when nothing is recorded. On a failure the record keeps
/// what is still to put back; a record that can't be read is left as it is.
Report putBack(const MoveLog &log);

} // namespace HandoffPlan
