// SPDX-License-Identifier: MIT
#include "tests/commandtable.h"

#include <thread>

class TestSettingsCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                           command                  args         device  calls                        reply
        commandRow("true even if refused"     ,   "bSetMode",              "2",         false,  "bSetMode(2)",               "true");
        commandRow("16 bits",                     "vSetCamaraMode",        "40000",     {},     "vSetCamaraMode(0)",         "true");
        commandRow("camera 1 implied",            "vSetResolution",        "3",         {},     "vSetResolutionEx(1,3)",     "true");
        commandRow("camera and index",            "vSetResolutionEx",      "2,5",       {},     "vSetResolutionEx(2,5)",     "true");
        commandRow("no comma: both",              "vSetResolutionEx",      "3",         {},     "vSetResolutionEx(3,3)",     "true");
        commandRow("split at the first comma",    "vSetResolutionEx",      "1,2,3",     {},     "vSetResolutionEx(1,0)",     "true");
        commandRow("nothing",                     "vSetResolutionEx",      "",          {},     "vSetResolutionEx(0,0)",     "true");
        commandRow("two fields",                  "setResolutionXY",       "1920,1080", {},     "setResolution(1,1920,1080)","true");
        commandRow("three fields",                "setResolutionXY",       "1920,1080,1", {},   "",                          "true");
        commandRow("one field",                   "setResolutionXY",       "1920",      {},     "",                          "true");
        commandRow("three fields",                "setResolutionExXY",     "2,640,480", {},     "setResolution(2,640,480)",  "true");
        commandRow("two fields",                  "setResolutionExXY",     "640,480",   {},     "",                          "true");
        commandRow("four fields",                 "setResolutionExXY",     "2,640,480,",{},     "",                          "true");
        commandRow("number",                      "iGetResolutionX",       "2",         1920,   "iGetResolutionX(2)",        "1920");
        commandRow("number",                      "iGetResolutionY",       "x",         -1,     "iGetResolutionY(0)",        "-1");
        commandRow("first field only",            "vSetRotate",            "90,1",      {},     "vSetRotate(90)",            "true");
        commandRow("below zero",                  "vSetRotate",            "-90",       {},     "vSetRotate(-90)",           "true");
        commandRow("number",                      "iGetRotate",            "9",         short {270}, "iGetRotate()",         "270");
        commandRow("first field only",            "vSetFlip",              "1,2",       {},     "vSetFlip(1)",               "true");
        commandRow("number",                      "iGetFlip",              "",          short {2}, "iGetFlip()",             "2");
        commandRow("taken",                       "vSetExposure",          "-5",        true,   "vSetExposure(-5)",          "true");
        commandRow("refused",                     "vSetExposure",          "99999999999", false, "vSetExposure(0)",          "false");
        commandRow("refused",                     "vSetBrightness",        "7",         false,  "vSetBrightness(7)",         "false");
        commandRow("whole text",                  "vSetContrast",          "7,8",       true,   "vSetContrast(0)",           "true");
        commandRow("true even if refused"     ,   "AutoFocus",             "x",         false,  "AutoFocus()",               "true");
        commandRow("64 bits",                     "vSetDPI",               "300,4294967296", true, "vSetDPI(300,4294967296)","true");
        commandRow("one field",                   "vSetDPI",               "300",       {},     "",                          "false");
        commandRow("extra field",                 "vSetDPI",               "300,200,1", false,  "vSetDPI(300,200)",          "false");
        commandRow("four numbers",                "bSetImageArea",         "1,2,3,4",   true,   "bSetImageArea(1,2,3,4)",    "true");
        commandRow("five numbers",                "bSetImageArea",         "1,2,3,4,5", true,   "bSetImageArea(1,2,3,4)",    "true");
        commandRow("three numbers",               "bSetImageArea",         "10,20,30",  {},     "",                          "false");
        commandRow("long",                        "lGetImageAreaX1",       "",          5000000000L, "lGetImageAreaX1()",    "5000000000");
        commandRow("long",                        "lGetImageAreaY1",       "",          2L,     "lGetImageAreaY1()",         "2");
        commandRow("long",                        "lGetImageAreaX2",       "",          3L,     "lGetImageAreaX2()",         "3");
        commandRow("long",                        "lGetImageAreaY2",       "",          4L,     "lGetImageAreaY2()",         "4");
        commandRow("refused",                     "vSetImageQuality",      "101",       false,  "vSetImageQuality(101)",     "false");
        commandRow("number",                      "sGetImageQuality",      "",          short {85}, "sGetImageQuality()",    "85");
        commandRow("taken",                       "bSetBookScannerMode",   "1",         true,   "bSetBookScannerMode(1)",    "true");
        commandRow("number",                      "igetBookScannerMode",   "",          1,      "igetBookScannerMode()",     "1");
        commandRow("both numbers",                "vGetDPI",               "",          {},     "vGetDPI()",                 "(0,0)");
        commandRow("nothing at once",             "vSetCapturePin",        "1",         {},     "vSetCapturePin(listener)",  nullptr);
        commandRow("no device call",              "vSetFocus",             "1",         {},     "",                          "true");
        commandRow("no device call",              "vSetVideoCompressType", "1",         {},     "",                          "true");
        commandRow("no device call",              "vSetDelHBFlag",         "1",         {},     "",                          "true");
        commandRow("no device call",              "vSetSkewFlag",          "",          {},     "",                          "true");
        // clang-format on
    }

    void resolutionsAsJson_data()
    {
        const Rows<QString> row("call");
        row("getAllResolutions(2)", "getResolutionIndex(2)");
        row("getAllResolutions(0)", "getResolutionIndex(1)");
        row("getAllResolutions(-3)", "getResolutionIndex(1)");
        row("getAllResolutions()", "getResolutionIndex(1)");
        row("getAllResolutionsEx(0)", "getResolutionIndex(0)");
        row("getAllResolutionsEx(-3)", "getResolutionIndex(-3)");
    }

    void resolutionsAsJson()
    {
        const QString command = QString::fromUtf8(QTest::currentDataTag());
        const QString name = command.section(QLatin1Char('('), 0, 0);
        const auto reply = [&name](const char *json) {
            return QStringLiteral("Begin%1%2End%1").arg(name, QString::fromUtf8(json));
        };
        QCOMPARE(ask(command), reply("[]"));
        QTEST(recording::takeText(), "call");

        const std::vector<std::pair<double, double>> sizes{{2592, 1944}, {1920.5, 1080}};
        recording::answer("getResolutionIndex", {}, sizes);
        QCOMPARE(ask(command),
                 reply("[{\"height\":1944,\"width\":2592},{\"height\":1080,\"width\":1920.5}]"));

        recording::answer("vGetDPI", {}, QPoint(300, 200));
        QCOMPARE(ask("vGetDPI()"), QStringLiteral("BeginvGetDPI(300,200)EndvGetDPI"));
    }

    void captureButton()
    {
        send("vSetCapturePin()");
        const auto press =
            recording::listener<void(int, int, int, unsigned int, int, void *)>("vSetCapturePin");
        QVERIFY(press);
        const auto pressElsewhere = [press](int state) {
            std::thread([=] { press(state, 0, 0, 0, 0, nullptr); }).join();
        };

        // The event goes to the page that is current when the main thread gets to it.
        setCurrent(false);
        pressElsewhere(1);
        setCurrent(true);
        QCOMPARE(page().next(), QStringLiteral("BeginvSetCapturePintrueEndvSetCapturePin"));
        pressElsewhere(2);
        QCOMPARE(page().next(), QStringLiteral("BeginvSetCapturePinfalseEndvSetCapturePin"));
        pressElsewhere(1);
        setCurrent(false); // it has left
        QCoreApplication::processEvents();
        QCOMPARE(page().received(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestSettingsCommands)
#include "tst_settingscommands.moc"
