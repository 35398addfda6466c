#pragma once

#include "SorviKit/ai/AIProvider.h"

#include <QObject>
#include <QString>

#include <functional>

#include <optional>

/// The user's API keys, one item per provider in the system's secret store (the Secret
/// Service: GNOME Keyring or KWallet). Keys never touch a settings file. Calls block until
/// the store answers and must not run where a stall would freeze the interface. Reading
/// never reports an error: a store that fails reads as holding no key. Saving and
/// removing do, since the user asked for them and must not believe a key is kept (or
/// gone) when it is not.
namespace AIKeyStore {

/// The same as key() and setKey() without blocking, for the window: the store's jobs run
/// on the calling thread's event loop (the GUI thread's: the store's client library keeps
/// its jobs on one thread) and `done` is called there, unless `context` is gone by then.
/// `reachable` is false when no secret store answered: then no key can be kept, and
/// nothing may offer to keep it anywhere else.
void readKey(AIProvider provider, QObject *context,
             std::function<void(const std::optional<QString> &key, bool reachable)> done);
void writeKey(const std::optional<QString> &key, AIProvider provider, QObject *context,
              std::function<void(const std::optional<QString> &failure)> done);
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
