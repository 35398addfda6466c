#pragma once

#include <QStringList>
#include <optional>

/// A minimal parser for "positional… --flag --option VALUE" argument lists.
class CommandLine {
public:
    /// `valueOptions` take the following argument as their value; `flags` stand alone.
    CommandLine(const QStringList &args, const QStringList &flags, const QStringList &valueOptions);

    bool isValid() const { return m_error.isEmpty(); }
    QString error() const { return m_error; } ///< what was wrong, for a usage message
    const QStringList &positional() const { return m_positional; }
    bool has(const QString &flag) const { return m_flags.contains(flag); }
    std::optional<QString> value(const QString &option) const;

private:
    QStringList m_positional;
    QStringList m_flags;
    QList<std::pair<QString, QString>> m_values;
    QString m_error;
};
