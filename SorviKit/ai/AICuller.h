#pragma once

#include "SorviKit/ai/AIClient.h"
#include "SorviKit/library/Shot.h"

#include <QList>
#include <QString>

#include <functional>
#include <stop_token>

class PreviewLoader;

/// A photo the AI chose, by shot id, with its reason.
struct AIResult {
    QString shotID;
    QString reason;
    friend bool operator==(const AIResult &, const AIResult &) = default;
};

/// Turns "choose up to N of these shots for this purpose" into requests to an AI service:
/// small labelled previews sent in batches, a final pass over the shortlist when there was
/// more than one batch, and the chosen labels mapped back to shots. A plain value made
/// afresh for each ask.
class AICuller {
public:
    explicit AICuller(AIClient client) : client(std::move(client)) {}

    AIClient client;
    int batchSize = 40; ///< previews per request
    /// Once requested, no batch starts after the one in flight and there is no final pass:
    /// the picks so far, cut to the count, are the result.
    std::stop_token finishEarly;

    /// The long side, in pixels, of the previews sent.
    static constexpr int previewPixels = 768;
    /// JPEG quality of the previews sent (of 100).
    static constexpr int previewQuality = 70;

    /// The input tokens an ask about `photos` photos is expected to cost: 600 a photo plus
    /// 400 for the instructions.
    static int estimatedTokens(int photos);

    /// The whole ask: up to `count` (≥ 0) of `shots`, in the AI's order. Shots whose
    /// preview cannot be made are left out silently (without any, nothing is sent and the
    /// result is empty). Previews stay in `previews`' cache. `progress` gets short
    /// sentences on the calling thread. Blocks; throws the client's AIError unchanged,
    /// discarding the picks of earlier batches.
    QList<AIResult> run(const QList<Shot> &shots, const QString &request, int count, PreviewLoader &previews,
                        const std::function<void(const QString &)> &progress, std::stop_token stop = {}) const;

    /// How many picks to ask a batch of `batchPhotos` for when there are `batches` batches.
    static int askedPerBatch(int count, int batches, int batchPhotos);
};
