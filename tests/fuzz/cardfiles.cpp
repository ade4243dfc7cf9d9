// SPDX-License-Identifier: MIT
//
// Simulated cards: devices.ini, the JSON file of a card, and its photo.
#include "portable/card/cardfiles.h"

#include "portable/card/cardresult.h"
#include "tests/fuzz/fuzztarget.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

using namespace portable;

namespace {

constexpr CardKind kinds[] = {CardKind::Identity, CardKind::SocialSecurity, CardKind::Bank,
                              CardKind::Ic};

void write(const QString &name, const QByteArray &bytes)
{
    QFile file(QDir(fuzz::folder()).filePath(name));
    fuzz::require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(),
                  "the fuzz target writes its files");
}

void checkTexts(const CardResult &result)
{
    fuzz::require(QJsonDocument::fromJson(cardText(result)).isObject(), "a card's text is JSON");
    const QByteArray ascii = asciiCardText(result);
    fuzz::require(QJsonDocument::fromJson(ascii).isObject(), "a card's ASCII text is JSON");
    fuzz::require(std::all_of(ascii.begin(), ascii.end(), [](char c) { return uchar(c) < 0x80; }),
                  "a card's ASCII text is ASCII");
    const QByteArray quoted = "{\"a\":\"" + quotedCardText(result).toUtf8() + "\"}";
    fuzz::require(QJsonDocument::fromJson(quoted).isObject(), "a card's text fits between quotes");
}

} // namespace

void fuzz::prepare()
{
    QDir(folder()).mkdir(QStringLiteral("cards"));
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    write(QStringLiteral("devices.ini"), fields.part());
    write(QStringLiteral("cards/card.json"), fields.part());
    write(QStringLiteral("cards/photo.jpg"), fields.rest());
    const QDir folder(fuzz::folder());
    const CardConfig config = readCardConfig(folder.filePath(QStringLiteral("devices.ini")));
    for (const CardKind kind : kinds) {
        checkTexts(readSimulatedCard(folder.filePath(QStringLiteral("cards")), kind, config));
    }
}

QList<QByteArray> fuzz::seeds()
{
    const QByteArray ini = "[cards]\nreader=simulated\ncard=card.json\nbankcard=none\n"
                           "[cameras]\n1=\"a, b\"\n2=@Variant(\\0\\0\\0\\x2)\n";
    const QByteArray identity = R"({"type":"idcard","name":"\u674e\u660e","sex":"男",)"
                                R"("nation":"汉","birthDate":"1995-12-31","address":"a\"b\\c",)"
                                R"("number":"000000199512310016","authority":"b","serial":)"
                                R"("04A1B2C3","validFrom":"2020-01-01","validTo":"2030-01-01",)"
                                R"("photo":"photo.jpg"})";
    return {
        field(ini) + field(identity) + "photo",
        field("") + field(R"({"type":"bankcard","number":"0000001234567897","expiry":"2030-12"})"),
        field("") + field(R"({"type":"iccard","serial":"04A1B2C3D4E580"})"),
        field("")
            + field(R"({"type":"socialcard","name":"a","sex":"b","number":"c",)"
                    R"("cardNumber":"d"})"),
    };
}
