#pragma once

#include "SorviKit/core/UserSettings.h"

class QSettings;

/// The user's thresholds for the marks made from check results: which shots are soft and
/// how far apart two frames of one burst may be. Changing them re-marks the stored
/// results; no check runs again.
struct CheckThresholds {
    /// A shot is soft below this fraction of the shoot's typical (median) sharpness.
    double softFraction = 0.1;
    /// Seconds from one frame to the next within a burst.
    double burstGapSeconds = 1.0;

    static constexpr double minimumSoftFraction = 0.02, maximumSoftFraction = 0.6;
    static constexpr double minimumBurstGap = 0.1, maximumBurstGap = 5.0;

    friend bool operator==(const CheckThresholds &, const CheckThresholds &) = default;
};

namespace CheckSettings {

inline constexpr char softFractionKey[] = "ChecksSoftFraction";
inline constexpr char burstGapKey[] = "ChecksBurstGap";

/// The thresholds in `settings`: each missing, unreadable or out-of-range value is the default.
CheckThresholds read(const QSettings &settings);
/// The same from the application's own settings.
CheckThresholds read();

/// Writes both thresholds (each brought into its range) to the application's own settings.
UserSettings::Outcome write(const CheckThresholds &thresholds);

/// `thresholds` with each value brought into its range.
CheckThresholds clamped(const CheckThresholds &thresholds);

} // namespace CheckSettings
