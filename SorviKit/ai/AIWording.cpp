#include "SorviKit/ai/AIWording.h"

#include "SorviKit/ai/AICuller.h"

#include <QLocale>

namespace AIWording {

QString grouped(int number)
{
    QLocale locale = QLocale::system();
    locale.setNumberOptions(locale.numberOptions() & ~QLocale::OmitGroupSeparator);
    return locale.toString(number);
}

QString summary(int photos, std::optional<AIProvider> provider)
{
    const QString where = !provider               ? QStringLiteral("the AI service using your key")
                          : provider->hosted() ? provider->company() + QStringLiteral(" using your key")
                                               : provider->company();
    return QStringLiteral("Sends %1 small previews (about %2 pixels wide, rejects left out) to %3: roughly %4 input "
                          "tokens. Your originals stay on this computer.")
        .arg(photos)
        .arg(AICuller::previewPixels)
        .arg(where, grouped(AICuller::estimatedTokens(photos)));
}

QString consentTitle(AIProvider provider)
{
    return QStringLiteral("Send previews to %1?").arg(provider.company());
}

QStringList consentText(AIProvider provider, const QUrl &endpoint)
{
    if (!provider.hosted())
        return {QStringLiteral("Ask an AI sends small previews (about %1 pixels wide) of the photos you chose, and your "
                               "request, from this computer to the server at %2. Your original files stay on this "
                               "computer.")
                    .arg(AICuller::previewPixels)
                    .arg(endpoint.toDisplayString(QUrl::RemoveUserInfo)),
                QStringLiteral("You can revoke this in Settings ▸ AI.")};
    const QString company = provider.company();
    return {QStringLiteral("Ask an AI sends small previews (about %1 pixels wide) of the photos you chose, and your "
                           "request, straight from this computer to %2 using your own API key. Your original files "
                           "stay on this computer, and nothing goes through Brevand Labs.")
                .arg(AICuller::previewPixels)
                .arg(company),
            QStringLiteral("%1 handles them under your account with them, and bills you for what you use. You can "
                           "revoke this in Settings ▸ AI.")
                .arg(company)};
}

} // namespace AIWording
