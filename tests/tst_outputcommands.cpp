// SPDX-License-Identifier: MIT
//
// Scanning, recording, printing, watermark, barcodes.

#include "camera/stoprecthread.h"
#include "tests/commandtable.h"
#include "tests/messages.h"

using namespace std::chrono_literals;

class TestOutputCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                      command              args            device   calls                             reply
        commandRow("observer first, no answer", "iAutoScan",      "1,/tmp,中",     5,       "iAutoScan_observr(MessageRun,1slot_iAutoshot(int)) iAutoScan(1,/tmp,中)", nullptr);
        commandRow("two fields",             "iAutoScan",         "1,/tmp",       {},      "",                               nullptr);
        commandRow("started",                "iTimerScan",        "5,/tmp,中,9",   -1,      "iTimerScan(5,/tmp,中,9)",         "true");
        commandRow("three fields",           "iTimerScan",        "5,/tmp,a",     {},      "",                               "true");
        commandRow("three texts",            "bBookScanner",      "a,b,中,d",      true,    "bBookScanner(a,b,中)",            "true");
        commandRow("third empty",            "bBookScanner",      "a,b,",         true,    "bBookScanner(a,b,)",             "true");
        commandRow("two texts",              "bBookScanner",      "a,b",          false,   "bBookScanner(a,b,null)",         "false");
        commandRow("one text",               "bBookScanner",      "a",            {},      "",                               "false");

        commandRow("path with a comma",      "bStartRec",         "/tmp/中,1.mp4", true,    "bStartRec(/tmp/中,1.mp4)",        "true");
        commandRow("refused",                "bStartRecMp3",      "",             false,   "bStartRecMp3()",                 "false");
        commandRow("refused at once",        "bStopRec",          "",             false,   "bStopRec()",                     "false");
        commandRow("paused",                 "bPauseRec",         "",             true,    "bPauseRec()",                    "true");
        commandRow("refused",                "bResumeRec",        "",             false,   "bResumeRec()",                   "false");
        commandRow("recording",              "isRecording",       "",             true,    "isRecording()",                  "true");
        commandRow("size",                   "vSetRecSize",       "1280,x,3",     {},      "vSetRecSize(1280,0)",            "");
        commandRow("one field",              "vSetRecSize",       "1280",         {},      "",                               "");

        commandRow("printed",                "bPrint",            "2,3",          true,    "bPrint(2)",                      "true");
        commandRow("nothing",                "bPrint",            "",             false,   "bPrint(0)",                      "false");
        commandRow("local 8-bit",            "bPrintImage",       "1,中,70000",    true,    "bPrintImage(1,hex:d6d0,0)",      "true");
        commandRow("two fields",             "bPrintImage",       "1,/a.jpg",     {},      "",                               "false");
        commandRow("UTF-8",                  "bPrintImageFile",   "中,3",          true,    "bPrintImageFile(中,3)",           "true");
        commandRow("no number",              "bPrintImageFile",   "/a.jpg",       false,   "bPrintImageFile(/a.jpg,0)",      "false");
        commandRow("local 8-bit",            "vSetWaterPrint",    "1,中,2",        {},      "vSetWaterPrint(1,hex:d6d0,2)",   "true");
        commandRow("two fields",             "vSetWaterPrint",    "1,a",          {},      "",                               "true");
        commandRow("another device name",    "vSetWaitePrintFont", "中,2",         {},      "vSetWaterPrintFont(hex:d6d0)",   "true");
        commandRow("first field",            "vSetWaterPrintFontSize", "12,2",    {},      "vSetWaterPrintFontSize(12)",     "true");
        commandRow("0x",                     "vSetWaterPrintFontColor", "0xFF0000", {},    "vSetWaterPrintFontColor(16711680)", "true");
        commandRow("0X",                     "vSetWaterPrintFontColor", "0Xff0000", {},    "vSetWaterPrintFontColor(16711680)", "true");
        commandRow("bare hexadecimal",       "vSetWaterPrintFontColor", "FF0000,1", {},    "vSetWaterPrintFontColor(16711680)", "true");
        commandRow("decimal",                "vSetWaterPrintFontColor", "16711680", {},    "vSetWaterPrintFontColor(16711680)", "true");
        commandRow("digits are decimal",     "vSetWaterPrintFontColor", "255",    {},      "vSetWaterPrintFontColor(255)",   "true");
        commandRow("no number at all",       "vSetWaterPrintFontColor", "red",    {},      "vSetWaterPrintFontColor(0)",     "true");
        commandRow("a prefix alone",         "vSetWaterPrintFontColor", "0x",     {},      "vSetWaterPrintFontColor(0)",     "true");
        commandRow("nothing",                "vSetWaterPrintFontColor", "",       {},      "vSetWaterPrintFontColor(0)",     "true");
        commandRow("place",                  "vSetWaterPrintPos", "-5,7",         {},      "vSetWaterPrintPos(-5,7)",        "true");
        commandRow("no y",                   "vSetWaterPrintPos", "5",            {},      "vSetWaterPrintPos(5,0)",         "true");

        commandRow("UTF-8 back",             "sGetBarCode",       "中,x",          "文",     "sGetBarCode(hex:d6d0)",          "文");
        commandRow("null",                   "sGetBarCode",       "",             nullptr, "sGetBarCode()",                  "");
        commandRow("kind and path",          "sGetBarCodeEx",     "4294967296,中", "a|b",   "sGetBarCodeEx(4294967296,hex:d6d0)", "a|b");
        commandRow("one field",              "sGetBarCodeEx",     "/a.jpg",       {},      "",                               "");
        commandRow("byte for byte",          "sGetBarCodeOnline", "x",            "\xC3\xA9", "sGetBarCodeOnline()",         "\xC3\x83\xC2\xA9");
        commandRow("null",                   "sGetBarCodeOnline", "",             nullptr, "sGetBarCodeOnline()",            "");
        commandRow("not offered",            "sOCRToString",      "/a.jpg",       {},      "",                               "false");
        // clang-format on
    }

    void automaticScanReportsByEvents()
    {
        send("iAutoScan(1,/tmp,a)");
        QVERIFY(recording::notifyObserver(3));
        QVERIFY(recording::notifyObserver(-1));
        QCOMPARE(page().next(), QStringLiteral("BeginiAutoScan3EndiAutoScan"));
        QCOMPARE(page().next(), QStringLiteral("BeginiAutoScan-1EndiAutoScan"));
    }

    void stopIsAnsweredWhenTheFileIsComplete()
    {
        recording::answer("bStopRec", true);
        recording::answerOnce("isRecording", true);
        recording::answer("isRecording", false);
        Messages messages(StopRecThread::instance());
        clock().takeWaits();
        send("bStopRec()");
        QCOMPARE(messages.next(), QByteArray("BeginbStopRectrueEndbStopRec"));
        QCOMPARE(recording::count("isRecording"), 4); // poll, trace, poll, reply
        QCOMPARE(page().received(), QStringList()); // it goes through the transport
        QVERIFY(clock().takeWaits() == (std::vector<std::chrono::milliseconds>{1s, 500ms}));
    }

    void stopGivesUp()
    {
        recording::answer("isRecording", true);
        StopRecThread thread(clock());
        Messages messages(&thread);
        thread.waitForEnd();
        QCOMPARE(messages.next(), QByteArray("BeginbStopRecfalseEndbStopRec"));
        QCOMPARE(recording::count("isRecording"), 2 * 180 + 1);
    }

    void secondStopIsAnsweredWithTheFirst()
    {
        recording::answer("isRecording", false);
        recording::hold("isRecording");
        StopRecThread thread(clock());
        Messages messages(&thread);
        thread.waitForEnd();
        QVERIFY(recording::waitFor("isRecording"));
        thread.waitForEnd();
        recording::release("isRecording");
        QCOMPARE(messages.next(), QByteArray("BeginbStopRectrueEndbStopRec"));
        QVERIFY(thread.wait(10000));
        QCoreApplication::processEvents();
        QVERIFY(messages.list().isEmpty());
        // It can be started again.
        thread.waitForEnd();
        QCOMPARE(messages.next(), QByteArray("BeginbStopRectrueEndbStopRec"));
    }

    void stopDoesNotHoldUpTheEnd()
    {
        recording::answer("isRecording", true);
        ManualClock stopped; // only the destructor ends the wait
        StopRecThread thread(stopped);
        thread.waitForEnd();
        QVERIFY(stopped.waitForWaiter());
    }
};

QTEST_GUILESS_MAIN(TestOutputCommands)
#include "tst_outputcommands.moc"
