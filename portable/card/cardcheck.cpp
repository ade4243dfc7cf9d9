// SPDX-License-Identifier: MIT
#include "portable/card/cardcheck.h"

#include <algorithm>
#include <iterator>

namespace portable {

namespace {

/// As identity cards of older people have it.
bool isForEver(const QString &date)
{
    return date == QStringLiteral("长期");
}

QDate dateOf(const QString &text)
{
    return text.size() == 10 ? QDate::fromString(text, Qt::ISODate) : QDate();
}

/// GB 11643-1999: ISO 7064, MOD 11-2, over 17 digits.
bool hasCheckDigit(const QString &number)
{
    static const int weights[] = {7, 9, 10, 5, 8, 4, 2, 1, 6, 3, 7, 9, 10, 5, 8, 4, 2};
    if (number.size() != int(std::size(weights)) + 1) {
        return false;
    }
    int sum = 0;
    for (int i = 0; i < int(std::size(weights)); ++i) {
        const int digit = number[i].unicode() - '0';
        if (digit < 0 || digit > 9) {
            return false;
        }
        sum += weights[i] * digit;
    }
    return number[number.size() - 1] == QLatin1Char("10X98765432"[sum % 11]);
}

/// ISO/IEC 7812-1, annex B (Luhn).
bool hasLuhnDigit(const QString &number)
{
    int sum = 0;
    bool isDoubled = false;
    for (auto at = number.rbegin(); at != number.rend(); ++at, isDoubled = !isDoubled) {
        const int digit = at->unicode() - '0';
        if (digit < 0 || digit > 9) {
            return false;
        }
        sum += isDoubled ? digit * 2 / 10 + digit * 2 % 10 : digit;
    }
    return sum % 10 == 0;
}

QString bankCardProblem(const QJsonObject &fields, const QDate &today)
{
    if (!hasLuhnDigit(fields.value(QLatin1String("number")).toString())) {
        return QStringLiteral("the check digit of \"number\" is wrong");
    }
    const QString expiry = fields.value(QLatin1String("expiry")).toString();
    const QDate first = dateOf(expiry + QStringLiteral("-01"));
    if (!first.isValid()) {
        return QStringLiteral("\"expiry\" is no month");
    }
    return first.addMonths(1) > today ? QString() : QStringLiteral("it has expired");
}

/// Of an identity or a social security card; some fields are optional there.
QString datesProblem(const QJsonObject &fields, const QDate &today)
{
    const auto text = [&](const char *key) { return fields.value(QLatin1String(key)).toString(); };
    for (const char *key : {"birthDate", "validFrom", "validTo"}) {
        if (!text(key).isEmpty() && !isForEver(text(key)) && !dateOf(text(key)).isValid()) {
            return QStringLiteral("\"%1\" is no date").arg(QLatin1String(key));
        }
    }
    const QDate birth = dateOf(text("birthDate"));
    const QDate from = dateOf(text("validFrom"));
    const QDate to = dateOf(text("validTo"));
    if (birth.isValid() && birth.toString(QStringLiteral("yyyyMMdd")) != text("number").mid(6, 8)) {
        return QStringLiteral("\"birthDate\" isn't the one in \"number\"");
    }
    if (birth > today || (from.isValid() && from > today)) {
        return QStringLiteral("\"birthDate\" or \"validFrom\" is to come");
    }
    if (to.isValid() && (to < today || to < from)) {
        return QStringLiteral("it has expired");
    }
    return {};
}

} // namespace

QString cardProblem(CardKind kind, const QJsonObject &fields, const QDate &today)
{
    if (kind == CardKind::Ic) {
        return {};
    }
    if (kind == CardKind::Bank) {
        return bankCardProblem(fields, today);
    }
    return hasCheckDigit(fields.value(QLatin1String("number")).toString())
        ? datesProblem(fields, today)
        : QStringLiteral("the check digit of \"number\" is wrong");
}

bool isPicture(const QByteArray &content)
{
    const char *const starts[] = {"\xFF\xD8\xFF", "\x89PNG", "BM"};
    return std::any_of(std::begin(starts), std::end(starts),
                       [&](const char *start) { return content.startsWith(start); });
}

} // namespace portable
