#include "CommandLine.h"

CommandLine::CommandLine(const QStringList &args, const QStringList &flags, const QStringList &valueOptions)
{
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        if (!arg.startsWith(QLatin1String("--"))) {
            m_positional << arg;
        } else if (flags.contains(arg)) {
            m_flags << arg;
        } else if (valueOptions.contains(arg)) {
            if (i + 1 >= args.size()) {
                m_error = arg + QStringLiteral(" needs a value");
                return;
            }
            m_values.append({arg, args[++i]});
        } else {
            m_error = QStringLiteral("unknown option ") + arg;
            return;
        }
    }
}

std::optional<QString> CommandLine::value(const QString &option) const
{
    for (auto it = m_values.crbegin(); it != m_values.crend(); ++it)
        if (it->first == option)
            return it->second;
    return std::nullopt;
}
