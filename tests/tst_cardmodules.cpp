// SPDX-License-Identifier: MIT
// ID-card modules on a serial port: their protocol and the text of a card, from modules of any
// behavior.
#include "portable/card/cardmodules.h"
#include "portable/card/idcardtext.h"
#include "portable/card/moduleframe.h"
#include "tests/moduleonpty.h"
#include "tests/portabletest.h"

#include <sys/file.h>

#include <random>

using namespace portable;

namespace {

/// Fields as "key=value", by key, with photoBlock's size; or presence and reason: "!2 no card".
QString textOf(const CardAttempt &result)
{
    QStringList texts;
    for (auto field = result.fields.begin(); field != result.fields.end(); ++field) {
        const QString value = field.value().toString();
        texts << field.key() + QLatin1Char('=')
                + (field.key() == line("photoBlock") ? QString::number(value.size()) : value);
    }
    return texts.isEmpty() ? QStringLiteral("!%1 %2").arg(int(result.presence)).arg(result.reason)
                           : texts.join(QLatin1Char(' '));
}

const QString zhangSan =
    line("address=样例市样例路1号 authority=样例市公安局 birthDate=1990-01-01 name=张三 "
         "nation=蒙古 number=000000199001010018 photoBlock=1368 sex=男 validFrom=2020-01-01 "
         "validTo=长期");

using Script = ModuleOnPty::Script;

/// The usual answers, but these to one command.
Script but(int command, const std::function<QByteArray(const QByteArray &usual)> &answer)
{
    return [=](int asked, const QByteArray &usual) {
        return asked == command ? answer(usual) : usual;
    };
}

Script but(int command, const QByteArray &answer)
{
    return but(command, [=](const QByteArray &) { return answer; });
}

/// Only the first answer to a command.
Script once(int command, const std::function<QByteArray(const QByteArray &usual)> &answer)
{
    return but(command, [answer, tries = 0](const QByteArray &usual) mutable {
        return ++tries == 1 ? answer(usual) : usual;
    });
}

QByteArray damaged(QByteArray frame)
{
    frame[frame.size() - 1] = char(frame.at(frame.size() - 1) ^ 1);
    return frame;
}

} // namespace

Q_DECLARE_METATYPE(Script)

class TestCardModules : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!ModuleOnPty().isOpen()) {
            QSKIP("there are no pseudo terminals here (/dev/pts is not mounted)");
        }
    }

    void reads_data()
    {
        const Rows<Script, QString> row("script", "expected");
        constexpr int find = 0x2001;
        constexpr int select = 0x2002;
        constexpr int read = 0x3001;
        const auto half = [](const QByteArray &answer) { return answer.left(answer.size() / 2); };
        const auto text = [&](const QByteArray &block) { return but(read, cardFrame(block)); };
        const QByteArray usual = cardOfZhangSan();
        const QByteArray noise(20000, '\xAA');
        // clang-format off
        row("in order",                       Script(),                                         zhangSan);
        row("noise before the answer",        but(read, [](const QByteArray &answer) { return "\xAA\xAA\xAAno\xAA" + answer; }), zhangSan);
        row("a false head before it",         but(read, [](const QByteArray &answer) { return QByteArray::fromHex("AAAAAA9669FFFF") + answer; }), zhangSan);
        row("a second answer behind it",      but(find, [](const QByteArray &answer) { return answer + answer; }), zhangSan);
        row("damaged once",                   once(read, damaged),                              zhangSan);
        row("cut off once",                   once(find, half),                                 zhangSan);
        row("without a photo",                but(read, cardFrame(usual, {})),                  QString(zhangSan).remove(line("photoBlock=1368 ")));
        row("no card",                        but(find, moduleFrame("000080")),                 "!1 no card on the ID-card module");
        row("removed before it is selected",  but(select, moduleFrame("000081")),               "!2 select the card: selecting failed; was the card taken away? (000081)");
        row("removed before it is read",      but(read, moduleFrame("000041")),                 "!2 read the card: reading failed; was the card taken away? (000041)");
        row("another status",                 but(find, moduleFrame("990102")),                 "!2 failed (990102)");
        row("always damaged",                 but(read, damaged),                               "!2 read the card: the check byte of its answer is wrong");
        row("always cut off",                 but(find, half),                                  "!2 find a card: its answer breaks off");
        row("silent in the middle",           but(find, QByteArray()),                          "!2 find a card: it doesn't answer");
        row("unplugged in the middle",        but(select, "hang up"),                           "!2 select the card: ");
        row("noise in the middle",            but(find, noise),                                 "!2 find a card: it sends something else");
        row("noise only",                     [=](int, const QByteArray &) { return QByteArray(noise); },   "!0 PORT: no ID-card module answers at 115200, 57600, 38400, 19200, 9600 bit/s (status: it sends something else)");
        row("silent",                         [](int, const QByteArray &) { return QByteArray(); }, "!0 PORT: no ID-card module answers at 115200, 57600, 38400, 19200, 9600 bit/s (status: it doesn't answer)");
        row("no lengths",                     but(read, moduleFrame("000090010000")),           "!2 the lengths in its answer are wrong");
        row("lengths beyond the end",         but(read, moduleFrame("000090FFFFFFFF0000")),     "!2 the lengths in its answer are wrong");
        row("text is too short",              text(usual.left(254)),                            "!2 its text has 254 bytes instead of 256");
        row("text of zeros",                  text(QByteArray(256, '\0')),                      "!2 its text has no valid number");
        row("text of blanks",                 text(cardField("", 256)),                         "!2 its text has no valid number");
        row("byte order mark for a layout",   text(QByteArray(usual).replace(248, 2, "\xFF\xFE")), zhangSan);
        row("control characters in a name",   text(cardOfZhangSan(cardField("张\n\x01三", 30))), zhangSan);
        row("half a surrogate pair",          text(cardOfZhangSan(QByteArray::fromHex("00D8") + cardField("三", 28))), QString(zhangSan).replace(line("张"), line("?")));
        // clang-format on
    }

    void reads()
    {
        QFETCH(Script, script);
        QFETCH(QString, expected);
        const ModuleOnPty module(script);
        CardModules modules([] { return QStringList(); }, std::chrono::seconds(4));
        const QString text = textOf(modules.read(module.port()));
        expected.replace(line("PORT"), module.port());
        QVERIFY2(expected.startsWith(QLatin1Char('!')) ? text.startsWith(expected)
                                                       : text == expected,
                 qPrintable(text));
    }

    void layouts()
    {
        const QByteArray dates = cardField("20200101", 16) + cardField("20300101", 16);
        const QByteArray foreigner = cardField("SAMPLE, PERSON", 120) + cardField("2", 2)
            + cardField("USA000000000012", 30) + cardField("USA", 6) + cardField("样例", 30) + dates
            + cardField("19800230", 16) + cardField("01", 4) + cardField("0000", 8)
            + cardField("I", 2) + cardField("", 6);
        const QByteArray regional = cardOfZhangSan().left(220) + cardField("H00000001", 18)
            + cardField("01", 4) + cardField("", 6) + cardField("J", 2) + cardField("", 6);
        const QString regionalFields =
            QString(zhangSan)
                .remove(line("nation=蒙古 "))
                .replace(line("photoBlock=1368"), line("passNumber=H00000001"))
                .replace(line("name="), line("issueCount=01 name="));
        QString error;
        // The 30th of February isn't passed on.
        QCOMPARE(textOf({CardPresence::Card, decodeIdCardText(foreigner, &error), error}),
                 line("englishName=SAMPLE, PERSON name=样例 nationality=USA number=USA000000000012 "
                      "sex=女 validFrom=2020-01-01 validTo=2030-01-01"));
        QCOMPARE(textOf({CardPresence::Card, decodeIdCardText(regional, &error), error}),
                 regionalFields);
    }

    /// Under the address sanitizer: whatever arrives, in whatever pieces, frames are found and
    /// bounded.
    void anyBytes()
    {
        std::mt19937 random(1);
        for (int round = 0; round < 2000; ++round) {
            FrameCollector collector;
            auto state = FrameCollector::State::Incomplete;
            for (int piece = 0; piece < 20; ++piece) {
                QByteArray bytes(int(random() % 12), '\0');
                for (char &byte : bytes) {
                    byte = "\xAA\xAA\xAA\x96\x69\x00\x05"[random() % 8];
                }
                state = collector.add(bytes);
                QVERIFY(state != FrameCollector::State::Complete
                        || collector.answer().data.size() < 4096);
            }
            collector.add(QByteArray(5000, '\0')); // the end of whatever frame had begun
            QCOMPARE(collector.add(moduleFrame("00009F")), FrameCollector::State::Complete);
            QCOMPARE(collector.answer().status, 0x9F);
        }
    }

    void otherSpeeds()
    {
        for (const speed_t speed : {speed_t(B9600), speed_t(B57600)}) {
            const ModuleOnPty module({}, speed);
            CardModules modules([&] { return QStringList{module.port()}; });
            QCOMPARE(textOf(modules.read({})), zhangSan);
            const int requests = module.requests();
            QCOMPARE(textOf(modules.read({})), zhangSan);
            QCOMPARE(module.requests(), requests + 4); // at once at that speed
        }
    }

    void portIsFound()
    {
        const ModuleOnPty silent([](int, const QByteArray &) { return QByteArray(); });
        const ModuleOnPty module;
        QStringList ports;
        CardModules modules([&] { return ports; });
        QString reason;
        QVERIFY(!modules.responds({}, &reason));
        QVERIFY2(reason.contains(line("there is no serial port")), qPrintable(reason));
        ports = QStringList{line("/dev/absent"), silent.port()};
        for (const char *why : {"no ID-card module answers", "answered before"}) {
            QVERIFY(modules.number({}, &reason).isEmpty());
            QVERIFY2(reason.contains(line("/dev/absent: no such device; ") + silent.port())
                         && reason.contains(line(why)),
                     qPrintable(reason));
            QCOMPARE(silent.requests(), 5); // once at each speed
        }
        ports << module.port();
        QVERIFY(modules.responds({}, &reason));
        QCOMPARE(PortableLog::takeLines(),
                 QStringList{line("there is an ID-card module on ") + module.port()
                             + line(" at 115200 bit/s")});
        modules.forget();
        QVERIFY(modules.responds({}, &reason)); // the one that answered last is tried first
        QCOMPARE(silent.requests(), 5);
        ports.removeLast();
        QVERIFY(!modules.responds({}, &reason));
        QCOMPARE(silent.requests(), 10);
    }

    void otherUsersOfThePort()
    {
        const ModuleOnPty module;
        const int user = ::open(qPrintable(module.port()), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios before = {};
        termios after = {};
        ::tcgetattr(user, &before);
        CardModules modules([] { return QStringList(); });
        QCOMPARE(textOf(modules.read(module.port())), zhangSan);
        ::tcgetattr(user, &after);
        QCOMPARE(::cfgetospeed(&after), ::cfgetospeed(&before)); // left as it was
        ::flock(user, LOCK_EX);
        const QString text = textOf(modules.read(module.port()));
        ::close(user);
        QCOMPARE(text, line("!0 ") + module.port() + line(": another program is using it"));
    }
};

QTEST_GUILESS_MAIN(TestCardModules)
#include "tst_cardmodules.moc"
