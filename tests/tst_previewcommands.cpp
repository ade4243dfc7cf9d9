// SPDX-License-Identifier: MIT
#include "camera/captureimgthread.h"
#include "dispatch/messagerun.h"
#include "tests/commandtable.h"
#include "tests/messages.h"

class TestPreviewCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        CommandTest::initTestCase();
        // Operations stay on the queue: most tests only check what a command does itself.
        CaptureImgThread::instance()->setPause(true);
    }

    void init()
    {
        CommandTest::init();
        CaptureImgThread::instance()->silenceClose();
        CaptureImgThread::instance()->vZoomOriginal();
    }

    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                              command              args                    device   calls                         reply
        commandRow("fourth source",                  "bStartPlay4",       "",                     true,    "bStartPlay4()",              "true");
        commandRow("fourth source, refused",         "bStartPlay4",       "ignored",              false,   "bStartPlay4()",              "false");
        commandRow("fourth source stopped",          "bStopPlay4",        "",                     true,    "bStopPlay4()",               "true");
        commandRow("fourth source not stopped",      "bStopPlay4",        "",                     false,   "bStopPlay4()",               "false");
        commandRow("display flag on",                "vSetImageDispFlag", "2",                    {},      "vSetImageDispFlag(true)",    "");
        commandRow("display flag off",               "vSetImageDispFlag", "0",                    {},      "vSetImageDispFlag(false)",   "");
        commandRow("display flag of no number",      "vSetImageDispFlag", "on",                   {},      "vSetImageDispFlag(false)",   "");
        commandRow("preview refused",                "bAVPreview",        "1,2",                  false,   "bAVPreview(1,2)",            "false");
        commandRow("preview with a number too many", "bAVPreview",        "1,2,3",                false,   "bAVPreview(1,2)",            "false");
        commandRow("64-bit numbers",                 "bAVPreview",        "9223372036854775807,x",false,   "bAVPreview(9223372036854775807,0)", "false");
        commandRow("preview with one number",        "bAVPreview",        "5",                    {},      "",                           "false");
        commandRow("preview with nothing",           "bAVPreview",        "",                     {},      "",                           "false");
        commandRow("not supported",                  "displayVideoPara",  "1",                    {},      "",                           "false");
        commandRow("zoom in",                        "vZoomIn",           "ignored",              {},      "",                           "");
        commandRow("zoom out",                       "vZoomOut",          "",                     {},      "",                           "");
        commandRow("zoom original",                  "vZoomOriginal",     "",                     {},      "",                           "");
        commandRow("zoom step",                      "vSetZoomFactor",    "20",                   {},      "",                           "");
        commandRow("zoom step of no number",         "vSetZoomFactor",    "x",                    {},      "",                           "");
        commandRow("one of two sizes",               "vSetPreViewSize",   "1024",                 {},      "",                           "");
        commandRow("start without a camera library", "bStartPlayRotate",  "90",                   {},      "vSetRotate(90)",             nullptr);
        commandRow("rotation of no 16-bit number",   "bStartPlayRotate",  "90000",                {},      "vSetRotate(0)",              nullptr);
        commandRow("rotation: the whole text",       "bStartPlayRotate",  "90,1",                 {},      "vSetRotate(0)",              nullptr);
        commandRow("start answers later",            "bStartPlay",        "",                     {},      "",                           nullptr);
        commandRow("stop answers later",             "bStopPlay",         "",                     true,    "bStopRec()",                 nullptr);
        // clang-format on
    }

    void startsReachTheThreadByTheirCode_data()
    {
        const Rows<QString> row("call");
        row("bStartPlay", "bStartPlay(180)");
        row("bStartPlay2", "bStartPlay2(0)");
        row("bStartPlay3", "bStartPlay3(0)");
        row("bStartPlay5", "bStartPlay5(180)");
        row("bStartPlay6", "bStartPlay6(180)");
        row("bStartPlay8", "bStartPlay8(180)");
        row("bStartPlay9", "bStartPlay9(180)");
        row("bStartPlayOpen", "bStartPlayOpen()");
        row("bStartPlayRotate", "bStartPlay(180)");
    }

    void startsReachTheThreadByTheirCode()
    {
        const QString command = QString::fromUtf8(QTest::currentDataTag());
        QFETCH(QString, call);
        recording::answer("iGetRotate", short{180});
        recording::answer(call.section(QLatin1Char('('), 0, 0).toLatin1(), true);
        QCOMPARE(runAndWait(command + QLatin1String("()"), call),
                 QStringLiteral("Begin%1trueEnd%1").arg(command));
    }

    void stopEndsTheRecordingFirst()
    {
        recording::answer("bStopRec", false);
        recording::answer("bStopPlay", true);
        // The previous function's camera had no frames and may be restarting: stop it first.
        runAndWait(QStringLiteral("bStopPlay()"), QStringLiteral("bStopPlay()"));
        recording::takeText();
        QCOMPARE(runAndWait(QStringLiteral("bStopPlay()"), QStringLiteral("bStopPlay()")),
                 QStringLiteral("BeginbStopPlaytrueEndbStopPlay"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopRec() bStopPlay()"));
    }

    void enabling()
    {
        QCOMPARE(ask("bGetPreviewEnable()"),
                 QStringLiteral("BeginbGetPreviewEnabletrueEndbGetPreviewEnable"));
        QCOMPARE(ask("vSetPreviewEnable(0)"),
                 QStringLiteral("BeginvSetPreviewEnabletrueEndvSetPreviewEnable"));
        QCOMPARE(ask("bGetPreviewEnable()"),
                 QStringLiteral("BeginbGetPreviewEnablefalseEndbGetPreviewEnable"));
        QCOMPARE(ask("vSetPreviewEnable(-1)"),
                 QStringLiteral("BeginvSetPreviewEnabletrueEndvSetPreviewEnable"));
        QVERIFY(CaptureImgThread::instance()->bGetPreviewEnable());
    }

    void sizesAndZoom_data()
    {
        const Rows<QString, QSize> row("commands", "size");
        // clang-format off
        row("at first",                        "",                                                  {800, 600});
        row("set",                             "vSetPreViewSize(1024,768)",                         {1024, 768});
        row("floors",                          "vSetPreViewSize(100,100)",                          {400, 300});
        row("each floor on its own",           "vSetPreViewSize(100,900)",                          {400, 900});
        row("no numbers",                      "vSetPreViewSize(,)",                                {400, 300});
        row("one number changes nothing",      "vSetPreViewSize(1024)",                             {800, 600});
        row("in is smaller",                   "vZoomIn()",                                         {720, 540});
        row("in, down to the floors",          "vZoomIn() vZoomIn() vZoomIn() vZoomIn() vZoomIn() vZoomIn() vZoomIn()", {400, 300});
        row("out is larger",                   "vZoomOut() vZoomOut()",                             {968, 726});
        row("fractions are cut",               "vSetZoomFactor(33) vSetPreViewSize(401,301) vZoomOut()", {533, 400});
        row("back",                            "vSetZoomFactor(50) vZoomOut() vZoomOriginal() vZoomOut()", {880, 660});
        row("the largest step",                "vSetZoomFactor(2147483647) vZoomOut() vZoomOut()",  {INT_MAX, INT_MAX});
        row("the smallest step",               "vSetZoomFactor(-2147483648) vZoomIn() vZoomIn()",   {INT_MAX, INT_MAX});
        row("a step below nothing",            "vSetZoomFactor(-200) vZoomOut()",                   {-800, -600});
        // clang-format on
    }

    void sizesAndZoom()
    {
        QFETCH(QString, commands);
        const QStringList list = commands.split(QLatin1Char(' '));
        for (const QString &command : list) {
            send(command);
        }
        QTEST(CaptureImgThread::instance()->previewSize(), "size");
    }

    void audioVideoPreviewGivesTheCameraBack()
    {
        recording::answer("bAVPreview", true);
        recording::answer("bStartPlay", true);
        QCOMPARE(runAndWait(QStringLiteral("bAVPreview(1,2)"), QStringLiteral("bStartPlay(0)")),
                 QStringLiteral("BeginbStartPlaytrueEndbStartPlay"));
        QCOMPARE(page().next(), QStringLiteral("BeginbAVPreviewtrueEndbAVPreview"));
    }

private:
    /// Lets the capture thread perform a command. \return its result, or the calls without
    /// `lastCall`
    QString runAndWait(const QString &command, const QString &lastCall)
    {
        Messages messages(CaptureImgThread::instance());
        send(command);
        CaptureImgThread::instance()->setPause(false);
        const QByteArray answer = messages.next();
        CaptureImgThread::instance()->setPause(true);
        return recording::calls().contains(lastCall) ? QString::fromLatin1(answer)
                                                     : recording::takeText();
    }
};

QTEST_GUILESS_MAIN(TestPreviewCommands)
#include "tst_previewcommands.moc"
