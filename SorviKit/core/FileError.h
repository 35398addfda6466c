#pragma once

#include <QString>

#include <stdexcept>

/// A failure of a file operation the user started (hand-off, sidecars, plug-in install).
/// `description()` is the sentence the user reads: it names the file and the cause.
class FileError : public std::runtime_error {
public:
    explicit FileError(const QString &description)
        : std::runtime_error(description.toStdString()), m_description(description)
    {
    }
    /// "Couldn't <action> <path>: <cause>", e.g. from a QFileDevice's errorString().
    static FileError couldNot(const QString &action, const QString &path, const QString &cause)
    {
        return FileError(QStringLiteral("Couldn't %1 %2: %3").arg(action, path, cause));
    }
    QString description() const { return m_description; }

private:
    QString m_description;
};
