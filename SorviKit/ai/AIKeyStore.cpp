#include "SorviKit/ai/AIKeyStore.h"

#include <QEventLoop>
#include <QStringDecoder>

#include <qt6keychain/keychain.h>

namespace {

// The secret store has no account for us to name; one fixed entry name per service keeps
// exactly one item per provider.
const QString entryName = QStringLiteral("api-key");

// Runs a keychain job to its end in a local event loop and tells whether it succeeded.
bool finish(QKeychain::Job &job)
{
    job.setAutoDelete(false);
    job.setInsecureFallback(false);
    job.setKey(entryName);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec();
    return job.error() == QKeychain::NoError;
}

} // namespace

namespace AIKeyStore {

QString service(AIProvider provider)
{
    return QStringLiteral("app.kestrane.sorvi.ai.") + provider.id();
}

bool reachable()
{
    // Reading an entry that may not exist: "not found" is an answer, so the store is there.
    QKeychain::ReadPasswordJob job(service(AIProvider::anthropic));
    return finish(job) || job.error() == QKeychain::EntryNotFound;
}

std::optional<QString> key(AIProvider provider)
{
    QKeychain::ReadPasswordJob job(service(provider));
    if (!finish(job))
        return std::nullopt;
    const QByteArray bytes = job.binaryData();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

std::optional<QString> setKey(const std::optional<QString> &key, AIProvider provider)
{
    const bool saving = key && !key->isEmpty();
    const QString failure = saving ? QStringLiteral("Couldn't save the key in the keyring: %1")
                                   : QStringLiteral("Couldn't remove the key from the keyring: %1");
    QKeychain::DeletePasswordJob removal(service(provider));
    // No stored key is just what removing asks for.
    if (!finish(removal) && removal.error() != QKeychain::EntryNotFound)
        return failure.arg(removal.errorString());
    if (!saving)
        return std::nullopt;
    QKeychain::WritePasswordJob write(service(provider));
    write.setTextData(*key);
    if (!finish(write))
        return failure.arg(write.errorString());
    return std::nullopt;
}

} // namespace AIKeyStore
