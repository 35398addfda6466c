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

// Reading the answer of a finished read job.
std::optional<QString> keyOf(const QKeychain::ReadPasswordJob &job)
{
    if (job.error() != QKeychain::NoError)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(job.binaryData());
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

// A store that said "not found" or "not allowed" is there; anything else means none answered.
bool answered(const QKeychain::Job &job)
{
    switch (job.error()) {
    case QKeychain::NoError:
    case QKeychain::EntryNotFound:
    case QKeychain::AccessDenied:
    case QKeychain::AccessDeniedByUser:
        return true;
    default:
        return false;
    }
}

template <typename Job>
Job *startJob(Job *job)
{
    job->setAutoDelete(true);
    job->setInsecureFallback(false);
    job->setKey(entryName);
    return job;
}

} // namespace

namespace AIKeyStore {

void readKey(AIProvider provider, QObject *context,
             std::function<void(const std::optional<QString> &key, bool reachable)> done)
{
    auto *job = startJob(new QKeychain::ReadPasswordJob(service(provider)));
    QObject::connect(job, &QKeychain::Job::finished, context, [job, done = std::move(done)] {
        done(keyOf(*job), answered(*job));
    });
    job->start();
}

void writeKey(const std::optional<QString> &key, AIProvider provider, QObject *context,
              std::function<void(const std::optional<QString> &failure)> done)
{
    const bool saving = key && !key->isEmpty();
    const QString failure = saving ? QStringLiteral("Couldn't save the key in the keyring: %1")
                                   : QStringLiteral("Couldn't remove the key from the keyring: %1");
    auto *removal = startJob(new QKeychain::DeletePasswordJob(service(provider)));
    QObject::connect(removal, &QKeychain::Job::finished, context,
                     [=, done = std::move(done)]() mutable {
                         if (removal->error() != QKeychain::NoError && removal->error() != QKeychain::EntryNotFound) {
                             done(failure.arg(removal->errorString()));
                             return;
                         }
                         if (!saving) {
                             done(std::nullopt);
                             return;
                         }
                         auto *write = startJob(new QKeychain::WritePasswordJob(service(provider)));
                         write->setTextData(*key);
                         QObject::connect(write, &QKeychain::Job::finished, context, [=, done = std::move(done)] {
                             done(write->error() == QKeychain::NoError
                                      ? std::nullopt
                                      : std::optional(failure.arg(write->errorString())));
                         });
                         write->start();
                     });
    removal->start();
}

QString service(AIProvider provider)
{
    return QStringLiteral("app.kestrane.sorvi.ai.") + provider.id();
}

std::optional<QString> key(AIProvider provider)
{
    QKeychain::ReadPasswordJob job(service(provider));
    finish(job);
    return keyOf(job);
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
