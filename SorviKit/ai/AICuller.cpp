#include "SorviKit/ai/AICuller.h"

#include "SorviKit/previews/JpegEncoder.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QHash>

#include <algorithm>

namespace {

// Labels follow positions in the shot list, so a shot whose preview fails leaves a gap
// ("P1", "P3") and the AI's answer still maps back without a lookup table of positions.
QList<AIPhoto> labelledPreviews(const QList<Shot> &shots, PreviewLoader &previews, QHash<QString, QString> &labels)
{
    QList<AIPhoto> photos;
    for (qsizetype i = 0; i < shots.size(); ++i) {
        const std::optional<ShotPreview> preview = previews.preview(shots[i], AICuller::previewPixels);
        if (!preview)
            continue;
        const QImage upright = PreviewLoader::upright(preview->image, preview->orientation);
        const std::optional<QByteArray> jpeg = JpegEncoder::encode(upright, AICuller::previewQuality);
        if (!jpeg)
            continue;
        const QString label = QStringLiteral("P%1").arg(i + 1);
        labels.insert(label, shots[i].id);
        photos.append({label, *jpeg});
    }
    return photos;
}

QString batchProgress(qsizetype batch, qsizetype batches, int batchSize, qsizetype inBatch, qsizetype total)
{
    if (batches == 1)
        return QStringLiteral("Looking at %1 photos…").arg(inBatch);
    const qsizetype first = batch * batchSize + 1;
    return QStringLiteral("Looking at photos %1–%2 of %3…").arg(first).arg(first + inBatch - 1).arg(total);
}

// The photos of the shortlist, in the order they were first sent.
QList<AIPhoto> shortlisted(const QList<AIPhoto> &photos, const QList<AIPick> &shortlist)
{
    QSet<QString> ids;
    for (const AIPick &pick : shortlist)
        ids.insert(pick.id);
    QList<AIPhoto> chosen;
    for (const AIPhoto &photo : photos)
        if (ids.contains(photo.id))
            chosen.append(photo);
    return chosen;
}

} // namespace

int AICuller::estimatedTokens(int photos)
{
    int tokens = 0;
    if (__builtin_mul_overflow(photos, 600, &tokens) || __builtin_add_overflow(tokens, 400, &tokens))
        qFatal("Token estimate overflows for %d photos", photos);
    return tokens;
}

int AICuller::askedPerBatch(int count, int batches, int batchPhotos)
{
    if (batches == 1)
        return count;
    // Every batch is asked for at least the whole count, so one strong batch is never
    // starved by the split; the final pass narrows the shortlist down again.
    return std::max(count, std::min(2 * count / batches + 3, batchPhotos));
}

QList<AIResult> AICuller::run(const QList<Shot> &shots, const QString &request, int count,
                              PreviewLoader &previews, const std::function<void(const QString &)> &progress,
                              std::stop_token stop) const
{
    if (count < 0)
        qFatal("AICuller::run needs a count of at least 0, not %d", count);
    QHash<QString, QString> labels;
    const QList<AIPhoto> photos = labelledPreviews(shots, previews, labels);
    if (photos.isEmpty())
        return {};
    const qsizetype batches = (photos.size() + batchSize - 1) / batchSize;
    QList<AIPick> shortlist;
    bool stoppedEarly = false;
    for (qsizetype b = 0; b < batches; ++b) {
        if (b > 0 && finishEarly.stop_requested()) {
            stoppedEarly = true;
            if (progress)
                progress(QStringLiteral("Stopped after %1 of %2 batches.").arg(b).arg(batches));
            break;
        }
        const QList<AIPhoto> batch = photos.mid(b * batchSize, batchSize);
        if (progress)
            progress(batchProgress(b, batches, batchSize, batch.size(), photos.size()));
        shortlist += client.choose(batch, request, askedPerBatch(count, int(batches), int(batch.size())), stop);
    }
    if (!stoppedEarly && batches >= 2 && shortlist.size() > count) {
        if (progress)
            progress(QStringLiteral("Choosing the final %1 from %2…").arg(count).arg(shortlist.size()));
        shortlist = client.choose(shortlisted(photos, shortlist), request, count, stop);
    }
    QList<AIResult> results;
    for (const AIPick &pick : shortlist.mid(0, count)) {
        const auto shot = labels.constFind(pick.id);
        if (shot != labels.constEnd())
            results.append({*shot, pick.reason});
    }
    return results;
}
