#include "SorviKit/library/CaptureDetails.h"

#include <QStringList>

#include <cmath>

namespace CaptureDetails {

std::optional<int> offsetSeconds(const QString &text)
{
    if (text.isEmpty())
        return std::nullopt;
    const int sign = text.startsWith(QLatin1Char('-')) ? -1 : 1;
    const QStringList parts = text.mid(1).split(QLatin1Char(':'));
    if (parts.size() != 2)
        return std::nullopt;
    bool hoursOk = false, minutesOk = false;
    const int hours = parts[0].toInt(&hoursOk, 10);
    const int minutes = parts[1].toInt(&minutesOk, 10);
    if (!hoursOk || !minutesOk)
        return std::nullopt;
    return sign * (hours * 3600 + minutes * 60);
}

std::optional<QDateTime> captureDate(const ExifValues &exif)
{
    if (!exif.dateTimeOriginal)
        return std::nullopt;
    const QString text = exif.dateTimeOriginal->trimmed();
    const QDate date = QDate::fromString(text.left(10), QStringLiteral("yyyy:MM:dd"));
    const QTime time = QTime::fromString(text.mid(11), QStringLiteral("HH:mm:ss"));
    if (text.size() != 19 || text.at(10) != QLatin1Char(' ') || !date.isValid() || !time.isValid())
        return std::nullopt;

    const std::optional<int> offset =
        exif.offsetTimeOriginal ? offsetSeconds(exif.offsetTimeOriginal->trimmed()) : std::nullopt;
    QDateTime moment = offset ? QDateTime(date, time, Qt::OffsetFromUTC, *offset)
                              : QDateTime(date, time, Qt::LocalTime);
    if (!moment.isValid())
        return std::nullopt;
    if (exif.subSecTimeOriginal) {
        bool ok = false;
        const double fraction = (QStringLiteral("0.") + exif.subSecTimeOriginal->trimmed()).toDouble(&ok);
        if (ok)
            moment = moment.addMSecs(std::llround(fraction * 1000.0));
    }
    return moment.toUTC();
}

std::optional<QString> cameraName(const ExifValues &exif)
{
    if (!exif.model)
        return std::nullopt;
    const QString make = exif.make.value_or(QString()).trimmed();
    const QString model = *exif.model;
    // An empty make gives a word that no model starts with.
    const QString firstWord = make.isEmpty() ? QStringLiteral("~") : make.toLower().section(QLatin1Char(' '), 0, 0);
    if (model.toLower().startsWith(firstWord))
        return model.trimmed();
    return (make + QLatin1Char(' ') + model).trimmed();
}

namespace {

QString shutterText(double seconds)
{
    if (seconds >= 1.0)
        return QString::asprintf("%.1f s", seconds);
    return QStringLiteral("1/%1 s").arg(std::lround(1.0 / seconds));
}

} // namespace

std::optional<QString> exposureSummary(const ExifValues &exif)
{
    QStringList parts;
    if (exif.exposureTime && *exif.exposureTime > 0 && std::isfinite(*exif.exposureTime))
        parts << shutterText(*exif.exposureTime);
    if (exif.fNumber && std::isfinite(*exif.fNumber))
        parts << QString::asprintf("f/%.1f", *exif.fNumber).remove(QStringLiteral(".0"));
    if (exif.iso)
        parts << QStringLiteral("ISO %1").arg(*exif.iso);
    if (exif.focalLengthMm && std::isfinite(*exif.focalLengthMm))
        parts << QStringLiteral("%1 mm").arg(std::lround(*exif.focalLengthMm));
    if (parts.isEmpty())
        return std::nullopt;
    return parts.join(QStringLiteral(" \u00B7 "));
}

} // namespace CaptureDetails
