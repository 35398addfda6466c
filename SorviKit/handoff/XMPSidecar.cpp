#include "SorviKit/handoff/XMPSidecar.h"

#include "SorviKit/core/FileError.h"

#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringDecoder>

#include <algorithm>
#include <array>

namespace {

const QString metaNamespace = QStringLiteral("adobe:ns:meta/");
const QString rdfNamespace = QStringLiteral("http://www.w3.org/1999/02/22-rdf-syntax-ns#");
const QString xmpNamespace = QStringLiteral("http://ns.adobe.com/xap/1.0/");
const QString dcNamespace = QStringLiteral("http://purl.org/dc/elements/1.1/");

const QString descriptionTag = QStringLiteral("<rdf:Description");

// The properties we own, in the order they are written. Everything else in a sidecar
// belongs to other tools and is never touched.
enum Owned { ratingProperty, labelProperty, pickProperty, ownedCount };
const std::array<QString, ownedCount> ownedNames = {
    QStringLiteral("xmp:Rating"), QStringLiteral("xmp:Label"), QStringLiteral("kestrane:Pick")};

struct PropertyPatterns {
    QRegularExpression removeAttribute; // one whitespace character and name="value"
    QRegularExpression removeElement;   // all whitespace before <name>value</name>
    QRegularExpression readAttribute;
    QRegularExpression readElement;
};

const std::array<PropertyPatterns, ownedCount> &propertyPatterns()
{
    static const std::array<PropertyPatterns, ownedCount> patterns = [] {
        std::array<PropertyPatterns, ownedCount> built;
        for (int i = 0; i < ownedCount; ++i) {
            const QString name = QRegularExpression::escape(ownedNames[i]);
            built[i] = {QRegularExpression(QStringLiteral("\\s%1=\"[^\"]*\"").arg(name)),
                        QRegularExpression(QStringLiteral("\\s*<%1>[^<]*</%1>").arg(name)),
                        QRegularExpression(QStringLiteral("%1=\"([^\"]*)\"").arg(name)),
                        QRegularExpression(QStringLiteral("<%1>([^<]*)</%1>").arg(name))};
        }
        return built;
    }();
    return patterns;
}

const std::array<QRegularExpression, 2> &keywordPatterns()
{
    static const std::array<QRegularExpression, 2> patterns = [] {
        std::array<QRegularExpression, 2> built;
        const std::array<QString, 2> keywords = {XMPSidecar::pickKeyword, XMPSidecar::rejectKeyword};
        for (size_t i = 0; i < keywords.size(); ++i)
            built[i] = QRegularExpression(
                QStringLiteral("\\s*<rdf:li>%1</rdf:li>").arg(QRegularExpression::escape(keywords[i])));
        return built;
    }();
    return patterns;
}

std::optional<QString> keywordFor(Rating::Flag flag)
{
    switch (flag) {
    case Rating::Flag::pick:
        return XMPSidecar::pickKeyword;
    case Rating::Flag::reject:
        return XMPSidecar::rejectKeyword;
    case Rating::Flag::none:
        break;
    }
    return std::nullopt;
}

QString subjectBag(const QString &keyword)
{
    return QStringLiteral("<dc:subject><rdf:Bag><rdf:li>%1</rdf:li></rdf:Bag></dc:subject>").arg(keyword);
}

QString namespaceDeclaration(const QString &prefix, const QString &uri)
{
    return QStringLiteral(" xmlns:%1=\"%2\"").arg(prefix, uri);
}

// The whole file as text; none when it cannot be read or is not valid UTF-8. A leading
// byte order mark is kept so that a rewritten sidecar starts with the same bytes.
std::optional<QString> readText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

// Removes everything of ours (steps that make an update repeatable): the owned
// properties in both forms, our keywords, and a subject bag that is left empty.
void removeOwned(QString &text)
{
    for (const PropertyPatterns &patterns : propertyPatterns()) {
        text.remove(patterns.removeAttribute);
        text.remove(patterns.removeElement);
    }
    for (const QRegularExpression &keyword : keywordPatterns())
        text.remove(keyword);
    static const QRegularExpression emptySubject(
        QStringLiteral("\\s*<dc:subject>\\s*<rdf:Bag>\\s*</rdf:Bag>\\s*</dc:subject>"));
    text.remove(emptySubject);
}

// Adds the keyword to the first existing subject bag, or gives the first description a
// subject of its own (closing a self-closing description to make room for it).
void addKeyword(QString &text, const QString &keyword)
{
    const qsizetype subject = text.indexOf(QLatin1String("<dc:subject>"));
    if (subject >= 0) {
        const QLatin1String bagTag("<rdf:Bag>");
        const qsizetype bag = text.indexOf(bagTag, subject);
        if (bag >= 0) {
            text.insert(bag + bagTag.size(), QStringLiteral("<rdf:li>%1</rdf:li>").arg(keyword));
            return;
        }
    }
    const QString block = QStringLiteral("\n   ") + subjectBag(keyword);
    const qsizetype description = text.indexOf(descriptionTag);
    const qsizetype end = text.indexOf(QLatin1Char('>'), description);
    if (description < 0 || end < 0)
        return;
    if (text.at(end - 1) == QLatin1Char('/'))
        text.replace(end - 1, 2, QStringLiteral(">") + block + QStringLiteral("\n  </rdf:Description>"));
    else
        text.insert(end + 1, block);
}

// Stars from an xmp:Rating value: a signed decimal integer; negative means rejected.
void applyRatingValue(const QString &value, Rating &rating)
{
    static const QRegularExpression blanks(QStringLiteral("^[ \\t]+|[ \\t]+$"));
    static const QRegularExpression integer(QStringLiteral("^[+-]?[0-9]+$"));
    QString trimmed = value;
    trimmed.remove(blanks);
    if (!integer.match(trimmed).hasMatch())
        return;
    bool ok = false;
    const qlonglong number = trimmed.toLongLong(&ok);
    if (!ok)
        return;
    if (number < 0)
        rating.flag = Rating::Flag::reject;
    else
        rating.stars = int(std::min<qlonglong>(number, 5));
}

} // namespace

QString XMPSidecar::pathFor(const QString &photoPath)
{
    const qsizetype nameStart = photoPath.lastIndexOf(QLatin1Char('/')) + 1;
    const qsizetype dot = photoPath.lastIndexOf(QLatin1Char('.'));
    // A dot that starts the file name (".hidden") is not an extension.
    const QString base = dot > nameStart ? photoPath.left(dot) : photoPath;
    return base + QStringLiteral(".xmp");
}

void XMPSidecar::write(const Rating &rating, const QString &photoPath)
{
    const QString path = pathFor(photoPath);
    const std::optional<QString> existing = readText(path);
    const QByteArray bytes = (existing ? update(*existing, rating) : fresh(rating)).toUtf8();
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        throw FileError::couldNot(QStringLiteral("write"), path, file.errorString());
}

std::optional<Rating> XMPSidecar::read(const QString &sidecarPath)
{
    const std::optional<QString> text = readText(sidecarPath);
    return text ? parse(*text) : std::nullopt;
}

QString XMPSidecar::attributes(const Rating &rating)
{
    const bool rejected = rating.flag == Rating::Flag::reject;
    QString text = QStringLiteral(" xmp:Rating=\"%1\"").arg(rejected ? -1 : rating.stars);
    if (rating.label != Rating::Label::none)
        text += QStringLiteral(" xmp:Label=\"%1\"").arg(Rating::rawValue(rating.label));
    if (rating.flag == Rating::Flag::pick)
        text += QStringLiteral(" kestrane:Pick=\"1\"");
    return text;
}

QString XMPSidecar::fresh(const Rating &rating)
{
    QString text = QStringLiteral("<x:xmpmeta xmlns:x=\"%1\" x:xmptk=\"Kestrane Sorvi\">\n").arg(metaNamespace);
    text += QStringLiteral(" <rdf:RDF xmlns:rdf=\"%1\">\n").arg(rdfNamespace);
    text += QStringLiteral("  <rdf:Description rdf:about=\"\"\n");
    text += QStringLiteral("    xmlns:xmp=\"%1\"\n").arg(xmpNamespace);
    text += QStringLiteral("    xmlns:dc=\"%1\"\n").arg(dcNamespace);
    text += QStringLiteral("    xmlns:kestrane=\"%1\"%2>\n").arg(kestraneNamespace, attributes(rating));
    if (const auto keyword = keywordFor(rating.flag))
        text += QStringLiteral("   ") + subjectBag(*keyword) + QLatin1Char('\n');
    text += QStringLiteral("  </rdf:Description>\n");
    text += QStringLiteral(" </rdf:RDF>\n");
    text += QStringLiteral("</x:xmpmeta>\n");
    return text;
}

QString XMPSidecar::update(const QString &existingText, const Rating &rating)
{
    QString text = existingText;
    removeOwned(text);
    const qsizetype description = text.indexOf(descriptionTag);
    if (description < 0)
        return fresh(rating);

    const std::optional<QString> keyword = keywordFor(rating.flag);
    // The declarations may live on any description; a sidecar that already declares a
    // prefix anywhere does not get a second declaration.
    QString insertion;
    if (!text.contains(QLatin1String("xmlns:xmp=")))
        insertion += namespaceDeclaration(QStringLiteral("xmp"), xmpNamespace);
    if (rating.flag == Rating::Flag::pick && !text.contains(QLatin1String("xmlns:kestrane=")))
        insertion += namespaceDeclaration(QStringLiteral("kestrane"), kestraneNamespace);
    if (keyword && !text.contains(QLatin1String("xmlns:dc=")))
        insertion += namespaceDeclaration(QStringLiteral("dc"), dcNamespace);
    insertion += attributes(rating);
    text.insert(description + descriptionTag.size(), insertion);

    if (keyword)
        addKeyword(text, *keyword);
    return text;
}

std::optional<Rating> XMPSidecar::parse(const QString &text)
{
    std::array<std::optional<QString>, ownedCount> values;
    bool any = false;
    for (int i = 0; i < ownedCount; ++i) {
        const PropertyPatterns &patterns = propertyPatterns()[i];
        QRegularExpressionMatch match = patterns.readAttribute.match(text);
        if (!match.hasMatch())
            match = patterns.readElement.match(text);
        if (match.hasMatch()) {
            values[i] = match.captured(1);
            any = true;
        }
    }
    if (!any)
        return std::nullopt;

    Rating rating;
    if (values[ratingProperty])
        applyRatingValue(*values[ratingProperty], rating);
    if (values[labelProperty])
        rating.label = Rating::labelFromRaw(*values[labelProperty]).value_or(Rating::Label::none);
    if (values[pickProperty] == QStringLiteral("1") && rating.flag != Rating::Flag::reject)
        rating.flag = Rating::Flag::pick;
    return rating;
}

QHash<QString, Rating> XMPSidecar::ratingsOf(const QList<Shot> &shots)
{
    QHash<QString, Rating> ratings;
    for (const Shot &shot : shots) {
        // Both files of a pair share one sidecar; a sidecar that said nothing is not read twice.
        QStringList tried;
        for (const QString &file : shot.files) {
            const QString sidecar = pathFor(file);
            if (tried.contains(sidecar))
                continue;
            tried << sidecar;
            if (const std::optional<Rating> rating = read(sidecar)) {
                ratings.insert(shot.id, *rating);
                break;
            }
        }
    }
    return ratings;
}
