#pragma once

#include <QByteArray>
#include <QMutex>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class SerialWriter;

/// What happened to a file of ours, for the one-line warning of the window and the exit
/// status of `sorvi`. `message` is the sentence the user reads.
struct StoreEvent {
    enum class Kind {
        written,     ///< a write succeeded; an earlier failure of the same file is over
        writeFailed, ///< a write failed; the file on disk is as it was before
        keptAside,   ///< the file did not parse and was set aside before being written over
    };
    Kind kind = Kind::written;
    QString file;    ///< the store's file
    QString message; ///< empty for `written`
    friend bool operator==(const StoreEvent &, const StoreEvent &) = default;
};

/// The file behind one store (a catalog, check results): read once when the store opens,
/// then replaced atomically on every save. A file that exists but does not parse is
/// renamed aside ("NAME.unreadable-TIME.json") before the first write over it, so a
/// photographer's ratings in a file we could not read are never destroyed. Never throws:
/// a failure is remembered (lastError) and told to the listener until a write succeeds.
///
/// With a SerialWriter, saves run on the writer's thread and are coalesced: a save asked
/// for while one is waiting writes nothing extra, because the waiting one encodes the
/// newest state when it runs. Without one they run at once on the calling thread.
/// Shared by the store and its pending writes, so a store may go away while they finish.
class StoreFile : public std::enable_shared_from_this<StoreFile> {
public:
    /// Writes bytes atomically; the reason on failure, empty on success. A seam for tests.
    using WriteFunction = std::function<QString(const QString &path, const QByteArray &bytes)>;
    /// Called on the thread that wrote (the writer's thread with a SerialWriter).
    using Listener = std::function<void(const StoreEvent &)>;

    /// `contents` names what the file holds in messages ("ratings", "check results").
    /// The writer, when given, must outlive every save of this file.
    static std::shared_ptr<StoreFile> create(const QString &path, const QString &contents,
                                             SerialWriter *writer = nullptr, WriteFunction write = {});

    QString path() const { return m_path; }
    /// The file's bytes; none when it is missing or cannot be read.
    std::optional<QByteArray> load() const;
    /// The loaded bytes did not parse: keep the file before anything replaces it.
    void markUnreadable();
    /// Writes what `encode` returns (called when the write runs, outside any lock of ours).
    void save(std::function<QByteArray()> encode);
    /// Blocks until the saves asked for so far are on disk (or have failed).
    void flush();

    /// Why the last write failed; empty after a good one.
    QString lastError() const;
    /// Where the unreadable file was kept, and the sentence that says so; empty when none was.
    QString keptAsidePath() const;
    QString keptAsideNotice() const;
    void setListener(Listener listener);

private:
    StoreFile(const QString &path, const QString &contents, SerialWriter *writer, WriteFunction write);
    void writeNow();
    void report(const StoreEvent &event);

    const QString m_path;
    const QString m_contents;
    SerialWriter *const m_writer;
    const WriteFunction m_write;

    mutable QMutex m_lock; ///< guards everything below
    std::function<QByteArray()> m_encode;
    bool m_pending = false;
    bool m_unreadable = false;
    QString m_lastError;
    QString m_keptAside;
    QString m_keptAsideNotice;
    Listener m_listener;
};
