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

void setKey(const std::optional<QString> &key, AIProvider provider)
{
    QKeychain::DeletePasswordJob removal(service(provider));
    finish(removal);
    if (!key || key->isEmpty())
        return;
    QKeychain::WritePasswordJob write(service(provider));
    write.setTextData(*key);
    finish(write);
}

} // namespace AIKeyStore
