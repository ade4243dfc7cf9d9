// SPDX-License-Identifier: MIT
#include "base/logtext.h"

#include <QRegularExpression>

namespace base {

namespace {

bool isSafe(uint character)
{
    if (character < 0x80) {
        return character >= 0x20 && character != 0x7f;
    }
    return QChar::isPrint(character) && QChar::category(character) != QChar::Separator_Line
        && QChar::category(character) != QChar::Separator_Paragraph;
}

QString escape(uint character)
{
    switch (character) {
    case '\n':
        return QStringLiteral("\\n");
    case '\r':
        return QStringLiteral("\\r");
    case '\t':
        return QStringLiteral("\\t");
    default:
        return character <= 0xffff
            ? QStringLiteral("\\u%1").arg(character, 4, 16, QLatin1Char('0'))
            : QStringLiteral("\\U%1").arg(character, 8, 16, QLatin1Char('0'));
    }
}

} // namespace

QString withoutSecrets(const QString &text)
{
    static const QRegularExpression login(QStringLiteral("://[^/?#\\s]*@"));
    static const QRegularExpression query(QStringLiteral("(://[^?#\\s]*)[?#]\\S*"));
    static const QRegularExpression values(QStringLiteral("[?#][^\\s=]*=\\S*")); // without a scheme
    QString result = text;
    result.replace(login, QStringLiteral("://"));
    result.replace(query, QStringLiteral("\\1?..."));
    result.replace(values, QStringLiteral("?..."));
    return result;
}

QString oneLine(const QString &text)
{
    QString line;
    line.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const bool isPair =
            text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        const uint character =
            isPair ? QChar::surrogateToUcs4(text[i], text[i + 1]) : text[i].unicode();
        const int length = isPair ? 2 : 1;
        if (isSafe(character)) {
            line.append(text.constData() + i, length);
        } else {
            line += escape(character);
        }
        i += length - 1;
    }
    return line;
}

} // namespace base
