#include "SorviKit/ai/AIPreset.h"

namespace AIPreset {

QString name(Preset preset)
{
    switch (preset) {
    case Preset::album: return QStringLiteral("album");
    case Preset::story: return QStringLiteral("story");
    case Preset::portraits: return QStringLiteral("portraits");
    case Preset::bursts: return QStringLiteral("bursts");
    case Preset::custom: return QStringLiteral("custom");
    }
    Q_UNREACHABLE();
}

std::optional<Preset> fromName(const QString &text)
{
    for (const Preset preset : allCases)
        if (name(preset) == text)
            return preset;
    return std::nullopt;
}

QString label(Preset preset)
{
    switch (preset) {
    case Preset::album: return QStringLiteral("Best for an album");
    case Preset::story: return QStringLiteral("Tell the story");
    case Preset::portraits: return QStringLiteral("Strongest portraits");
    case Preset::bursts: return QStringLiteral("Best of each burst");
    case Preset::custom: return QStringLiteral("My own words");
    }
    Q_UNREACHABLE();
}

QString requestText(Preset preset)
{
    switch (preset) {
    case Preset::album:
        return QStringLiteral("The best photos of this shoot for an album: strong moments, good light, sharp where "
                              "it matters, and variety.");
    case Preset::story:
        return QStringLiteral("A set that tells the story of this shoot from start to finish, without "
                              "near-duplicates.");
    case Preset::portraits:
        return QStringLiteral("The strongest portraits: expression, eyes open and sharp, flattering light.");
    case Preset::bursts:
        return QStringLiteral("For each group of near-identical frames, the single best frame.");
    case Preset::custom:
        return {};
    }
    Q_UNREACHABLE();
}

} // namespace AIPreset
