#pragma once

#include "SorviKit/ai/AIClient.h"
#include "SorviKit/ai/AIProvider.h"

#include <QString>

#include <optional>

/// How the AI commands find their service, model and key.
namespace AIAccount {

/// The provider named by `--provider`, or the one chosen in the application when not
/// given; nothing (with a message on stderr) for an unknown name.
std::optional<AIProvider> provider(const std::optional<QString> &name);

/// The environment variable that may hold a key for `provider`, e.g. "OPENAI_API_KEY".
QString environmentVariable(AIProvider provider);

/// A client for `provider` with `model` (or the application's choice for it) and the key
/// from the provider's environment variable when set, else from the keyring; nothing
/// without a key. `endpoint`, when given, replaces the service's URL.
std::optional<AIClient> client(AIProvider provider, const std::optional<QString> &model,
                               const std::optional<QString> &endpoint, bool environmentKey);

} // namespace AIAccount
