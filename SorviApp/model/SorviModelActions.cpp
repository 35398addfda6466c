// The rating actions: single-shot changes on the selection, bulk changes that never
// override a pick or reject, and undo. Every change is written through to the catalog.
#include "SorviApp/model/SorviModel.h"

#include "SorviKit/library/Catalog.h"

#include <algorithm>

bool SorviModel::store(const RatingMap &changes)
{
    bool changed = false;
    for (auto change = changes.constBegin(); change != changes.constEnd(); ++change) {
        if (change->isEmpty()) {
            changed = m_ratings.remove(change.key()) > 0 || changed;
        } else {
            const auto it = m_ratings.constFind(change.key());
            changed = changed || it == m_ratings.constEnd() || *it != *change;
            m_ratings.insert(change.key(), *change);
        }
    }
    if (m_catalog && !changes.isEmpty())
        m_catalog->set(changes);
    return changed;
}

void SorviModel::update(const std::function<void(Rating &)> &change, bool advance)
{
    // Until the open folder's shots are listed, the selection names a shot of the folder
    // before, which the open folder's catalog must not receive.
    if (m_selection.isEmpty() || !m_shotsAreOpenFolders)
        return;
    const QString id = m_selection;
    const Rating old = rating(id);
    // Pushed even when the change turns out to change nothing, so that every key press
    // has exactly one undo.
    pushUndo(RatingMap{{id, old}});
    Rating updated = old;
    change(updated);
    if (store({{id, updated}})) {
        emit ratingsChanged();
        afterRatingsEdit();
    }
    if (advance && m_autoAdvance)
        move(+1);
    keepSelectionVisible();
}

void SorviModel::pick()
{
    update([](Rating &r) { r.flag = r.flag == Rating::Flag::pick ? Rating::Flag::none : Rating::Flag::pick; }, true);
}

void SorviModel::reject()
{
    update([](Rating &r) { r.flag = r.flag == Rating::Flag::reject ? Rating::Flag::none : Rating::Flag::reject; },
           true);
}

void SorviModel::unflag()
{
    update([](Rating &r) { r.flag = Rating::Flag::none; }, false);
}

void SorviModel::setStars(int stars)
{
    const int n = std::clamp(stars, 0, 5);
    update(
        [n](Rating &r) {
            r.stars = n;
            // Giving stars to a rejected photo is taking the reject back.
            if (n >= 1 && r.flag == Rating::Flag::reject)
                r.flag = Rating::Flag::none;
        },
        true);
}

void SorviModel::setLabel(Rating::Label label)
{
    update([label](Rating &r) { r.label = r.label == label ? Rating::Label::none : label; }, false);
}

void SorviModel::bulk(const IdSet &ids, const std::function<void(Rating &)> &change)
{
    RatingMap snapshot;
    RatingMap changes;
    for (const QString &id : ids) {
        const Rating old = rating(id);
        // A pick or reject the photographer made is never overridden in bulk.
        if (old.flag != Rating::Flag::none)
            continue;
        snapshot.insert(id, old);
        Rating updated = old;
        change(updated);
        changes.insert(id, updated);
    }
    const bool changed = store(changes);
    if (!snapshot.isEmpty())
        pushUndo(snapshot);
    if (changed) {
        emit ratingsChanged();
        afterRatingsEdit();
        keepSelectionVisible();
    }
}

namespace {

void rejectIt(Rating &r)
{
    r.flag = Rating::Flag::reject;
}

void pickIt(Rating &r)
{
    r.flag = Rating::Flag::pick;
}

} // namespace

IdSet SorviModel::restOfBursts() const
{
    IdSet ids;
    for (const QStringList &group : burstGroups())
        for (const QString &id : group)
            if (!m_bestOfBurst.contains(id))
                ids.insert(id);
    return ids;
}

IdSet SorviModel::eyesClosed() const
{
    IdSet ids;
    for (auto it = m_assessments.constBegin(); it != m_assessments.constEnd(); ++it)
        if (it->eyesClosed > 0)
            ids.insert(it.key());
    return ids;
}

void SorviModel::rejectRestOfBursts() { bulk(restOfBursts(), rejectIt); }
void SorviModel::pickBestOfBursts() { bulk(m_bestOfBurst, pickIt); }
void SorviModel::rejectSoft() { bulk(m_soft, rejectIt); }
void SorviModel::rejectEyesClosed() { bulk(eyesClosed(), rejectIt); }

void SorviModel::pickAIPicks()
{
    const QStringList ids = m_aiPicks.keys();
    bulk(IdSet(ids.begin(), ids.end()), pickIt);
}

int SorviModel::count(const IdSet &unflaggedIn) const
{
    return int(std::count_if(unflaggedIn.begin(), unflaggedIn.end(),
                             [this](const QString &id) { return rating(id).flag == Rating::Flag::none; }));
}

void SorviModel::undo()
{
    if (m_undoStack.isEmpty())
        return;
    const RatingMap snapshot = popUndo();
    if (store(snapshot)) {
        emit ratingsChanged();
        afterRatingsEdit();
    }
}
