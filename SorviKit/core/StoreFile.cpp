#include "SorviKit/core/StoreFile.h"

#include "SorviKit/core/OwnFile.h"
#include "SorviKit/core/SerialWriter.h"

#include <QFileInfo>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcStoreFile, "sorvi.store", QtWarningMsg)

std::shared_ptr<StoreFile> StoreFile::create(const QString &path, const QString &contents, SerialWriter *writer,
                                             WriteFunction write)
{
    return std::shared_ptr<StoreFile>(new StoreFile(path, contents, writer, std::move(write)));
}

StoreFile::StoreFile(const QString &path, const QString &contents, SerialWriter *writer, WriteFunction write)
    : m_path(path)
    , m_contents(contents)
    , m_writer(writer)
    , m_write(write ? std::move(write) : WriteFunction(&OwnFile::write))
{
}

std::optional<QByteArray> StoreFile::load() const
{
    return OwnFile::read(m_path);
}

void StoreFile::markUnreadable()
{
    const QMutexLocker locker(&m_lock);
    m_unreadable = true;
}

void StoreFile::save(std::function<QByteArray()> encode)
{
    {
        const QMutexLocker locker(&m_lock);
        m_encode = std::move(encode);
        if (m_writer && m_pending)
            return; // the waiting write encodes the newest state
        m_pending = true;
    }
    if (m_writer)
        m_writer->post([self = shared_from_this()] { self->writeNow(); });
    else
        writeNow();
}

void StoreFile::flush()
{
    if (m_writer)
        m_writer->waitForIdle();
}

void StoreFile::writeNow()
{
    std::function<QByteArray()> encode;
    bool unreadable = false;
    {
        const QMutexLocker locker(&m_lock);
        m_pending = false;
        encode = m_encode;
        unreadable = m_unreadable;
    }
    if (unreadable && QFileInfo::exists(m_path)) {
        const OwnFile::KeptAside aside = OwnFile::keepAside(m_path);
        if (aside.path.isEmpty()) {
            // Writing now would destroy what we could not read; try again next time.
            report({StoreEvent::Kind::writeFailed, m_path,
                    QStringLiteral("Couldn't save the %1: %2 could not be read, and setting it aside failed (%3).")
                        .arg(m_contents, m_path, aside.error)});
            return;
        }
        const QString notice =
            QStringLiteral("The %1 file %2 could not be read; it was kept as %3 and a new one started.")
                .arg(m_contents, QFileInfo(m_path).fileName(), aside.path);
        {
            const QMutexLocker locker(&m_lock);
            m_unreadable = false;
            m_keptAside = aside.path;
            m_keptAsideNotice = notice;
        }
        report({StoreEvent::Kind::keptAside, m_path, notice});
    }
    const QString error = m_write(m_path, encode());
    if (error.isEmpty())
        report({StoreEvent::Kind::written, m_path, {}});
    else
        report({StoreEvent::Kind::writeFailed, m_path,
                QStringLiteral("Couldn't save the %1 to %2: %3").arg(m_contents, m_path, error)});
}

void StoreFile::report(const StoreEvent &event)
{
    Listener listener;
    {
        const QMutexLocker locker(&m_lock);
        if (event.kind == StoreEvent::Kind::written)
            m_lastError.clear();
        else if (event.kind == StoreEvent::Kind::writeFailed)
            m_lastError = event.message;
        listener = m_listener;
    }
    if (event.kind != StoreEvent::Kind::written)
        qCWarning(lcStoreFile) << event.message;
    if (listener)
        listener(event);
}

QString StoreFile::lastError() const
{
    const QMutexLocker locker(&m_lock);
    return m_lastError;
}

QString StoreFile::keptAsidePath() const
{
    const QMutexLocker locker(&m_lock);
    return m_keptAside;
}

QString StoreFile::keptAsideNotice() const
{
    const QMutexLocker locker(&m_lock);
    return m_keptAsideNotice;
}

void StoreFile::setListener(Listener listener)
{
    const QMutexLocker locker(&m_lock);
    m_listener = std::move(listener);
}
