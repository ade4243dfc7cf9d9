// SPDX-License-Identifier: MIT
//
// Faces, liveness, fingerprints.

#include "camera/captureimgthread.h"
#include "identity/facematchthread.h"
#include "identity/livingbodydetectthread.h"
#include "tests/commandtable.h"
#include "tests/messages.h"

#include <thread>

namespace {

/// Calls a listener on another thread, as a device library does.
template <class Call> void onOtherThread(Call call)
{
    std::thread(call).join();
}

QString featureOf(int bytes)
{
    return QString::fromLatin1(QByteArray(bytes, 'f').toBase64());
}

} // namespace

class TestFaceCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                    command                   args           device   calls                               reply
        commandRow("one path",             "lImageMatch",            "a.jpg",       {},      "",                                 "0");
        commandRow("first field",          "lFaceMatch",             "中.jpg,b",     5000000000LL, "lFaceMatch(中.jpg)",          "5000000000");
        commandRow("negative as it is",    "lFaceMatch",             "",            -3LL,    "lFaceMatch()",                     "-3");
        commandRow("negative as it is",    "lImageIdMatch",          "a,b,c",       -1LL,    "lImageIdMatch(a,b)",               "-1");
        commandRow("one path",             "lImageIdMatch",          "a",           {},      "",                                 "-99");
        commandRow("two paths",            "bImageMatch",            "a,中",         true,    "bImageMatch(a,中)",                 "true");
        commandRow("one path",             "bImageMatch",            "a",           {},      "",                                 "false");
        commandRow("refused",              "bFaceFeatureGet",        "2,a,b,c",     false,   "bFaceFeatureGet(true,a,b,listener,context)", "");
        commandRow("two fields",           "bFaceFeatureGet",        "1,a",         {},      "",                                 "");
        commandRow("fourth source first",  "bImageMatchOnline",      "a,1,2,x,5",   true,    "bStopPlay4() bImageMatchOnline(a,1,2,0,listener)", "true");
        commandRow("three fields",         "bImageMatchOnline",      "a,1,2",       {},      "",                                 "false");
        commandRow("refused",              "bFaceFeatureGetOnline",  "1,2",         false,   "bFaceFeatureGetOnline(1,2,listener)",   "false");
        commandRow("one field",            "bFaceFeatureGetOnline",  "1",           {},      "",                                 "false");
        commandRow("two fields",           "bLivingBodyDetectOnline","1,2,3",       true,    "bLivingBodyDetectOnline(1,2,listener)", "true");
        commandRow("one field",            "bLivingBodyDetectOnline","",            {},      "",                                 "false");
        commandRow("taken over",           "AutoLivingBody",         "",            true,    "AutoLivingBody(listener)",         "true");
        commandRow("refused",              "AutoLivingBody",         "x",           false,   "AutoLivingBody(listener)",         "false");
        commandRow("answers later",        "CloseLivingBody",        "",            {},      "CloseLivingBody(listener)",        nullptr);

        commandRow("milliseconds",         "fingerCaptureRawData",   "5",           {},      "fingerCaptureRawData(5000,listener,context)",   nullptr);
        commandRow("no number",            "fingerCaptureRawData",   "",            {},      "fingerCaptureRawData(0,listener,context)",      nullptr);
        commandRow("a month and more",     "fingerCaptureRawData",   "2147483647",  {},      "fingerCaptureRawData(2147483647,listener,context)", nullptr);
        commandRow("features joined",      "lFingerMatch",           "1,AABB,2,CC,DD", 80,   "lFingerMatch(1,aabb,2,ccdd)",      "80");
        commandRow("decoded separately",   "lFingerMatch",           "1,AABB,2,C,,DD,E", 0,  "lFingerMatch(1,aabb,2,0cdd0e)",    "0");
        commandRow("no hex",               "lFingerMatch",           "x,zz,-1,",    -5,      "lFingerMatch(0,,-1,)",             "-5");
        commandRow("three fields",         "lFingerMatch",           "1,AABB,2",    {},      "",                                 "0");
        commandRow("not supported",        "bSaveZAZFPBMP",          "anything",    {},      "",                                 "false");
        commandRow("not supported",        "bSaveZAZFPBMPBase64",    "",            {},      "",                                 "false");
        // clang-format on
    }

    void features_data()
    {
        const Rows<QString, QString, int, QString> row("first", "second", "calls", "score");
        const QString good = featureOf(101);
        row("long enough", good, featureOf(2000), 1, "77");
        row("100 bytes", good, featureOf(100), 0, "0");
        row("20 characters", QString(20, QLatin1Char('A')), good, 0, "0");
        row("21 characters", QString(21, QLatin1Char('A')), good, 0, "0");
        row("no base64", QString(500, QLatin1Char('!')), good, 0, "0");
        row("not even Latin", QString(500, QChar(0x4E2D)), good, 0, "0");
        row("empty", QString(), QString(), 0, "0");
    }

    void features()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(int, calls);
        recording::answer("lFaceFeatureMatch", 77LL);
        const auto score = [&] {
            send(QStringLiteral("lFaceFeatureMatch(%1,%2)").arg(first, second));
            return page().next().mid(22).section(QLatin1String("End"), 0, 0);
        };
        QTEST(score(), "score");
        QCOMPARE(recording::count("lFaceFeatureMatch"), calls);
        recording::answer("lFaceFeatureMatch", -2LL);
        QCOMPARE(score(), QStringLiteral("0"));
    }

    void featureOfAFace()
    {
        recording::answer("bFaceFeatureGet", true, "Zm9v");
        send("bFaceFeatureGet(0,a,b)");
        QCOMPARE(recording::takeText(),
                 QStringLiteral("bFaceFeatureGet(false,a,b,listener,context)"));
        QCOMPARE(page().next(), QStringLiteral("BeginbFaceFeatureGetZm9vEndbFaceFeatureGet"));
    }

    void eventsGoToThePageThatIsCurrentThen()
    {
        setCurrent(false);
        send("bImageMatchOnline(a,1,2,3)");
        send("bFaceFeatureGetOnline(1,2)");
        send("bLivingBodyDetectOnline(1,2)");
        const auto onMatch = recording::listener<void(int, void *)>("bImageMatchOnline");
        const auto onFeature =
            recording::listener<void(const char *, void *)>("bFaceFeatureGetOnline");
        const auto onLiving = recording::listener<void(int, void *)>("bLivingBodyDetectOnline");

        onOtherThread([=] { onMatch(-1, nullptr); });
        setCurrent(true);
        onOtherThread([=] { onFeature("Zm9v", nullptr); });
        onOtherThread([=] { onFeature(nullptr, nullptr); });
        onOtherThread([=] { onLiving(2, nullptr); });
        onOtherThread([=] { onLiving(0, nullptr); });
        for (const char *event : {
                 "BeginAfterbImageMatchOnline-1EndAfterbImageMatchOnline",
                 "BeginAfterbFaceFeatureGetOnlineZm9vEndAfterbFaceFeatureGetOnline",
                 "BeginAfterbFaceFeatureGetOnlineEndAfterbFaceFeatureGetOnline",
                 "BeginAfterbLivingBodyDetectOnlinetrueEndAfterbLivingBodyDetectOnline",
                 "BeginAfterbLivingBodyDetectOnlinefalseEndAfterbLivingBodyDetectOnline",
             }) {
            QCOMPARE(page().next(), QString::fromUtf8(event));
        }

        // The page leaves while events come.
        std::thread library([=] {
            for (int i = 0; i < 500; ++i) {
                onMatch(i, nullptr);
            }
        });
        for (int i = 0; i < 20; ++i) {
            PagePair other;
            gpWebSocket = other.serverSide();
            QCoreApplication::processEvents();
        }
        library.join();
        setCurrent(false);
        QCoreApplication::processEvents();
    }

    void liveness()
    {
        Messages messages(CaptureImgThread::instance());
        send("AutoLivingBody()");
        const auto onData = recording::listener<void(const char *, int, int)>("AutoLivingBody");
        onOtherThread([=] {
            onData("/9j/frame", 9, 0);
            onData("/9j/frame", 9, 0);
            onData("/9j/dropped", 11, 0); // the first two are still queued
            onData("a\0b", 3, 1);
            onData("ignored", 7, 2);
            onData(nullptr, 5, 1);
            onData("x", -1, 1);
        });
        QCOMPARE(messages.nextFrame(), QByteArray("/9j/frame"));
        QCOMPARE(messages.nextFrame(), QByteArray("/9j/frame"));
        QCOMPARE(messages.next(),
                 QByteArray("BeginAfterbLivingBodyDetectEvent2a\0b"
                            "EndAfterbLivingBodyDetectEvent2",
                            67));
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(
                messages.next(),
                QByteArray("BeginAfterbLivingBodyDetectEvent2EndAfterbLivingBodyDetectEvent2"));
        }

        send("CloseLivingBody()");
        const auto onDone = recording::listener<void()>("CloseLivingBody");
        onOtherThread(onDone);
        QCOMPARE(messages.next(), QByteArray("BeginCloseLivingBodytrueEndCloseLivingBody"));
    }

    void livenessPagePausesThePreview()
    {
        Messages messages(CaptureImgThread::instance());
        for (const int result : {1, 2, 0}) {
            send("ShowLivingBodyPage()");
            QVERIFY(recording::takeText().contains(QLatin1String("DemoUIShow(0,listener)")));
            CaptureImgThread::instance()->closeCamera(); // waits for the end of the pause
            const auto onResult = recording::listener<void(int)>("DemoUIShow");
            onOtherThread([=] { onResult(result); });
            QCOMPARE(page().next(),
                     QStringLiteral("BeginShowLivingBodyPage%1EndShowLivingBodyPage")
                         .arg(MessageRun::truth(result == 1)));
            QCOMPARE(messages.next(), QByteArray("BeginbStopPlayfalseEndbStopPlay"));
        }
    }

    void onlyTheNewestComparisonIsMade()
    {
        FaceMatchThread thread;
        Messages messages(&thread);
        recording::answer("lImageMatch", 88);
        recording::hold("lImageMatch");
        thread.match(QStringLiteral("a"), QStringLiteral("中"));
        QVERIFY(recording::waitFor("lImageMatch"));
        for (int i = 1; i <= 5; ++i) {
            thread.match(QStringLiteral("a"), QString::number(i));
        }
        recording::release("lImageMatch");
        QCOMPARE(messages.next(), QByteArray("BeginlImageMatch88EndlImageMatch"));
        QCOMPARE(messages.next(), QByteArray("BeginlImageMatch88EndlImageMatch"));
        QCOMPARE(recording::takeText(), QStringLiteral("lImageMatch(a,中) lImageMatch(a,5)"));
        QVERIFY(messages.list().isEmpty());
    }

    void eachLivenessCheckHasItsReply()
    {
        LivingBodyDetectThread thread;
        Messages messages(&thread);
        recording::answerOnce("bLivingBodyDetect", true);
        recording::answer("bLivingBodyDetect", false);
        for (int i = 0; i < 3; ++i) {
            thread.Detect();
        }
        QCOMPARE(messages.next(), QByteArray("BeginbLivingBodyDetecttrueEndbLivingBodyDetect"));
        QCOMPARE(messages.next(), QByteArray("BeginbLivingBodyDetectfalseEndbLivingBodyDetect"));
        QCOMPARE(messages.next(), QByteArray("BeginbLivingBodyDetectfalseEndbLivingBodyDetect"));
    }

    void fingerCapture()
    {
        send("fingerCaptureRawData(5)");
        using Listener = void(QByteArray, QByteArray, int, const char *, void *);
        const auto onCapture = recording::listener<Listener>("fingerCaptureRawData");
        void *const context = recording::contextOf("fingerCaptureRawData");
        QCOMPARE(context, static_cast<void *>(&m_dispatcher));
        const auto answer = [&](int score, const char *message) {
            onOtherThread([=] { onCapture("aW1n", "AA\"55", score, message, context); });
            return page().next();
        };
        const auto json = [](const char *text) {
            return QStringLiteral("BeginfingerCaptureRawData%1EndfingerCaptureRawData")
                .arg(QString::fromUtf8(text));
        };
        QCOMPARE(answer(0, "好"),
                 json("{\"feature\":\"AA\\\"55\",\"image\":\"aW1n\",\"msg\":\"好\","
                      "\"score\":0}"));
        QCOMPARE(answer(-1, nullptr),
                 json("{\"feature\":\"\",\"image\":\"\",\"msg\":\"\",\"score\":-1}"));
    }
};

QTEST_GUILESS_MAIN(TestFaceCommands)
#include "tst_facecommands.moc"
