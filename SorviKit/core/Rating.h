#pragma once

#include <QHashFunctions>
#include <QString>
#include <array>
#include <optional>

/// What the photographer said about one shot: stars, a pick/reject flag and a colour label.
/// A plain value; an empty rating means "nothing said" and is never stored.
struct Rating {
    enum class Flag { none, pick, reject };
    enum class Label { none, red, yellow, green, blue, purple };

    int stars = 0; ///< 0 (no stars) to 5
    Flag flag = Flag::none;
    Label label = Label::none;

    bool isEmpty() const { return stars == 0 && flag == Flag::none && label == Label::none; }
    friend bool operator==(const Rating &, const Rating &) = default;

    static constexpr std::array<Label, 6> allLabels{Label::none, Label::red,  Label::yellow,
                                                    Label::green, Label::blue, Label::purple};

    /// Raw values as written into catalogs and sidecars: "none"/"pick"/"reject" and
    /// ""/"Red"/…/"Purple". Parsing is exact and case-sensitive; anything else gives no value.
    static QString rawValue(Flag flag);
    static QString rawValue(Label label);
    static std::optional<Flag> flagFromRaw(const QString &text);
    static std::optional<Label> labelFromRaw(const QString &text);
};

size_t qHash(const Rating &rating, size_t seed = 0) noexcept;
