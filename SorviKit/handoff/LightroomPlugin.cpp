#include "SorviKit/handoff/LightroomPlugin.h"
#include "SorviKit/core/FileError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QUuid>

#include <filesystem>
#include <system_error>

Q_LOGGING_CATEGORY(lcLightroomPlugin, "sorvi.lightroomplugin", QtWarningMsg)

namespace fs = std::filesystem;

namespace {

const QString notShipped = QStringLiteral("The plug-in isn't in this copy of Sorvi.");

fs::path fsPath(const QString &path)
{
    return fs::path(path.toStdU16String());
}

QString shown(const fs::path &path)
{
    return QDir::toNativeSeparators(QString::fromStdU16String(path.u16string()));
}

[[noreturn]] void fail(const fs::path &path, const std::error_code &error)
{
    throw FileError(shown(path) + QStringLiteral(": ") + QString::fromStdString(error.message()));
}

// A fresh name beside `target` for work in progress. It doesn't end in ".lrplugin", so
// Lightroom never loads a leftover one from its Modules folder.
fs::path siblingFor(const fs::path &target, const QString &purpose)
{
    const QString name = QStringLiteral(".%1-%2-%3")
                             .arg(shown(target.filename()), purpose,
                                  QUuid::createUuid().toString(QUuid::Id128));
    return target.parent_path() / fsPath(name);
}

void removeLeftover(const fs::path &path)
{
    std::error_code error;
    if (!fs::exists(fs::symlink_status(path, error)))
        return;
    fs::remove_all(path, error);
    // The outcome is already decided by then; a hidden leftover only takes a little space.
    if (error)
        qCWarning(lcLightroomPlugin) << "could not remove" << shown(path) << error.message().c_str();
}

// Moves the complete copy at `staged` to `target`. Whatever was at the target is renamed
// aside first and put back if the move fails, so the target is never half a plug-in.
void swapIn(const fs::path &staged, const fs::path &target)
{
    std::error_code error;
    const bool replacing = fs::exists(fs::symlink_status(target, error));
    const fs::path aside = replacing ? siblingFor(target, QStringLiteral("replaced")) : fs::path();
    if (replacing) {
        fs::rename(target, aside, error);
        if (error) {
            removeLeftover(staged);
            fail(target, error);
        }
    }
    fs::rename(staged, target, error);
    if (error) {
        if (replacing) {
            // Should even this fail, the earlier item stays beside the target under the
            // aside name rather than being lost.
            std::error_code restoreError;
            fs::rename(aside, target, restoreError);
        }
        removeLeftover(staged);
        fail(target, error);
    }
    if (replacing)
        removeLeftover(aside);
}

void replaceWithCopy(const QString &source, const QString &target)
{
    const fs::path to = fsPath(QFileInfo(target).absoluteFilePath());
    const fs::path staged = siblingFor(to, QStringLiteral("partial"));
    std::error_code error;
    fs::copy(fsPath(source), staged, fs::copy_options::recursive, error);
    if (error) {
        removeLeftover(staged);
        fail(to, error);
    }
    swapIn(staged, to);
}

// Runs one copy and turns its outcome into the sentence the user reads.
template<typename Work>
QString reported(Work work, const QString &success, const QString &failurePrefix)
{
    try {
        work();
        return success;
    } catch (const FileError &error) {
        return failurePrefix + error.description();
    } catch (const std::exception &error) {
        // A path that can't be expressed for the file system, or memory running out.
        return failurePrefix + QString::fromLocal8Bit(error.what());
    }
}

} // namespace

namespace LightroomPlugin {

QString bundlePath()
{
    QStringList candidates;
    if (QCoreApplication::instance())
        candidates << QCoreApplication::applicationDirPath() + QStringLiteral("/../share/kestrane-sorvi/")
                          + bundleName;
    candidates << QStringLiteral(SORVI_SOURCE_DIR "/resources/") + bundleName;
    for (const QString &candidate : std::as_const(candidates)) {
        if (QFileInfo(candidate + QStringLiteral("/Info.lua")).isFile())
            return QDir::cleanPath(candidate);
    }
    return {};
}

bool installSupported()
{
#if defined(Q_OS_MACOS) || defined(Q_OS_WIN)
    return true;
#else
    return false;
#endif
}

QString installFolder()
{
#if defined(Q_OS_WIN)
    // Lightroom keeps its folders in the roaming application data, which Qt's generic
    // locations don't name on Windows.
    const QString base = QDir::fromNativeSeparators(qEnvironmentVariable("APPDATA"));
#else
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
#endif
    return base.isEmpty() ? QString() : base + QStringLiteral("/Adobe/Lightroom/Modules");
}

QString install()
{
    const QString source = bundlePath();
    if (source.isEmpty())
        return notShipped;
    const auto work = [&source] {
        const QString folder = installFolder();
        if (folder.isEmpty())
            throw FileError(QStringLiteral("this account has no folder for application data"));
        std::error_code error;
        fs::create_directories(fsPath(folder), error);
        if (error)
            fail(fsPath(folder), error);
        replaceWithCopy(source, folder + QLatin1Char('/') + bundleName);
    };
    return reported(work, QStringLiteral("Installed. Restart Lightroom Classic to load it."),
                    QStringLiteral("Couldn't install: "));
}

QString save(const QString &target)
{
    const QString source = bundlePath();
    if (source.isEmpty())
        return notShipped;
    return reported([&] { replaceWithCopy(source, target); },
                    QStringLiteral("Saved. In Lightroom Classic: File ▸ Plug-in Manager ▸ Add."),
                    QStringLiteral("Couldn't save: "));
}

} // namespace LightroomPlugin
