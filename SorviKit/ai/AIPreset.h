#pragma once

#include <QString>

#include <array>
#include <optional>

/// The ready-made requests a photographer can send to the AI, plus their own words.
namespace AIPreset {

enum class Preset { album, story, portraits, bursts, custom };

/// In the order pickers list them.
inline constexpr std::array<Preset, 5> allCases{Preset::album, Preset::story, Preset::portraits, Preset::bursts,
                                                Preset::custom};

/// The short name a command line uses: "album", "story", "portraits", "bursts", "custom".
QString name(Preset preset);
/// Exact match of a short name.
std::optional<Preset> fromName(const QString &name);
/// What a picker shows, e.g. "Best for an album".
QString label(Preset preset);
/// The request sent for a ready-made preset; empty for `custom`, whose text the user types.
QString requestText(Preset preset);

} // namespace AIPreset
