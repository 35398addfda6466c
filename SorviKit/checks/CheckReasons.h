#pragma once

#include "SorviKit/checks/Assessment.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

/// Why a shot got (or did not get) each check mark, in the words the inspector and
/// `sorvi check` show. Pure functions of the stored results and the marks made from them.
namespace CheckReasons {

/// "Sharp" or "Soft", with how sharp the shot is against the shoot's typical sharpness
/// ("Soft: 42 % of the shoot's typical sharpness"); just "Sharp" when the shoot is too
/// small to judge.
QString focus(const QString &id, const QHash<QString, Assessment> &results, const QSet<QString> &soft);

/// "None found", or the count of faces with how their eyes were judged: which faces have
/// closed eyes ("3 · eyes closed on 1: the 2nd from the left"), and how many could not be
/// judged ("eyes not clear on 1").
QString faces(const Assessment &result);

/// For a member of `burst` (ids in time order): what made the best frame win ("Best of
/// this burst: sharper, 1.8×") or which frame is better and why
/// ("Another frame is better: IMG_0003, eyes open"). Empty when the burst has no best
/// frame yet. `name` turns an id into what the user reads.
QString burst(const QString &id, const QStringList &burst, const QHash<QString, Assessment> &results,
              const QSet<QString> &bestOfBurst, const std::function<QString(const QString &)> &name = {});

/// "the 1st and 3rd from the left": faces by their place from the left of the picture,
/// of those among `marks` that `pick` selects.
QString whichFaces(const QList<FaceMark> &marks, const std::function<bool(const FaceMark &)> &pick);

} // namespace CheckReasons
