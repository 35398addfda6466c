#include "SorviKit/core/Rating.h"

namespace {

struct FlagName {
    Rating::Flag flag;
    const char *raw;
};
constexpr FlagName flagNames[] = {
    {Rating::Flag::none, "none"},
    {Rating::Flag::pick, "pick"},
    {Rating::Flag::reject, "reject"},
};

struct LabelName {
    Rating::Label label;
    const char *raw;
};
// The raw values are the capitalised colour names other editors read from sidecars;
// "no label" is deliberately the empty text so that it round-trips.
constexpr LabelName labelNames[] = {
    {Rating::Label::none, ""},          {Rating::Label::red, "Red"},
    {Rating::Label::yellow, "Yellow"},  {Rating::Label::green, "Green"},
    {Rating::Label::blue, "Blue"},      {Rating::Label::purple, "Purple"},
};

} // namespace

QString Rating::rawValue(Flag flag)
{
    for (const auto &entry : flagNames)
        if (entry.flag == flag)
            return QString::fromLatin1(entry.raw);
    return {};
}

QString Rating::rawValue(Label label)
{
    for (const auto &entry : labelNames)
        if (entry.label == label)
            return QString::fromLatin1(entry.raw);
    return {};
}

std::optional<Rating::Flag> Rating::flagFromRaw(const QString &text)
{
    for (const auto &entry : flagNames)
        if (text == QLatin1String(entry.raw))
            return entry.flag;
    return std::nullopt;
}

std::optional<Rating::Label> Rating::labelFromRaw(const QString &text)
{
    for (const auto &entry : labelNames)
        if (text == QLatin1String(entry.raw))
            return entry.label;
    return std::nullopt;
}

size_t qHash(const Rating &rating, size_t seed) noexcept
{
    return qHashMulti(seed, rating.stars, int(rating.flag), int(rating.label));
}
