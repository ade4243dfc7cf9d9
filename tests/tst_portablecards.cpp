// SPDX-License-Identifier: MIT
// The portable card library: simulated cards, scripted real ones, and its exported functions.
#include "devicelib/cardreader.h"
#include "portable/card/cardreaders.h"
#include "portable/card/emv.h"
#include "portable/card/socialcard.h"
#include "portable/card/tlv.h"
#include "tests/moduleonpty.h"
#include "tests/portabletest.h"
#include "tests/scriptedcard.h"

#include <QtTest>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

using namespace portable;

namespace {

QJsonObject parsed(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

/// A card that follows a script, and counts the commands.
class ScriptedCard : public CardConnection
{
public:
    explicit ScriptedCard(CardScript script)
        : m_script(std::move(script))
    {
    }

    QByteArray transmit(const QByteArray &command, QString *) override
    {
        ++commands;
        return m_script.responseTo(command);
    }

    int commands = 0;

private:
    const CardScript m_script;
};

/// The same with T=0: a command with data returns the length of the response, a second one gets it.
class T0Card : public ScriptedCard
{
public:
    using ScriptedCard::ScriptedCard;

    bool isT0() const override { return true; }

    QByteArray transmit(const QByteArray &command, QString *error) override
    {
        if (command == QByteArray::fromHex("00C00000").append(char(m_kept.size() - 2))) {
            return m_kept;
        }
        if (command.size() == 5) {
            return ScriptedCard::transmit(command, error);
        }
        m_kept = ScriptedCard::transmit(command + '\0', error);
        return m_kept.size() == 2 ? m_kept
                                  : QByteArray::fromHex("61").append(char(m_kept.size() - 2));
    }

private:
    QByteArray m_kept;
};

/// A card with one response to everything.
class StubbornCard : public CardConnection
{
public:
    explicit StubbornCard(const QByteArray &answer)
        : m_answer(QByteArray::fromHex(answer))
    {
    }

    QByteArray transmit(const QByteArray &, QString *error) override
    {
        ++commands;
        *error = m_answer.isEmpty() ? line("it was pulled out") : QString();
        return m_answer;
    }

    int commands = 0;

private:
    const QByteArray m_answer;
};

/// A machine with the readers and cards that a test wants.
class FakeCards : public SmartCards
{
public:
    bool hasReader(const QString &, QString *reason) override
    {
        *reason = presence == CardPresence::NoReader ? line("no reader here") : QString();
        return reason->isEmpty();
    }

    CardPresence visit(const QString &, bool, const Read &read, QString *reason) override
    {
        if (isInUse.exchange(true)) {
            qFatal("two reads at once");
        }
        while (hangs) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (presence != CardPresence::Card) {
            *reason = line("no card here");
        }
        for (const CardScript &script : cards) {
            ScriptedCard card(script);
            if (read(card)) {
                break;
            }
        }
        isInUse = false;
        return presence;
    }

    void insert(std::vector<CardScript> inserted)
    {
        cards = std::move(inserted);
        presence = CardPresence::Card;
    }

    std::vector<CardScript> cards;
    CardPresence presence = CardPresence::NoReader;
    std::atomic<bool> hangs{false};
    std::atomic<bool> isInUse{false};
};

const auto farOff = CardChannel::Clock::now() + std::chrono::hours(1);

/// Fields of a bank or social security card, "key=value" by key; or the reason after "!".
QString readBy(CardConnection &connection, bool contactlessFirst = false)
{
    QString error;
    CardChannel channel(connection, farOff);
    QJsonObject fields = readBankCard(channel, contactlessFirst, &error);
    if (fields.isEmpty() && error == line("it has no payment application")) {
        fields = readSocialCard(channel, &error);
    }
    QStringList texts;
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        texts << field.key() + QLatin1Char('=') + field.value().toString();
    }
    return fields.isEmpty() ? QLatin1Char('!') + error : texts.join(QLatin1Char(' '));
}

const QByteArray idCard = "{\"type\":\"idcard\",\"name\":\"甲\",\"sex\":\"男\",\"nation\":\"汉\","
                          "\"birthDate\":\"1990-01-01\",\"address\":\"某地\",\"number\":"
                          "\"000000199001010018\",\"tag\":\"a\","
                          "\"authority\":\"某局\",\"validFrom\":\"2020-01-01\","
                          "\"validTo\":\"长期\",\"photo\":\"face.jpg\"}";
const QByteArray bankCard = "{\"type\":\"bankcard\",\"number\":\"0018\",\"expiry\":\"2035-01\"}";

} // namespace

Q_DECLARE_METATYPE(CardKind)
Q_DECLARE_METATYPE(CardPresence)
Q_DECLARE_METATYPE(CardScript)

class TestPortableCards : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        QVERIFY(QDir(m_folder->path()).mkdir(line("cards")));
        useReaders(std::chrono::seconds(30));
    }

    void cleanup()
    {
        m_readers.reset();
        PortableTest::cleanup();
    }

    void cardOnTheReader_data()
    {
        // expected: the card's number, or the status after "!"
        const Rows<QByteArray, CardKind, QString> row("ini", "kind", "expected");
        constexpr CardKind id = CardKind::Identity;
        constexpr CardKind bank = CardKind::Bank;
        constexpr CardKind ic = CardKind::Ic;
        // clang-format off
        //   what                              [cards]                             kind  number
        row("the first of its kind",           "",                                 id,   "b");
        row("another kind",                    "",                                 bank, "0018");
        row("none of its kind",                "",                                 ic,   "!2");
        row("named",                           "idcard=c.json",                    id,   "c");
        row("auto",                            "idcard=auto\ncard=auto",           id,   "b");
        row("named for another kind",          "bankcard=none",                    id,   "b");
        row("taken away",                      "idcard=none",                      id,   "!2");
        row("common card",                     "card=c.json",                      id,   "c");
        row("common card of another kind",     "card=c.json",                      bank, "!2");
        row("common card taken away",          "card=none",                        bank, "!2");
        row("a kind's own key wins",           "card=none\nbankcard=d.json",       bank, "0018");
        row("named, of another kind",          "idcard=d.json",                    id,   "!2");
        row("no such file",                    "idcard=absent.json",               id,   "!3");
        row("broken, and named",               "idcard=a.json",                    id,   "!3");
        row("outside of the folder",           "idcard=../outside.json",           id,   "!3");
        row("outside by an absolute path",     "idcard=/etc/passwd",               id,   "!3");
        row("outside by a link",               "idcard=link.json",                 id,   "!3");
        row("the folder itself",               "idcard=.",                         id,   "!3");
        row("Chinese name with a comma",       "bankcard=\"卡, 乙.json\"",         bank, "0026");
        row("no reader",                       "reader=none",                      id,   "!1");
        row("an ID card on PC/SC",             "reader=pcsc",                      id,   "!1");
        row("a PC/SC reader by its name",      "reader=smart",                     id,   "!1");
        row("PC/SC and the files",             "reader=pcsc|simulated",            id,   "b");
        // clang-format on
    }

    void cardOnTheReader()
    {
        QFETCH(QByteArray, ini);
        QFETCH(CardKind, kind);
        writeCard("a.json", "{");
        writeCard("b.json", QByteArray(idCard).replace("\"a\"", "\"b\""));
        writeCard("c.json", QByteArray(idCard).replace("\"a\"", "\"c\""));
        writeCard("d.json", bankCard);
        writeCard("卡, 乙.json", QByteArray(bankCard).replace("0018", "0026"));
        writeCard("face.jpg", "\xFF\xD8\xFF");
        writeFile(path("outside.json"), idCard);
        QFile::link(path("outside.json"), cardPath("link.json"));
        writeIni(ini);
        const CardResult result = m_readers->read(kind);
        const QString key = line(kind == CardKind::Bank ? "number" : "tag");
        QTEST(result.isRead() ? result.fields.value(key).toString()
                              : QStringLiteral("!%1").arg(int(result.status)),
              "expected");
        QCOMPARE(result.fields.value(line("simulated")).toBool(), result.isRead());
        QVERIFY(result.isRead() || !PortableLog::lines().isEmpty());
    }

    void badCardFiles_data()
    {
        // said: part of the line
        const Rows<QByteArray, QString> row("content", "said");
        const auto with = [](const char *before, const char *after) {
            return QByteArray(idCard).replace(before, after);
        };
        const auto serial = [&](const char *digits) {
            return with("{", QByteArray("{\"serial\":\"").append(digits).append("\",").constData());
        };
        // clang-format off
        row("empty",                    "",                                     "it is empty");
        row("broken",                   idCard.left(100),                       "invalid JSON at byte");
        row("no object",                "[1]",                                  "it is not a JSON object");
        row("nested without end",       QByteArray(100000, '['),                "invalid JSON at byte");
        row("no kind",                  with("idcard", "passport"),             "\"type\" is not a kind");
        row("field missing",            with("address", "street"),              "\"address\" is missing");
        row("field is no text",         with("\"000000199001010018\"", "1"),    "\"number\" is missing");
        row("check digit",              with("010018", "010019"),               "check digit");
        row("letter in the number",     with("0000001990", "00000O1990"),       "check digit");
        row("number too short",         with("0000001990", "000001990"),        "check digit");
        row("no such day",              with("1990-01-01", "1990-02-30"),       "\"birthDate\" is no date");
        row("other day of birth",       with("1990-01-01", "1990-01-02"),       "isn't the one in \"number\"");
        row("not valid yet",            with("2020-01-01", "2999-01-01"),       "is to come");
        row("expired",                  with("长期", "2020-06-30"),             "it has expired");
        row("ends before it begins",    with("长期", "2019-12-31"),             "it has expired");
        row("a photo that is none",     with("face.jpg", "bad.json"),           "bad.json: it is no JPEG");
        row("photo not there",          with("face.jpg", "absent.jpg"),         "absent.jpg: there is no such file");
        row("photo is empty",           with("face.jpg", "empty.jpg"),          "empty.jpg: it is empty");
        row("photo outside",            with("face.jpg", "../devices.ini"),     "it is not a file in the card folder");
        row("serial is no number",      serial("12x45678"),                     "\"serial\" is not");
        row("serial of 3 bytes",        serial("123456"),                       "\"serial\" is not");
        row("serial of 11 bytes",       serial("1234567890123456789012"),       "\"serial\" is not");
        row("too large",                QByteArray(2 << 20, ' '),               "it is larger than");
        // clang-format on
    }

    void badCardFiles()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, said);
        writeIni("reader=simulated\nidcard=bad.json");
        writeCard("bad.json", content);
        writeCard("face.jpg", "\xFF\xD8\xFF");
        writeCard("empty.jpg", "");
        const CardResult result = m_readers->read(CardKind::Identity);
        QCOMPARE(result.status, CardStatus::Unreadable);
        QCOMPARE(result.fields, QJsonObject());
        const QString log = PortableLog::lines().join(QLatin1Char('\n'));
        QCOMPARE(PortableLog::lines().size(), 1);
        QVERIFY2(log.contains(said) && log.contains(line("/cards/")), qPrintable(log));
        QVERIFY2(!log.contains(line("某地")), qPrintable(log));
    }

    void cardIsSwappedWithoutARestart()
    {
        const auto number = [this] {
            return m_readers->read(CardKind::Bank).fields.value(line("number")).toString();
        };
        QCOMPARE(number(), QString());
        writeCard("b.json", bankCard);
        QCOMPARE(number(), line("0018"));
        writeCard("a.json", QByteArray(bankCard).replace("0018", "0026"));
        QCOMPARE(number(), line("0026"));
        writeIni("bankcard=b.json");
        QCOMPARE(number(), line("0018"));
        writeIni("bankcard=none");
        QCOMPARE(number(), QString());
    }

    void textsOfAResult()
    {
        const CardResult read{CardStatus::Read,
                              {{line("name"), line("中\"\\𠮷é")}, {line("code"), line("forged")}}};
        QJsonObject expected{{line("name"), line("中\"\\𠮷é")},
                             {line("code"), line("0")},
                             {line("result"), 1},
                             {line("message"), QString()}};
        QCOMPARE(parsed(cardText(read)), expected);
        const QByteArray ascii = asciiCardText(read);
        QVERIFY(std::all_of(ascii.begin(), ascii.end(), [](char c) { return c > 0; }));
        QCOMPARE(parsed(ascii), expected);
        const QString framed = QStringLiteral("{\"text\":\"%1\"}").arg(quotedCardText(read));
        const QString inner = parsed(framed.toUtf8()).value(line("text")).toString();
        QCOMPARE(parsed(inner.toUtf8()), expected);

        const QJsonObject failure = parsed(cardText({CardStatus::NoCard, {}}));
        QCOMPARE(failure.value(line("code")), QJsonValue(line("2")));
        QCOMPARE(failure.value(line("result")), QJsonValue(0));
    }

    void tlvObjects_data()
    {
        // expected: values of tag 5A, separated by blanks
        const Rows<QByteArray, QByteArray> row("bytes", "expected");
        // clang-format off
        row("nothing",                        "",                                   "");
        row("one",                            "5A0112",                             "12");
        row("inside of constructed ones",     "6F077005A5035A01125A0134",           "12 34");
        row("padding around it",              "00005A01120000",                     "12");
        row("not inside of a primitive one",  "57035A0112",                         "");
        row("a tag of three bytes",           "9F810101FF5A0112",                   "12");
        row("length of two bytes",            "5A810112",                           "12");
        row("length of four bytes",           "5A8300000112",                       "12");
        row("ends in the tag",                "5A01129F",                           "");
        row("endless tag",                    "5A01129FFFFFFFFFFFFF0100",           "");
        row("ends before the length",         "5A01125A",                           "");
        row("ends in the length",             "5A01125A82FF",                       "");
        row("value beyond the end",           "5A01125A0212",                       "");
        row("huge length",                    "5A84FFFFFFFF12",                     "");
        row("largest length",                 "5A83FFFFFF12",                       "");
        row("indefinite length",              "5A8012340000",                       "");
        row("only the malformed one is lost", "70045A0512345A0199",                 "99");
        row("nested too deep",                "7010700E700C700A70087006700470025A00", "");
        // clang-format on
    }

    void tlvObjects()
    {
        QFETCH(QByteArray, bytes);
        QByteArrayList values;
        for (const QByteArray &value : findAllTlv(QByteArray::fromHex(bytes), 0x5A)) {
            values << value.toHex();
        }
        QTEST(values.join(' '), "expected");
    }

    /// Under the address sanitizer: nothing is read past the end, whatever a card says.
    void tlvOfAnyBytes()
    {
        std::mt19937 random(1);
        for (int round = 0; round < 20000; ++round) {
            QByteArray bytes(int(random() % 40), '\0');
            for (char &byte : bytes) {
                const char likely[] = {'\x70', '\x5A', '\x81', '\x02', '\x00', '\x1F'};
                byte = round % 2 ? char(random()) : likely[random() % sizeof likely];
            }
            std::vector<DolEntry> entries;
            parseDol(bytes, &entries);
            for (const QByteArray &value : findAllTlv(bytes, 0x5A)) {
                QVERIFY(value.size() < bytes.size());
            }
        }
    }

    void realCards_data()
    {
        const Rows<CardScript, QString> row("script", "expected");
        const CardScript contact = contactBankCard();
        const CardScript contactless = contactlessBankCard();
        const CardScript social = socialSecurityCard();
        const QByteArray start = "80A8000002830000";
        const QByteArray select = selectCommand(debit);
        const CardScript started = contact.with(select, "9000"); // its PDOL is empty
        const auto record = [&](const QByteArray &data) {
            return contact.with(recordCommand(1, 3), tlv("70", data) + "9000");
        };
        const auto numbered = [&](const QByteArray &digits) { return record(tlv("5A", digits)); };
        const auto expiring = [&](const QByteArray &month) {
            return record(tlv("5A", "00000012345678") + "5F2403" + month + "31");
        };
        const auto wanting = [&](const QByteArray &list) {
            return contact.with(select, tlv("6F", tlv("A5", tlv("9F38", list))) + "9000");
        };
        // The debit application with this priority, behind the credit application with its own.
        const auto ranked = [&](const QByteArray &creditPriority, const QByteArray &debitPriority) {
            return contact
                .with(recordCommand(1, 1),
                      tlv("70",
                          tlv("61", tlv("4F", credit) + creditPriority)
                              + tlv("61", tlv("4F", debit) + debitPriority))
                          + "9000")
                .with(selectCommand(credit), "9000")
                .with(start, tlv("77", tlv("57", "0000009999999999D3001F")) + "9000");
        };
        // The debit application behind that many others, which aren't on the card.
        const auto behind = [&](int others) {
            QByteArray entries;
            for (int i = 0; i < others; ++i) {
                entries += tlv("61", tlv("4F", "A0000000990000" + hexByte(i)));
            }
            return contact.with(recordCommand(1, 1),
                                tlv("70", entries + tlv("61", tlv("4F", debit))) + "9000");
        };
        const auto holder = [&](int number, const QByteArray &response) {
            return social.with(socialRecordCommand(number), response);
        };
        const QString bankFields = line("expiry=2031-07 number=0000001234567897");
        const QString creditFields = line("expiry=2030-01 number=0000009999999999");
        const QString numberOnly = line("number=00000012345678");
        const QString noNumber = line("!none of its records has a card number");
        const QString badPdol = line("!its list of transaction data (PDOL) is malformed");
        const QString socialFields =
            line("birthDate=1995-12-31 cardNumber=X12345678 name=李明 nation=蒙古 "
                 "number=000000199512310016 sex=男 validFrom=2021-03-04 validTo=2031-03-04");
        const auto changed = [&](const char *before, const char *after) {
            return QString(socialFields).replace(line(before), line(after));
        };
        // clang-format off
        row("contact, by its directory",      contact,                                            bankFields);
        row("contactless, by track 2",        contactlessBankCard(),                              "expiry=2029-02 number=0000001234567890123");
        row("without a directory",            contact.with(selectCommand(contactDirectory), "6A82"), bankFields);
        row("priority 1 before 2",            ranked("870102", "870101"),                         bankFields);
        row("the higher one comes first",     ranked("870101", "870102"),                         creditFields);
        row("priority 0 comes last",          ranked("870100", "87010F"),                         bankFields);
        row("no priority comes last",         ranked("", "870102"),                               bankFields);
        row("confirmation is no priority",    ranked("870182", "870181"),                         bankFields);
        row("equals keep their order",        ranked("", ""),                                     creditFields);
        row("the twelfth application",        behind(11),                                         bankFields);
        row("a thirteenth isn't tried",       behind(12),                                         "!it has no social security application (6A82)");
        row("correct length from the card",   numbered("").with(recordCommand(1, 3), "6C0F").with(recordCommand(1, 3).left(8) + "0F", tlv("70", tlv("5A", "0000001234567897") + "5F2403310731") + "9000"), bankFields);
        row("in two parts",                   contact.with(recordCommand(1, 3), "70105A08610E").with("00C000000E", "00000012345678975F24033107319000"), bankFields);
        row("no expiry",                      numbered("00000012345678"),                         numberOnly);
        row("month 12",                       expiring("3112"),                                   line("expiry=2031-12 ") + numberOnly);
        row("month 13",                       expiring("3113"),                                   numberOnly);
        row("month 0",                        expiring("3100"),                                   numberOnly);
        row("year is no number",              expiring("3A12"),                                   numberOnly);
        row("12 digits",                      numbered("123456789012"),                           "number=123456789012");
        row("11 digits",                      numbered("12345678901F"),                           noNumber);
        row("19 digits",                      numbered("1234567890123456789F"),                   "number=1234567890123456789");
        row("20 digits",                      numbered("12345678901234567890"),                   noNumber);
        row("no digits",                      numbered("00000A1234567897"),                       noNumber);
        row("records refused",                contact.with(recordCommand(1, 3), "6982"),          noNumber);
        row("start refused",                  contactlessBankCard().with(start, "6985"),          "!its payment application doesn't start (6985)");
        row("locator is cut off",             started.with(start, "80057C00180101" "9000"),       noNumber);
        row("locator of files 0 and 31",      started.with(start, "800A7C000001FF00F801FF009000"), noNumber);
        row("PDOL is longer than a command",  wanting("9F0281FF"),                                badPdol);
        row("PDOL of 128 bytes",              wanting("9F028180").with("80A8000083838180" + QByteArray(256, '0') + "00", "6985"), "!its payment application doesn't start (6985)");
        row("PDOL is cut off",                wanting("9F029F"),                                  badPdol);
        row("social security",                social,                                             socialFields);
        row("a woman",                        holder(0x0A, "0A01329000"),                         changed("男", "女"));
        row("neither man nor woman",          holder(0x0A, "0A01399000"),                         changed(" sex=男", ""));
        row("first nationality",              holder(0x0B, "0B01019000"),                         changed("蒙古", "汉"));
        row("last nationality",               holder(0x0B, "0B01569000"),                         changed("蒙古", "基诺"));
        row("nationality beyond the last",    holder(0x0B, "0B01579000"),                         changed(" nation=蒙古", ""));
        row("February 30th",                  holder(0x0D, "0D04199502309000"),                   changed("birthDate=1995-12-31 ", ""));
        row("holder's file refused",          social.with("00A4000002EF0600", "6982"),            "!it doesn't give its basic data without a key (6982)");
        row("number's length is wrong",       holder(0x08, "08123132339000"),                     "!its holder's number is missing");
        row("another record",                 holder(0x08, "070130" "9000"),                      "!its holder's number is missing");
        row("neither",                        {},                                                 "!it has no social security application (6A82)");
        // clang-format on
    }

    void realCards()
    {
        QFETCH(CardScript, script);
        ScriptedCard card(script);
        QTEST(readBy(card), "expected");
        QVERIFY(card.commands < 40);
        T0Card another(script);
        QTEST(readBy(another), "expected");
    }

    /// Whatever one answer a card repeats, a read of it ends.
    void hostileCards_data()
    {
        const Rows<QByteArray, int> row("answer", "maxCommands");
        // clang-format off
        row("more and more",         "00006100",                         16);
        row("another length",        "6C01",                             40);
        row("pulled out",            "",                                 1);
        row("half a status",         "90",                               1);
        row("directory of itself",   tlv("6F", tlv("61", tlv("4F", debit)) + "88010194044001FF00") + "9000", 1000);
        row("every record is there", QByteArray("6F0E8801019404F801FF00940408") + "01FF00" + "9000", 1000);
        // clang-format on
    }

    void hostileCards()
    {
        QFETCH(QByteArray, answer);
        QFETCH(int, maxCommands);
        StubbornCard card(answer);
        const QString result = readBy(card);
        QVERIFY2(result.startsWith(QLatin1Char('!')), qPrintable(result));
        QVERIFY2(card.commands <= maxCommands, qPrintable(QString::number(card.commands)));
    }

    void slowCard()
    {
        StubbornCard card("6A82");
        CardChannel late(card, CardChannel::Clock::now() - std::chrono::seconds(1));
        QString error;
        QVERIFY(readBankCard(late, false, &error).isEmpty());
        QCOMPARE(error, line("it takes too long"));
        QCOMPARE(card.commands, 0);
    }

    void realOrSimulated_data()
    {
        // expected: number, or the status after "!"
        const Rows<QByteArray, CardPresence, bool, QString> row("ini", "presence", "isBankCard",
                                                                "expected");
        constexpr auto noReader = CardPresence::NoReader;
        constexpr auto noCard = CardPresence::NoCard;
        constexpr auto present = CardPresence::Card;
        const QByteArray simulation = "[simulation]\nenabled=true";
        // clang-format off
        //   what                          [cards]             reader    bank   number
        row("a real card wins",            "",                 present,  true,  "0000001234567897");
        row("also over another",           "",                 present,  false, "!3");
        row("no card",                     "",                 noCard,   true,  "!2");
        row("no reader",                   "reader=auto",      noReader, true,  "!1");
        row("no card, in simulation",      simulation,         noCard,   true,  "!2");
        row("no reader, in simulation",    simulation,         noReader, true,  "0018");
        row("no reader, but a named card", "bankcard=bank.json", noReader, true, "0018");
        row("no reader, for any kind",     "card=bank.json",   noReader, true,  "0018");
        row("named for another kind",      "iccard=bank.json", noReader, true,  "!1");
        row("no card, but a named one",    "bankcard=bank.json", noCard, true,  "!2");
        row("real ones only",              "reader=pcsc",      present,  true,  "0000001234567897");
        row("real ones only: no card",     "reader=pcsc",      noCard,   true,  "!2");
        row("real ones only: no reader",   "reader=pcsc",      noReader, true,  "!1");
        row("simulated ones only",         "reader=simulated", present,  true,  "0018");
        row("no reader at all",            "reader=none",      present,  true,  "!1");
        // clang-format on
    }

    void realOrSimulated()
    {
        QFETCH(QByteArray, ini);
        QFETCH(CardPresence, presence);
        QFETCH(bool, isBankCard);
        qunsetenv("DEVICE_SIMULATION");
        writeIni(ini);
        writeCard("bank.json", bankCard);
        if (presence == CardPresence::Card) {
            // The first one isn't the right one: the next is tried.
            m_real->insert({socialSecurityCard(), isBankCard ? contactBankCard() : CardScript()});
        }
        m_real->presence = presence;
        const CardResult result = m_readers->read(CardKind::Bank);
        QTEST(result.isRead() ? result.fields.value(line("number")).toString()
                              : QStringLiteral("!%1").arg(int(result.status)),
              "expected");
        const int lines = PortableLog::takeLines().size();
        QVERIFY(result.isRead() || lines == 1);
        if (result.isRead()) { // that the card is simulated is said once
            m_readers->read(CardKind::Bank);
            QCOMPARE(PortableLog::lines(), QStringList());
        }
    }

    void serialNumbers()
    {
        writeCard("ic.json", "{\"type\":\"iccard\",\"serial\":\"0a0b0C0d\"}");
        QCOMPARE(m_readers->readSerial(CardKind::Ic).toHex(), QByteArray("0a0b0c0d"));
        QCOMPARE(m_readers->readSerial(CardKind::Identity), QByteArray());
        m_real->insert({contactBankCard()});
        QCOMPARE(m_readers->readSerial(CardKind::Ic).toHex(), QByteArray("04a1b2c3d4e580"));
        QCOMPARE(m_readers->readSerial(CardKind::Identity).toHex(), QByteArray("04a1b2c3d4e580"));
        for (const char *answer : {"6A81", "9000", "0102039000", "01020304050607080910119000"}) {
            m_real->insert({CardScript().with("FFCA000000", answer)});
            QCOMPARE(m_readers->readSerial(CardKind::Ic), QByteArray());
        }
    }

    void hangingReaderEndsTheWaitOnly()
    {
        useReaders(std::chrono::milliseconds(60));
        m_real->insert({contactBankCard()});
        m_real->hangs = true;
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(m_readers->read(CardKind::Bank).status, CardStatus::Unreadable);
            QCOMPARE(PortableLog::takeLines(),
                     QStringList{line("no bank card was read: the reader doesn't respond")});
        }
        m_real->hangs = false;
        QTRY_VERIFY(m_readers->read(CardKind::Bank).isRead());

        // A read that hangs for ever outlives its owner.
        m_real->hangs = true;
        m_readers->read(CardKind::Bank);
        FakeCards *const forgotten = m_real;
        m_readers.reset();
        forgotten->hangs = false;
    }

    void manyThreadsRead()
    {
        writeCard("id.json", idCard);
        writeCard("face.jpg", "\xFF\xD8\xFF");
        m_real->insert({contactBankCard()});
        std::atomic<int> read{0};
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < 10; ++round) {
                    read += m_readers->read(CardKind::Identity).isRead() ? 1 : 0;
                    read += m_readers->read(CardKind::Bank).isRead() ? 1 : 0;
                    m_readers->openUsb();
                    m_readers->hasModule();
                    m_readers->close();
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        QCOMPARE(read.load(), 80);
    }

    void stateOfTheReader()
    {
        QVERIFY(m_readers->isConnected());
        QVERIFY(!m_readers->hasModule());
        QVERIFY(m_readers->openUsb() && m_readers->hasModule());
        m_readers->close();
        QVERIFY(!m_readers->hasModule());
        QVERIFY(!m_readers->moduleNumber().isEmpty());

        writeIni("reader=pcsc");
        QVERIFY(!m_readers->openUsb() && !m_readers->isConnected());
        m_real->presence = CardPresence::NoCard;
        QVERIFY(m_readers->openUsb() && m_readers->isConnected());
        QVERIFY(!m_readers->hasModule() && m_readers->moduleNumber().isNull());
        writeIni("reader=none");
        QVERIFY(!m_readers->openUsb() && !m_readers->isConnected());

        qunsetenv("DEVICE_SIMULATION");
        writeIni("");
        QVERIFY(m_readers->openUsb() && m_readers->isConnected() && !m_readers->hasModule());
        m_real->presence = CardPresence::NoReader;
        QVERIFY(!m_readers->openUsb() && !m_readers->isConnected());
        writeIni("idcard=a.json");
        QVERIFY(m_readers->openUsb() && m_readers->isConnected() && m_readers->hasModule());
    }

    void serialDevices()
    {
        for (const char *port : {"", "ttyS0", "/dev/absent", "/dev/null", "/dev", "/etc/passwd",
                                 "/dev/../etc/passwd", "/dev/tty", "/dev/a\nforged line"}) {
            QVERIFY(!m_readers->openSerial(line(port)));
            QCOMPARE(PortableLog::lines().size(), 1);
            QVERIFY(!PortableLog::takeLines().first().contains(QLatin1Char('\n')));
        }
        QVERIFY(!m_readers->hasModule()); // a failed opening leaves none open
    }

    void cardModule()
    {
        ModuleOnPty silent([](int, const QByteArray &) { return QByteArray(); });
        ModuleOnPty module;
        if (!module.isOpen()) {
            QSKIP("there are no pseudo terminals here (/dev/pts is not mounted)");
        }
        const QString port = module.port();
        const QByteArray number = "05.03-20200101-0000000007-4000000000";
        const auto read = [this] {
            const CardResult result = m_readers->read(CardKind::Identity);
            return result.isRead() ? result.fields.value(line("name")).toString()
                                   : QStringLiteral("!%1").arg(int(result.status));
        };
        // In simulation a terminal without a module is one of the simulated reader.
        QVERIFY(m_readers->openSerial(silent.port()) && m_readers->hasModule());
        QVERIFY(m_readers->moduleNumber().startsWith("00.00-"));
        // One that a page opens is used until it closes it, and its lack of a card isn't made up
        // for.
        QVERIFY(m_readers->openSerial(port) && m_readers->hasModule());
        QCOMPARE(read(), line("张三"));
        QCOMPARE(m_readers->moduleNumber(), number);
        module.setScript([](int command, const QByteArray &usual) {
            return command == 0x2001 ? moduleFrame("000080") : usual;
        });
        QCOMPARE(read(), line("!2"));
        m_readers->close();
        QVERIFY(!m_readers->hasModule());
        module.setScript({});

        qunsetenv("DEVICE_SIMULATION");
        QVERIFY(!m_readers->openSerial(silent.port()) && !m_readers->hasModule());
        QCOMPARE(read(), line("!1"));
        writeIni("reader=pcsc");
        QVERIFY(!m_readers->openSerial(port));
        writeIni("reader=pcsc|" + port.toUtf8());
        QVERIFY(m_readers->openUsb() && m_readers->hasModule() && !m_readers->isConnected());
        QCOMPARE(read(), line("张三"));
        writeIni("");
        QCOMPARE(read(), line("!1"));
        m_ports << silent.port() << port;
        QCOMPARE(read(), line("张三"));
        const CardResult bank = m_readers->read(CardKind::Bank);
        QCOMPARE(bank.status, CardStatus::NoReader);
    }

    void exportedFunctions()
    {
        const QDir samples(line(SOURCE_DIR "/portable/samples/cards"));
        const QString folder = besideProgram("cards");
        QDir(folder).removeRecursively();
        QVERIFY(QDir().mkpath(folder));
        for (const QString &name : samples.entryList(QDir::Files)) {
            QVERIFY(QFile::copy(samples.filePath(name), folder + QLatin1Char('/') + name));
        }
        useIni("[cards]\nreader=simulated\nidcard=zhangsan.json\n");

        const QByteArray ascii = taken(sIDCardReader()).toUtf8();
        const QJsonObject id = parsed(ascii);
        QCOMPARE(id.value(line("name")), QJsonValue(line("张三")));
        QCOMPARE(id.value(line("code")), QJsonValue(line("0")));
        QCOMPARE(id.value(line("result")), QJsonValue(1));
        QCOMPARE(QByteArray::fromBase64(id.value(line("photo")).toString().toLatin1()),
                 contentOf(samples.filePath(line("zhangsan.jpg"))));
        QVERIFY(std::all_of(ascii.begin(), ascii.end(), [](char c) { return c > 0; }));
        for (const auto read :
             {ReadSFZCardVX, readIDMsg_qt, readIDMsgVX_qt, ReadSFZCardBas_VX, ReadSFZCardBas_DK}) {
            QString text = line("before");
            read(&text);
            QCOMPARE(parsed(text.toUtf8()), id);
        }
        for (const char *port : {"", "x"}) {
            QCOMPARE(parsed(taken(ReadCard(nullptr, port)).toUtf8()), id);
        }
        QCOMPARE(taken(sReadIDCardSnr()), line("0000000000000001"));

        QString text;
        iReadCardBas_noPasam_qt(1, &text);
        const QJsonObject social = parsed(text.toUtf8());
        QCOMPARE(social.value(line("cardNumber")), QJsonValue(line("S00000001")));
        ReadCardBasExVX(&text, -1);
        QCOMPARE(parsed(text.toUtf8()), social);
        QVERIFY(GetDeviceStatus_dc() && ReadSBKCardBas_DK(7, &text));
        const QByteArray framed = "{\"lRet\":0,\"outInfo\":\"" + text.toUtf8() + "\"}";
        QCOMPARE(parsed(parsed(framed).value(line("outInfo")).toString().toUtf8()), social);

        QVERIFY(GetBankCardInfoVX(&text, 2));
        QCOMPARE(parsed(text.toUtf8()).value(line("expiry")), QJsonValue(line("2035-12")));
        QCOMPARE(iReadICCardSnr(), 0x42);
        QVERIFY(bOpenIDCardUSBPort("USB1") && bgetSAMStatus() && bCloseIDCardDevie());
        QVERIFY(!bgetSAMStatus() && bCloseIDCardDevie());
        QVERIFY(taken(GetSAMID()).startsWith(line("00.00-")));
        QVERIFY(!openIDCardSerialPort("/dev/absent"));

        useIni("[cards]\nreader=none\n");
        QCOMPARE(parsed(taken(sIDCardReader()).toUtf8()).value(line("code")),
                 QJsonValue(line("1")));
        QVERIFY(!GetBankCardInfoVX(&text, 2) && !ReadSBKCardBas_DK(1, &text));
        QCOMPARE(iReadICCardSnr(), 0);
        QCOMPARE(sReadIDCardSnr(), nullptr);
        QCOMPARE(GetSAMID(), nullptr);
        QVERIFY(!GetDeviceStatus_dc());
    }

    void serialOfAnIcCardIsNotNegative()
    {
        const QString folder = besideProgram("cards");
        QVERIFY(QDir().mkpath(folder));
        writeFile(folder + line("/0.json"), "{\"type\":\"iccard\",\"serial\":\"0102FFFEFDFC\"}");
        useIni("[cards]\nreader=simulated\niccard=0.json\n");
        QCOMPARE(iReadICCardSnr(), 0x7FFEFDFC);
        QFile::remove(folder + line("/0.json"));
    }

    void voicePrompts()
    {
        const QByteArray searchPath = qgetenv("PATH");
        const QString said = path("said");
        const QString program = path("espeak-ng");
        qputenv("PATH", m_folder->path().toUtf8());
        QVERIFY(!bPlayVoice(1)); // no program
        writeFile(program,
                  "#!/bin/sh\nPATH=" + searchPath + "\ncd " + m_folder->path().toUtf8()
                      + "\necho \"$@\" > part\nmv part said\n"
                        "while [ ! -e end ]; do sleep 0.01; done\n");
        QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner);
        for (int absent : {0, -1, 13, INT_MAX, INT_MIN}) {
            QVERIFY(!bPlayVoice(absent));
        }
        PortableLog::takeLines();
        QVERIFY(bPlayVoice(5));
        QVERIFY(!bPlayVoice(6)); // one at a time
        QCOMPARE(PortableLog::lines().size(), 1);
        QTRY_COMPARE(contentOf(said), QByteArray("-v cmn 读卡成功\n"));
        writeFile(path("end"));
        bool isSpokenToo = false;
        QTRY_VERIFY(isSpokenToo = isSpokenToo || bPlayVoice(6));
        qputenv("PATH", searchPath);
    }

private:
    /// Readers of the test's folder, whose real cards m_real gives.
    void useReaders(std::chrono::milliseconds timeLimit)
    {
        auto real = std::make_unique<FakeCards>();
        m_real = real.get();
        m_readers = std::make_unique<CardReaders>(
            [this](const QString &name) { return m_folder->filePath(name); }, std::move(real),
            [this] { return m_ports; }, timeLimit);
    }

    QString cardPath(const char *name) const
    {
        return m_folder->filePath(line("cards/") + line(name));
    }

    void writeCard(const char *name, const QByteArray &content) const
    {
        writeFile(cardPath(name), content);
    }

    /// Longer each time: a change that keeps the size and, being coarse, the time goes unnoticed.
    void writeIni(const QByteArray &cards)
    {
        writeFile(path("devices.ini"),
                  "[cards]\n" + cards + QByteArray(100 + ++m_edits * 100 - cards.size(), '\n'));
    }

    std::unique_ptr<CardReaders> m_readers;
    FakeCards *m_real = nullptr; // m_readers owns it
    QStringList m_ports; // serial ports of this machine
    int m_edits = 0; // of devices.ini
};

QTEST_GUILESS_MAIN(TestPortableCards)
#include "tst_portablecards.moc"
