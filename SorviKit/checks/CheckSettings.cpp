#include "SorviKit/checks/CheckSettings.h"

#include <QSettings>

#include <algorithm>

namespace CheckSettings {
namespace {

double readNumber(const QSettings &settings, const char *key, double fallback, double low, double high)
{
    bool ok = false;
    const double value = settings.value(QLatin1String(key)).toDouble(&ok);
    return ok && value >= low && value <= high ? value : fallback;
}

} // namespace

CheckThresholds read(const QSettings &settings)
{
    const CheckThresholds defaults;
    return {readNumber(settings, softFractionKey, defaults.softFraction, CheckThresholds::minimumSoftFraction,
                       CheckThresholds::maximumSoftFraction),
            readNumber(settings, burstGapKey, defaults.burstGapSeconds, CheckThresholds::minimumBurstGap,
                       CheckThresholds::maximumBurstGap)};
}

CheckThresholds read()
{
    return read(QSettings());
}

CheckThresholds clamped(const CheckThresholds &thresholds)
{
    return {std::clamp(thresholds.softFraction, CheckThresholds::minimumSoftFraction, CheckThresholds::maximumSoftFraction),
            std::clamp(thresholds.burstGapSeconds, CheckThresholds::minimumBurstGap, CheckThresholds::maximumBurstGap)};
}

UserSettings::Outcome write(const CheckThresholds &thresholds)
{
    const CheckThresholds value = clamped(thresholds);
    UserSettings::Outcome outcome = UserSettings::setValue(QLatin1String(softFractionKey), value.softFraction);
    if (outcome.failed())
        return outcome;
    const UserSettings::Outcome second = UserSettings::setValue(QLatin1String(burstGapKey), value.burstGapSeconds);
    return {outcome.notice.isEmpty() ? second.notice : outcome.notice, second.error};
}

} // namespace CheckSettings
