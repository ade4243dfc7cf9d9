// SPDX-License-Identifier: MIT
#include "portable/card/cardresult.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace portable {

namespace {

QString message(CardStatus status)
{
    switch (status) {
    case CardStatus::Read:
        return {};
    case CardStatus::NoReader:
        return QStringLiteral("no card reader");
    case CardStatus::NoCard:
        return QStringLiteral("no card");
    case CardStatus::Unreadable:
        break;
    }
    return QStringLiteral("the card can't be read");
}

} // namespace

QString cardKey(CardKind kind)
{
    switch (kind) {
    case CardKind::Identity:
        return QStringLiteral("idcard");
    case CardKind::SocialSecurity:
        return QStringLiteral("socialcard");
    case CardKind::Bank:
        return QStringLiteral("bankcard");
    case CardKind::Ic:
        break;
    }
    return QStringLiteral("iccard");
}

QString cardName(CardKind kind)
{
    switch (kind) {
    case CardKind::Identity:
        return QStringLiteral("identity card");
    case CardKind::SocialSecurity:
        return QStringLiteral("social security card");
    case CardKind::Bank:
        return QStringLiteral("bank card");
    case CardKind::Ic:
        break;
    }
    return QStringLiteral("IC card");
}

QByteArray cardText(const CardResult &result)
{
    QJsonObject text = result.fields;
    // Some callers check "code", a string, others "result", a number: both are set.
    text.insert(QStringLiteral("code"), QString::number(int(result.status)));
    text.insert(QStringLiteral("result"), result.isRead() ? 1 : 0);
    text.insert(QStringLiteral("message"), message(result.status));
    return QJsonDocument(text).toJson(QJsonDocument::Compact);
}

QByteArray asciiCardText(const CardResult &result)
{
    const QString text = QString::fromUtf8(cardText(result));
    QByteArray ascii;
    ascii.reserve(text.size());
    for (const QChar character : text) {
        if (character.unicode() < 0x80) {
            ascii += character.toLatin1();
        } else {
            ascii += "\\u" + QByteArray::number(character.unicode(), 16).rightJustified(4, '0');
        }
    }
    return ascii;
}

QString quotedCardText(const CardResult &result)
{
    const QJsonArray array{QString::fromUtf8(cardText(result))};
    const QString json = QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
    return json.mid(2, json.size() - 4); // without [" and "]
}

} // namespace portable
