#pragma once

#include "SorviKit/ai/AIProvider.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

/// What an ask tells the photographer before anything is sent, in the same words in the
/// window and on the command line.
namespace AIWording {

/// A number with its thousands grouped as the system's locale writes them.
QString grouped(int number);

/// "Sends N small previews (…) to COMPANY using your key: roughly T input tokens. …";
/// "the AI service" when no service is set up.
QString summary(int photos, std::optional<AIProvider> provider);

/// The consent question, e.g. "Send previews to OpenAI?".
QString consentTitle(AIProvider provider);

/// The consent's paragraphs: what goes where and who handles it. A server of one's own is
/// named by its address, with nothing about a company or its bills.
QStringList consentText(AIProvider provider, const QUrl &endpoint);

} // namespace AIWording
