#pragma once

#include <QByteArray>
#include <QString>

/// Small helpers for JSON written by hand where key order matters to readers.
namespace JsonText {

/// `text` as a JSON string literal (quotes included), UTF-8, with the characters JSON
/// requires escaped.
QByteArray quoted(const QString &text);

} // namespace JsonText
