// SPDX-License-Identifier: MIT
#include "identity/readidcardthread.h"
#include "tests/commandtable.h"
#include "tests/messages.h"

#include <thread>
#include <vector>

using namespace std::chrono_literals;

using Pauses = std::vector<std::chrono::milliseconds>;

class TestCardCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                    command                  args      device   calls                            reply
        commandRow("unchanged",            "bOpenIDCardReader",     "USB,1",  true,    "bOpenIDCardUSBPort(USB,1)",     "true");
        commandRow("refused",              "bOpenIDCardSerialPort", "",       false,   "openIDCardSerialPort()",        "false");
        commandRow("closed",               "bCloseIDCardDevie",     "x",      true,    "bCloseIDCardDevie()",           "true");
        commandRow("lower-case g",         "bGetSAMStatus",         "",       false,   "bgetSAMStatus()",               "false");
        commandRow("byte for byte",        "GetSAMID",              "",       "\xC3\xA9", "GetSAMID()",                "\xC3\x83\xC2\xA9");
        commandRow("null",                 "GetSAMID",              "",       nullptr, "GetSAMID()",                    "");
        commandRow("byte for byte",        "sReadIDCardSnr",        "",       "04A2",  "sReadIDCardSnr()",              "04A2");
        commandRow("number",               "iReadICCardSnr",        "",       -7,      "iReadICCardSnr()",              "-7");
        commandRow("no default",           "bPlayVoice",            "",       true,    "bPlayVoice(0)",                 "true");
        commandRow("number",               "bPlayVoice",            "3",      false,   "bPlayVoice(3)",                 "false");
        commandRow("stub",                 "iReadCardBas_noPasamVX","5",      {},      "",                              "");
        commandRow("one part",             "ReadCard",              "x",      "a中",   "ReadCard(null,null)",           "a中");
        commandRow("second part",          "ReadCard",              "a,中,c", nullptr, "ReadCard(null,中)",             "");
        commandRow("second part empty",    "ReadCard",              "a,",     "{}",    "ReadCard(null,)",               "{}");
        // No text from the device here; the return values are ignored.
        commandRow("default",              "iReadCardBas_noPasam",  "",       {},      "iReadCardBas_noPasam_qt(1)",    "");
        commandRow("no number",            "iReadCardBas_noPasam",  "abc",    {},      "iReadCardBas_noPasam_qt(0)",    "");
        commandRow("default",              "iReadCardBasEx",        "",       {},      "ReadCardBasExVX(3)",            "");
        commandRow("number",               "iReadCardBasEx",        "2",      {},      "ReadCardBasExVX(2)",            "");
        commandRow("default, tried twice", "GetBankCardInfo",       "",       false,   "GetBankCardInfoVX(2) GetBankCardInfoVX(0)", "");
        commandRow("tried again with 2",   "GetBankCardInfo",       "5",      false,   "GetBankCardInfoVX(5) GetBankCardInfoVX(2)", "");
        commandRow("0 tried again with 2", "GetBankCardInfo",       "0",      false,   "GetBankCardInfoVX(0) GetBankCardInfoVX(2)", "");
        commandRow("first try",            "GetBankCardInfo",       "1",      true,    "GetBankCardInfoVX(1)",          "");
        commandRow("first family",         "WReadCardBasEx",        "7",      {},      "GetDeviceStatus_dc() ReadCardBasExVX(3)", "");
        // clang-format on
    }

    void threeReadersInTurn_data()
    {
        const Rows<QByteArray, QByteArray, int> row("first", "second", "reader");
        // clang-format off
        row("the first",                      "{\"code\":\"0\",\"name\":\"中\"}", "",                     1);
        row("a code that reads as 0",         "{\"code\":\"none\"}",             "",                     1);
        row("another code",                   "{\"code\":\"5\"}",                "{\"result\":1}",       2);
        row("a code that is a number",        "{\"code\":0}",                    "{\"result\":-1}",      2);
        row("no code",                        "{}",                              "{\"result\":1.5}",     2);
        row("no object",                      "[\"code\"]",                      "{\"result\":1}",       2);
        row("broken JSON",                    "{\"code\":\"0\"",                 "{\"result\":1}",       2);
        row("nothing",                        "",                                "{\"result\":1}",       2);
        row("a result of 0",                  "",                                "{\"result\":0}",       3);
        row("a result below 1",               "",                                "{\"result\":0.5}",     3);
        row("a result beyond an int",         "",                                "{\"result\":1e300}",   2);
        row("a result that is a text",        "",                                "{\"result\":\"1\"}",   3);
        row("both broken",                    "x",                               "{",                    3);
        // clang-format on
    }

    void threeReadersInTurn()
    {
        QFETCH(QByteArray, first);
        QFETCH(QByteArray, second);
        QFETCH(int, reader);
        clock().takeWaits();
        recording::answer("ReadSFZCardBas_VX", {}, first.constData());
        recording::answer("ReadCard", second.constData());
        recording::answer("ReadSFZCardBas_DK", {}, "whatever");
        const QByteArray text = reader == 1 ? first : reader == 2 ? second : QByteArray("whatever");
        QCOMPARE(ask("WReadSFZCardBas()"),
                 QStringLiteral("BeginWReadSFZCardBas%1EndWReadSFZCardBas")
                     .arg(QString::fromUtf8(text)));
        QVERIFY(clock().takeWaits() == Pauses(std::size_t(reader), 5ms));
        const QStringList calls{QStringLiteral("ReadSFZCardBas_VX()"),
                                QStringLiteral("ReadCard(null,null)"),
                                QStringLiteral("ReadSFZCardBas_DK()")};
        QCOMPARE(recording::takeCalls(), calls.mid(0, reader));
    }

    void textsGoOutUnchanged_data()
    {
        const Rows<QByteArray> row("function");
        row("sIDCardReaderVX", "ReadSFZCardVX");
        row("readIDMsg", "readIDMsg_qt");
        row("readIDMsgVX", "readIDMsgVX_qt");
        row("iReadCardBas_noPasam", "iReadCardBas_noPasam_qt");
        row("iReadCardBasEx", "ReadCardBasExVX");
        row("WReadCardBasEx", "ReadCardBasExVX");
        row("GetBankCardInfo", "GetBankCardInfoVX");
    }

    void textsGoOutUnchanged()
    {
        const QString command = QString::fromUtf8(QTest::currentDataTag());
        QFETCH(QByteArray, function);
        recording::answer(function, true, "{\"中\":\"%1%2,(\"}");
        QCOMPARE(ask(command + QStringLiteral("()")),
                 MessageRun::framed(command, QStringLiteral("{\"中\":\"%1%2,(\"}")));
    }

    void secondFamilysTextIsFramedTwice()
    {
        recording::answer("GetDeviceStatus_dc", true);
        clock().takeWaits();
        recording::answerOnce("ReadSBKCardBas_DK", true, "a\"中%1");
        recording::answerOnce("ReadSBKCardBas_DK", false, "");
        QCOMPARE(ask("WReadCardBasEx()"),
                 QStringLiteral("BeginWReadCardBasEx{\"lRet\":0,\"outInfo\":\"a\"中%1\"}"
                                "EndWReadCardBasEx"));
        QCOMPARE(ask("WReadCardBasEx(abc)"),
                 QStringLiteral("BeginWReadCardBasEx{\"lRet\":1,\"outInfo\":\"\"}"
                                "EndWReadCardBasEx"));
        QCOMPARE(recording::takeText(),
                 QStringLiteral("GetDeviceStatus_dc() ReadSBKCardBas_DK(1) "
                                "GetDeviceStatus_dc() ReadSBKCardBas_DK(0)"));
        QVERIFY(clock().takeWaits() == (Pauses{1s, 1s}));
    }

    void eachReadHasItsReply()
    {
        Messages messages(ReadIdCardThread::instance());
        recording::answerOnce("sIDCardReader", "one");
        recording::answerOnce("sIDCardReader", "\xE9"); // one character a byte
        recording::answer("sIDCardReader", nullptr);
        for (int i = 0; i < 3; ++i) {
            send("sIDCardReader()");
        }
        QCOMPARE(messages.next(), QByteArray("BeginsIDCardReaderoneEndsIDCardReader"));
        QCOMPARE(messages.next(),
                 QByteArray("BeginsIDCardReader\xA8\xA6" // the same in the local encoding
                            "EndsIDCardReader"));
        QCOMPARE(messages.next(), QByteArray("BeginsIDCardReaderEndsIDCardReader"));
        QCOMPARE(recording::takeText(),
                 QStringLiteral("sIDCardReader() sIDCardReader() sIDCardReader()"));
        QCOMPARE(page().received(), QStringList()); // it goes through the transport
    }

    void aBatchBlocksFurtherRequests()
    {
        ReadIdCardThread thread;
        Messages messages(&thread);
        recording::answer("sIDCardReader", "x");
        recording::hold("sIDCardReader");
        thread.readCard();
        QVERIFY(recording::waitFor("sIDCardReader"));
        std::thread page([&thread] { thread.readCard(); });
        recording::release("sIDCardReader");
        page.join();
        messages.next();
        messages.next();
        QCOMPARE(recording::count("sIDCardReader"), 2);
    }
};

QTEST_GUILESS_MAIN(TestCardCommands)
#include "tst_cardcommands.moc"
