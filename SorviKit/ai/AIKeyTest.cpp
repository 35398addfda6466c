#include "SorviKit/ai/AIKeyTest.h"

#include "SorviKit/previews/JpegEncoder.h"

#include <QColor>
#include <QImage>

namespace AIKeyTest {

QByteArray picture()
{
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(QColor::fromRgbF(0.4f, 0.6f, 0.9f));
    return JpegEncoder::encode(image, JpegEncoder::defaultQuality).value_or(QByteArray());
}

QString run(const AIClient &client, std::stop_token stop)
{
    try {
        // What the service picks does not matter: any readable answer proves the key,
        // the model name and the connection.
        client.choose({{QStringLiteral("P1"), picture()}}, QStringLiteral("Pick this photo."), 1, stop);
        return QStringLiteral("Works: ") + client.provider.company() + QStringLiteral(" answered with ")
            + client.model + QLatin1Char('.');
    } catch (const AIError &error) {
        return error.description();
    }
}

} // namespace AIKeyTest
