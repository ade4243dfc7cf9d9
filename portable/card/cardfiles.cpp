// SPDX-License-Identifier: MIT
#include "portable/card/cardfiles.h"

#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inifile.h"
#include "portable/base/inputlimits.h"
#include "portable/base/simulation.h"
#include "portable/card/cardcheck.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <iterator>
#include <optional>

namespace portable {

namespace {

constexpr CardKind kinds[] = {CardKind::Identity, CardKind::SocialSecurity, CardKind::Bank,
                              CardKind::Ic};

QStringList requiredFields(CardKind kind)
{
    switch (kind) {
    case CardKind::Identity:
        return {QStringLiteral("name"),      QStringLiteral("sex"),       QStringLiteral("nation"),
                QStringLiteral("birthDate"), QStringLiteral("address"),   QStringLiteral("number"),
                QStringLiteral("authority"), QStringLiteral("validFrom"), QStringLiteral("validTo"),
                QStringLiteral("photo")};
    case CardKind::SocialSecurity:
        return {QStringLiteral("name"), QStringLiteral("sex"), QStringLiteral("number"),
                QStringLiteral("cardNumber")};
    case CardKind::Bank:
        return {QStringLiteral("number"), QStringLiteral("expiry")};
    case CardKind::Ic:
        break;
    }
    return {QStringLiteral("serial")};
}

/**
 * Reads a file in the folder, never one outside it.
 * \return null on failure, with the reason in the log
 */
QByteArray contentOf(const QString &folder, const QString &name)
{
    const QString path = QDir(folder).absoluteFilePath(name);
    const QString real = QFileInfo(path).canonicalFilePath();
    if (real.isEmpty()) {
        logFailure(path, QStringLiteral("there is no such file"));
        return {};
    }
    if (!real.startsWith(QDir(folder).canonicalPath() + QLatin1Char('/'))
        || !QFileInfo(real).isFile()) {
        logFailure(path, QStringLiteral("it is not a file in the card folder"));
        return {};
    }
    QString error;
    QByteArray content = readWholeFile(real, limits::cardFile, &error);
    if (content.isEmpty()) {
        logFailure(path, content.isNull() ? error : QStringLiteral("it is empty"));
        return {};
    }
    return content;
}

struct CardFile
{
    QString name; ///< Of the file.
    CardKind kind = CardKind::Identity;
    QJsonObject fields;
};

/// Reads a card file of any kind; nothing on failure, with the reason in the log.
std::optional<CardFile> parse(const QString &folder, const QString &name)
{
    const QByteArray content = contentOf(folder, name);
    if (content.isNull()) {
        return {};
    }
    const QString path = QDir(folder).absoluteFilePath(name);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (!document.isObject()) {
        logFailure(path,
                   error.error == QJsonParseError::NoError
                       ? QStringLiteral("it is not a JSON object")
                       : QStringLiteral("invalid JSON at byte %1: %2")
                             .arg(error.offset)
                             .arg(error.errorString()));
        return {};
    }
    const QString type = document.object().value(QLatin1String("type")).toString();
    for (const CardKind kind : kinds) {
        if (type == cardKey(kind)) {
            return CardFile{name, kind, document.object()};
        }
    }
    logFailure(path, QStringLiteral("its \"type\" is not a kind of card"));
    return {};
}

/// Member of a file that is wrong on purpose, for pages that must notice; it isn't passed on.
const QLatin1String validKey("valid");

bool isWrongOnPurpose(const CardFile &card)
{
    return card.fields.value(validKey) == QJsonValue(false);
}

/// The first card file of this kind, in the order of their names, that isn't wrong on purpose.
std::optional<CardFile> firstOf(const QString &folder, CardKind kind)
{
    const QStringList names = QDir(folder).entryList({QStringLiteral("*.json")},
                                                     QDir::Files | QDir::Readable, QDir::Name);
    for (const QString &name : names) {
        auto card = parse(folder, name);
        if (card && card->kind == kind && !isWrongOnPurpose(*card)) {
            return card;
        }
    }
    return {};
}

/// 4 to 10 bytes in hexadecimal digits, as readers report the serial number of a chip.
bool isSerial(const QString &text)
{
    const QByteArray bytes = QByteArray::fromHex(text.toLatin1());
    return bytes.size() >= 4 && bytes.size() <= 10 && bytes.toHex() == text.toLatin1().toLower();
}

/// Whether the card has all fields of its kind, and they could be real; logs what is wrong.
bool isSound(const QString &folder, const CardFile &card)
{
    const QString path = QDir(folder).absoluteFilePath(card.name);
    for (const QString &field : requiredFields(card.kind)) {
        if (card.fields.value(field).toString().isEmpty()) {
            logFailure(path, QStringLiteral("\"%1\" is missing or not a text").arg(field));
            return false;
        }
    }
    const QJsonValue serial = card.fields.value(QLatin1String("serial"));
    if (!serial.isUndefined() && !isSerial(serial.toString())) {
        logFailure(path, QStringLiteral("\"serial\" is not 4 to 10 bytes in hexadecimal digits"));
        return false;
    }
    const QString problem = isWrongOnPurpose(card)
        ? QString()
        : cardProblem(card.kind, card.fields, QDate::currentDate());
    return problem.isEmpty() || logFailure(path, problem);
}

/// Replaces the photo's file name with its content as base64, if the card has a photo.
bool loadPhoto(const QString &folder, QJsonObject *fields)
{
    const QLatin1String key("photo");
    const QString name = fields->value(key).toString();
    if (name.isEmpty()) {
        return true;
    }
    const QByteArray photo = contentOf(folder, name);
    if (!photo.isNull() && !isPicture(photo)) {
        return logFailure(QDir(folder).absoluteFilePath(name),
                          QStringLiteral("it is no JPEG, PNG or BMP picture"));
    }
    fields->insert(key, QString::fromLatin1(photo.toBase64()));
    return !photo.isNull();
}

/// The card on the simulated reader; nothing without one, with the reason in the log.
std::optional<CardFile> cardOnReader(const QString &folder, CardKind kind, const CardConfig &config,
                                     CardStatus *status)
{
    const auto none = [&](const QString &reason) {
        logFailure(QStringLiteral("no %1 on the simulated reader").arg(cardName(kind)), reason);
        *status = CardStatus::NoCard;
        return std::optional<CardFile>();
    };
    const auto own = config.files.find(kind);
    const bool isOwn = own != config.files.end();
    const QString name = isOwn ? own->second : config.commonFile;
    if (name == QLatin1String("none")) {
        return none(QStringLiteral("devices.ini sets it to \"none\""));
    }
    if (name.isEmpty()) {
        auto card = firstOf(folder, kind);
        return card ? card : none(QStringLiteral("there is none in ") + folder);
    }
    *status = CardStatus::Unreadable;
    auto card = parse(folder, name);
    if (card && card->kind != kind) {
        return none(name + QStringLiteral(" is another kind of card"));
    }
    return card;
}

/// Reads the sources of cards, separated by |.
void readSources(const QString &text, CardConfig *config)
{
    if (text.isEmpty()) {
        return;
    }
    config->isAuto = config->usesPcsc = config->usesModule = false;
    for (const QString &entry : text.split(QLatin1Char('|'))) {
        const QString source = entry.trimmed();
        if (source == QLatin1String("auto")) {
            config->isAuto = config->usesPcsc = config->usesModule = true;
        } else if (source == QLatin1String("pcsc")) {
            config->usesPcsc = true;
        } else if (source == QLatin1String("serial")) {
            config->usesModule = true;
        } else if (source == QLatin1String("simulated")) {
            config->isSimulatedReader = true;
        } else if (source.startsWith(QLatin1Char('/'))) {
            config->usesModule = true;
            config->modulePort = source;
        } else if (!source.isEmpty() && source != QLatin1String("none")) {
            config->usesPcsc = true;
            config->pcscReader = source;
        }
    }
}

/// The card file that a key names; empty without the key and for "auto".
QString fileName(const IniFile &ini, const QString &key)
{
    const QString text = ini.text(QStringLiteral("cards/") + key);
    return text == QLatin1String("auto") ? QString() : text;
}

} // namespace

bool CardConfig::simulates(CardKind kind) const
{
    return isSimulatedReader
        || (isAuto && (isSimulated || files.count(kind) > 0 || !commonFile.isEmpty()));
}

bool CardConfig::simulatesAny() const
{
    return std::any_of(std::begin(kinds), std::end(kinds),
                       [this](CardKind kind) { return simulates(kind); });
}

CardConfig readCardConfig(const QString &path)
{
    IniFile ini(path);
    CardConfig config;
    readSources(ini.text(QStringLiteral("cards/reader")), &config);
    config.isSimulated = isSimulationEnabled(ini);
    config.commonFile = fileName(ini, QStringLiteral("card"));
    QStringList others = ini.keys(QStringLiteral("cards"));
    others.removeAll(QStringLiteral("reader"));
    others.removeAll(QStringLiteral("card"));
    for (const CardKind kind : kinds) {
        others.removeAll(cardKey(kind));
        const QString name = fileName(ini, cardKey(kind));
        if (!name.isEmpty()) {
            config.files[kind] = name;
        }
    }
    for (const QString &key : qAsConst(others)) {
        ini.logProblem(QStringLiteral("unknown key cards/") + key);
    }
    return config;
}

CardResult readSimulatedCard(const QString &folder, CardKind kind, const CardConfig &config)
{
    CardResult result;
    auto card = cardOnReader(folder, kind, config, &result.status);
    if (!card) {
        return result;
    }
    result.status = CardStatus::Unreadable;
    if (isSound(folder, *card) && loadPhoto(folder, &card->fields)) {
        card->fields.remove(validKey);
        card->fields.insert(QStringLiteral("simulated"), true);
        result = {CardStatus::Read, card->fields};
    }
    return result;
}

} // namespace portable
