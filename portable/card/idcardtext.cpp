// SPDX-License-Identifier: MIT
#include "portable/card/idcardtext.h"

#include "portable/base/failure.h"
#include "portable/card/holdercodes.h"

#include <QDate>
#include <QRegularExpression>

#include <algorithm>
#include <iterator>

namespace portable {

namespace {

constexpr int blockSize = 256;
constexpr int layoutOffset = 248; // a letter there: the layout

/// Without padding, and without control characters, whatever the card holds.
QString plain(const QString &text)
{
    QString result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result),
                 [](QChar c) { return c.category() != QChar::Other_Control; });
    return result.trimmed();
}

QString sex(const QString &text)
{
    return sexOfCode(plain(text).toInt());
}

QString nation(const QString &text)
{
    return nationOfCode(plain(text).toInt());
}

/// A date as yyyyMMdd; a word, such as 长期, as it is.
QString date(const QString &text)
{
    const QString content = plain(text);
    const QDate day = QDate::fromString(content, QStringLiteral("yyyyMMdd"));
    const bool isWord =
        std::none_of(content.begin(), content.end(), [](QChar c) { return c.unicode() < 0x80; });
    return day.isValid() ? day.toString(Qt::ISODate) : isWord ? content : QString();
}

struct Field
{
    const char *key; ///< Null for what isn't decoded.
    int bytes;
    QString (*meaning)(const QString &);
};

constexpr Field resident[] = {
    {"name", 30, plain},      {"sex", 2, sex},         {"nation", 4, nation},
    {"birthDate", 16, date},  {"address", 70, plain},  {"number", 36, plain},
    {"authority", 30, plain}, {"validFrom", 16, date}, {"validTo", 16, date},
};

/// Residents from Hong Kong, Macao and Taiwan.
constexpr Field regional[] = {
    {"name", 30, plain},       {"sex", 2, sex},          {nullptr, 4, nullptr},
    {"birthDate", 16, date},   {"address", 70, plain},   {"number", 36, plain},
    {"authority", 30, plain},  {"validFrom", 16, date},  {"validTo", 16, date},
    {"passNumber", 18, plain}, {"issueCount", 4, plain},
};

constexpr Field foreigner[] = {
    {"englishName", 120, plain}, {"sex", 2, sex},         {"number", 30, plain},
    {"nationality", 6, plain},   {"name", 30, plain},     {"validFrom", 16, date},
    {"validTo", 16, date},       {"birthDate", 16, date},
};

QString textAt(const QByteArray &block, int offset, int bytes)
{
    QString text;
    for (int place = offset; place < offset + bytes; place += 2) {
        text += QChar(quint16(quint8(block[place]) | quint8(block[place + 1]) << 8));
    }
    return QString::fromUtf8(text.toUtf8()); // makes half a surrogate pair a question mark
}

template <size_t count> QJsonObject decoded(const QByteArray &block, const Field (&fields)[count])
{
    QJsonObject result;
    int offset = 0;
    for (const Field &field : fields) {
        const QString text =
            field.key ? field.meaning(textAt(block, offset, field.bytes)) : QString();
        if (!text.isEmpty()) {
            result.insert(QLatin1String(field.key), text);
        }
        offset += field.bytes;
    }
    return result;
}

/// 18 digits, of which the last may be X; foreigners have three letters and 12 digits.
bool isNumber(const QString &text)
{
    static const QRegularExpression number(QStringLiteral("^([0-9]{17}[0-9X]|[A-Z]{3}[0-9]{12})$"));
    return number.match(text).hasMatch();
}

QJsonObject decodedByLayout(const QByteArray &block)
{
    if (block[layoutOffset + 1] != 0) {
        return decoded(block, resident);
    }
    switch (block[layoutOffset]) { // a letter in UTF-16
    case 'I':
        return decoded(block, foreigner);
    case 'J':
        return decoded(block, regional);
    default:
        return decoded(block, resident);
    }
}

} // namespace

QJsonObject decodeIdCardText(const QByteArray &block, QString *error)
{
    if (block.size() != blockSize) {
        setError(QStringLiteral("its text has %1 bytes instead of 256").arg(block.size()), error);
        return {};
    }
    QJsonObject fields = decodedByLayout(block);
    if (!isNumber(fields.value(QLatin1String("number")).toString())) {
        // Other layouts end here, too: there is no number where it is expected.
        setError(QStringLiteral("its text has no valid number"), error);
        return {};
    }
    return fields;
}

} // namespace portable
