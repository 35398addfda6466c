#pragma once

#include "SorviKit/ai/AIClient.h"

#include <QByteArray>
#include <QString>

/// Checks a saved key with the smallest real request: one tiny picture, one pick asked for.
namespace AIKeyTest {

/// A 64 × 48 JPEG of a plain light blue.
QByteArray picture();

/// Sends the test picture through `client` and returns the one-line result for the user:
/// "Works: <company> answered with <model>." or the error's description. Blocks until the
/// reply or until `stop` is requested.
QString run(const AIClient &client, std::stop_token stop = {});

} // namespace AIKeyTest
