#pragma once

#include "SorviKit/ai/AIClient.h"
#include "SorviKit/ai/AIProvider.h"
#include "SorviKit/core/UserSettings.h"

#include <QString>

#include <optional>

/// The application's AI preferences, kept in the user's settings (QSettings of
/// "Kestrane"/"Sorvi"): the chosen service, a model per service and the consent given per
/// service. Nothing is cached, so every call sees the latest saved values; the API key
/// lives in AIKeyStore, never here. Reading never fails (a value that can't be read is
/// absent); every setter writes at once and tells how that went, for the caller to show.
/// GUI thread or any thread with a QCoreApplication.
namespace AISettings {

/// The chosen service; "anthropic" when none or an unknown one is stored.
AIProvider provider();
[[nodiscard]] UserSettings::Outcome setProvider(AIProvider provider);

/// The model to request from `provider`: the stored one when not empty, else its default.
QString model(AIProvider provider);
/// The model text exactly as stored for `provider`, empty when none is.
QString storedModel(AIProvider provider);
[[nodiscard]] UserSettings::Outcome setModel(const QString &model, AIProvider provider);

/// Whether the user allowed previews to be sent to `provider`.
bool consented(AIProvider provider);
[[nodiscard]] UserSettings::Outcome setConsent(bool allowed, AIProvider provider);

/// The address stored for `provider`, empty when none is. For `compatible` it is the
/// user's server (a base such as "http://localhost:8080/v1"); for a company's service it
/// replaces the fixed address (a gateway, or a server on this machine in tests).
QString serverAddress(AIProvider provider);
[[nodiscard]] UserSettings::Outcome setServerAddress(const QString &address, AIProvider provider);
/// Where requests to `provider` go: its stored address, else its fixed one; empty when
/// `compatible` has no usable address.
QUrl endpoint(AIProvider provider);
/// A client for the chosen service with its model and address and `key` (the stored one,
/// read by the caller: the window reads it without blocking); nothing without a key, or
/// for `compatible` (whose key is optional) without an address.
std::optional<AIClient> clientWith(const std::optional<QString> &key);

} // namespace AISettings
