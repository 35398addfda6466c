#include "SorviKit/core/JsonText.h"

namespace JsonText {

QByteArray quoted(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    QByteArray out;
    out.reserve(utf8.size() + 2);
    out += '"';
    for (const char c : utf8) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
                out += QByteArray("\\u00") + QByteArray::number(static_cast<unsigned char>(c), 16).rightJustified(2, '0');
            else
                out += c;
        }
    }
    out += '"';
    return out;
}

} // namespace JsonText
