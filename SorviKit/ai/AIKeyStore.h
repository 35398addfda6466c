#pragma once

#include "SorviKit/ai/AIProvider.h"

#include <QString>

#include <optional>

/// The user's API keys, one item per provider in the system's secret store (the Secret
/// Service: GNOME Keyring or KWallet). Keys never touch a settings file. Calls block until
/// the store answers and must not run where a stall would freeze the interface. Reading
/// never reports an error: a store that fails reads as holding no key. Saving and
/// removing do, since the user asked for them and must not believe a key is kept (or
/// gone) when it is not.
namespace AIKeyStore {

/// Whether a secret store answers at all. Without one no key can be kept, and nothing
/// offers to keep it anywhere else.
bool reachable();
/// "app.kestrane.sorvi.ai." followed by the provider's id.
QString service(AIProvider provider);

/// The stored key, or nothing when there is none, the store fails, or its bytes are not
/// UTF-8.
std::optional<QString> key(AIProvider provider);

/// Removes the provider's stored key, then stores `key` when it is given and not empty,
/// so saving always replaces and saving nothing or "" removes. Returns nothing when that
/// worked, else the sentence the user reads, e.g. "Couldn't save the key in the keyring:
/// <reason>" (removing a key that isn't there works).
[[nodiscard]] std::optional<QString> setKey(const std::optional<QString> &key, AIProvider provider);

} // namespace AIKeyStore
