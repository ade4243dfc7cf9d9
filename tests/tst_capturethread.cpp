// SPDX-License-Identifier: MIT
#include "camera/captureimgthread.h"
#include "tests/messages.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"

#include <QImage>
#include <QtTest>

#include <ctime>
#include <memory>

using namespace std::chrono_literals;

namespace {

constexpr CaptureImgThread::Waits shortWaits{1ms, 1ms, 1ms, 1ms, 1ms};

QImage picture(QSize size = {1920, 1080})
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    return image;
}

QSize sizeOfFrame(const QByteArray &text)
{
    return QImage::fromData(QByteArray::fromBase64(text), "JPG").size();
}

/// A capture thread with short waits, and what it says.
struct Capture
{
    CaptureImgThread thread{shortWaits};
    Messages messages{&thread};

    QByteArray open(int code)
    {
        thread.openCamera(code);
        return messages.nextReply();
    }
};

/// Makes getVideoFrame fail so many times, counted, then deliver a picture.
void failFrames(int times)
{
    recording::answer("getVideoFrame", true, picture());
    for (int i = 0; i < times; ++i) {
        recording::answerOnce("getVideoFrame", false);
    }
}

} // namespace

class TestCaptureThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        recording::reset();
        recording::mute({"getVideoFrame", "iGetRotate"});
        recording::answer("getVideoFrame", true, picture());
        recording::answer("iGetRotate", short{90});
        recording::answer("bStopPlay", true);
    }

    void threeTries_data() { cameras(); }
    void threeTries()
    {
        QFETCH(int, code);
        QFETCH(QString, first);
        QFETCH(QString, last);
        const QByteArray name = QTest::currentDataTag();
        const QByteArray function = functionOf(first);
        const QString tries =
            QStringLiteral("%1 bStopPlay() %1 bStopPlay() %2").arg(first, last); // all of them

        Capture capture;
        QCOMPARE(capture.open(code), "Begin" + name + "falseEnd" + name);
        QCOMPARE(recording::takeText(), tries);

        recording::answerOnce(function, false);
        recording::answerOnce(function, false);
        recording::answerOnce(function, true);
        QCOMPARE(capture.open(code), "Begin" + name + "trueEnd" + name);
        QCOMPARE(recording::takeText(), tries);
    }

    void pausesBetweenTries()
    {
        CaptureImgThread::Waits waits = shortWaits;
        waits.secondTry = 50ms;
        waits.thirdTry = 100ms;
        CaptureImgThread thread(waits);
        Messages messages(&thread);
        QElapsedTimer timer;
        timer.start();
        thread.openCamera(1);
        QCOMPARE(messages.next(), QByteArray("BeginbStartPlayfalseEndbStartPlay"));
        QVERIFY(timer.elapsed() >= 150);

        const CaptureImgThread::Waits usual;
        QCOMPARE(usual.pass.count(), 20);
        QCOMPARE(usual.secondTry.count(), 500);
        QCOMPARE(usual.thirdTry.count(), 1000);
        QCOMPARE(usual.failedFrame.count(), 1000);
        QCOMPARE(usual.restart.count(), 3000);
    }

    void openAlready_data()
    {
        const Rows<int, int, QByteArray, QString> row("code", "again", "reply", "calls");
        // clang-format off
        row("main camera",              1, 1,   "BeginbStartPlaytrueEndbStartPlay",             "");
        row("main camera, other name",  1, 11,  "BeginbStartPlayRotatetrueEndbStartPlayRotate", "");
        row("main camera, former name", 11, 1,  "BeginbStartPlaytrueEndbStartPlay",             "");
        row("dual camera",              25, 25, "BeginbDualCameraOpentrueEndbDualCameraOpen",   "");
        row("camera 5 starts anew",     5, 5,   "BeginbStartPlay5trueEndbStartPlay5",           "bStopPlay() bStartPlay5(90)");
        row("camera 5 counts as 3",     5, 3,   "BeginbStartPlay3trueEndbStartPlay3",           "");
        // clang-format on
    }

    void openAlready()
    {
        QFETCH(int, code);
        QFETCH(int, again);
        for (const char *start : {"bStartPlay", "bStartPlay5", "bStartPlayOpen"}) {
            recording::answer(start, true);
        }
        Capture capture;
        QVERIFY(capture.open(code).contains("true"));
        recording::takeCalls();
        QTEST(capture.open(again), "reply");
        QTEST(recording::takeText(), "calls");
    }

    void openingAnotherStopsTheFirst()
    {
        recording::answer("bStartPlay", true);
        recording::answer("bStartPlay2", true);
        Capture capture;
        capture.open(1);
        QCOMPARE(capture.open(2), QByteArray("BeginbStartPlay2trueEndbStartPlay2"));
        QCOMPARE(recording::takeText(),
                 QStringLiteral("bStartPlay(90) bStopPlay() bStartPlay2(0)"));
    }

    void failedStartKeepsTheFormerCamera()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.open(1);
        QCOMPARE(capture.open(2), QByteArray("BeginbStartPlay2falseEndbStartPlay2"));
        recording::takeCalls();
        // It counts as open, though it was stopped ...
        QCOMPARE(capture.open(1), QByteArray("BeginbStartPlaytrueEndbStartPlay"));
        QCOMPARE(recording::takeText(), QString());
        // ... and is what comes back after six failures.
        failFrames(6);
        QVERIFY(recording::waitFor("bStartPlay"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopPlay() bStartPlay(0)"));
    }

    void stopping()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.thread.closeCamera();
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopPlay()"));

        recording::answer("bStopPlay", false);
        capture.open(1);
        capture.thread.closeCamera();
        QCOMPARE(capture.messages.nextReply(), QByteArray("BeginbStopPlayfalseEndbStopPlay"));
        // Stopped all the same: the next start asks the device again.
        recording::takeCalls();
        capture.open(1);
        QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90)"));
    }

    void unknownCodes()
    {
        Capture capture;
        for (const int code : {0, 4, 7, -1, 10, 12, 24, 26, INT_MAX}) {
            capture.thread.openCamera(code);
        }
        capture.thread.closeCamera();
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopPlay()"));
    }

    void silentClose()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.open(1);
        recording::hold("getVideoFrame");
        recording::takeCalls();
        QVERIFY(recording::waitFor("getVideoFrame"));
        // Queued while the thread is in the middle of a pass, then forgotten in the next moment.
        std::thread closer([&capture] { capture.thread.silenceClose(); });
        recording::release("getVideoFrame");
        closer.join();
        QVERIFY(capture.open(1).contains("true"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90)"));
    }

    void silentCloseForgetsTheQueue()
    {
        Capture capture;
        capture.thread.closeCamera();
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        capture.thread.setPause(true);
        recording::takeCalls();
        QTRY_VERIFY(capture.messages.list().isEmpty());
        capture.thread.openCamera(1);
        capture.thread.openCamera(2);
        capture.thread.silenceClose();
        capture.thread.setPause(false);
        capture.thread.closeCamera();
        // A pass that was under way when the pause began may have taken the first.
        QByteArray reply = capture.messages.next();
        if (reply == "BeginbStartPlayfalseEndbStartPlay") {
            reply = capture.messages.next();
        }
        QCOMPARE(reply, QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        QVERIFY(!recording::takeText().contains(QLatin1String("bStartPlay2")));
    }

    void frames_data()
    {
        const Rows<QSize, QSize, QSize> row("camera", "preview", "pushed");
        // clang-format off
        row("usual size",                    QSize(1920, 1080), QSize(800, 600),  QSize(800, 600));
        row("both below tenfold",            QSize(100, 80),    QSize(999, 799),  QSize(999, 799));
        row("width tenfold, height follows", QSize(100, 80),    QSize(1200, 700), QSize(1000, 800));
        row("exactly tenfold in width",      QSize(100, 80),    QSize(1000, 700), QSize(1000, 800));
        row("height tenfold, width follows", QSize(100, 80),    QSize(900, 800),  QSize(1000, 800));
        // clang-format on
    }

    void frames()
    {
        QFETCH(QSize, camera);
        QFETCH(QSize, preview);
        recording::answer("bStartPlay", true);
        recording::answer("getVideoFrame", true, picture(camera));
        Capture capture;
        capture.thread.vSetPreViewSize(preview.width(), preview.height());
        QVERIFY(capture.open(1).contains("true"));
        const QByteArray text = capture.messages.next();
        QTEST(sizeOfFrame(text), "pushed");
        QCOMPARE(QByteArray::fromBase64(text).toBase64(), text); // nothing but base64
    }

    void framesThatHaveNoJpegAreLeftOut()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.thread.vSetZoomFactor(-200);
        capture.thread.vZoomOut();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("no preview frames")));
        capture.open(1);
        recording::takeCalls();
        QVERIFY(recording::waitFor("getVideoFrame", 20));
        capture.thread.closeCamera();
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
    }

    void disabledPreviewFetchesButPushesNothing()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.thread.vSetPreviewEnable(false);
        capture.open(1);
        recording::takeCalls();
        QVERIFY(recording::waitFor("getVideoFrame", 5));
        capture.thread.closeCamera();
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
    }

    void sixFailuresRestart_data() { cameras(); }
    void sixFailuresRestart()
    {
        QFETCH(int, code);
        QFETCH(QString, first);
        QFETCH(QString, restart);
        failFrames(6);
        recording::answer(functionOf(first), true);
        QTest::ignoreMessage(QtDebugMsg, "capture error");
        Capture capture;
        QVERIFY(capture.open(code).contains("true"));
        QVERIFY(capture.messages.next().startsWith("/9j/"));
        QCOMPARE(recording::takeCalls().mid(1),
                 QStringList({QStringLiteral("bStopPlay()"), restart}));
    }

    void fiveFailuresDoNot()
    {
        failFrames(5);
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.open(1);
        QVERIFY(capture.messages.next().startsWith("/9j/"));
        // A frame that was pushed ends the count: five more do no harm either.
        failFrames(5);
        recording::takeCalls();
        QVERIFY(recording::waitFor("getVideoFrame", 8));
        QCOMPARE(recording::takeText(), QString());
    }

    void aNullPictureIsAFailure()
    {
        for (int i = 0; i < 6; ++i) {
            recording::answerOnce("getVideoFrame", true, QImage());
        }
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.open(1);
        QVERIFY(capture.messages.next().startsWith("/9j/"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90) bStopPlay() bStartPlay(0)"));
    }

    void disabledPreviewKeepsTheFailures()
    {
        // Five failures, frames that nobody gets to see, one more failure: that is the sixth.
        failFrames(5);
        for (int i = 0; i < 3; ++i) {
            recording::answerOnce("getVideoFrame", true, picture());
        }
        recording::answerOnce("getVideoFrame", false);
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.thread.vSetPreviewEnable(false);
        capture.open(1);
        recording::takeCalls();
        QVERIFY(recording::waitFor("bStartPlay"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopPlay() bStartPlay(0)"));
    }

    void pauseHoldsOperationsAndFrames()
    {
        recording::answer("bStartPlay", true);
        recording::answer("bStartPlay2", true);
        Capture capture;
        capture.thread.setPause(true);
        // A pass may be under way still; none begins after it.
        capture.thread.closeCamera();
        capture.thread.openCamera(1);
        capture.thread.openCamera(2);
        QTest::qWait(50);
        QVERIFY(capture.messages.list().size() <= 1);
        capture.thread.setPause(false);
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStartPlaytrueEndbStartPlay"));
        QCOMPARE(capture.messages.nextReply(), QByteArray("BeginbStartPlay2trueEndbStartPlay2"));
    }

    void pauseCostsNothing()
    {
        Capture capture;
        capture.thread.setPause(true);
        const std::clock_t before = std::clock(); // of the whole process
        QTest::qWait(300);
        QVERIFY((std::clock() - before) * 1000 / CLOCKS_PER_SEC < 100);
    }

    void pausedThreadEnds()
    {
        auto capture = std::make_unique<Capture>();
        capture->thread.setPause(true);
        capture->thread.destory();
        QVERIFY(capture->thread.wait(10000));
    }

    void aBusyMainThreadGetsTwoFramesAndEveryResult()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        QVERIFY(capture.open(1).contains("true"));
        QVERIFY(capture.messages.next().startsWith("/9j/"));

        // The main thread is in a slow device call: no event is handled.
        recording::takeCalls();
        capture.messages.clear();
        QVERIFY(recording::waitFor("getVideoFrame", 30));
        for (int i = 0; i < 20; ++i) {
            capture.thread.openCamera(1);
        }
        QVERIFY(recording::waitFor("getVideoFrame", 60));
        capture.thread.closeCamera();
        QVERIFY(recording::waitFor("bStopPlay"));
        capture.thread.destory();
        QVERIFY(capture.thread.wait(10000));

        QCoreApplication::processEvents();
        int frames = 0;
        int replies = 0;
        for (const QByteArray &message : capture.messages.list()) {
            ++(message.startsWith("/9j/") ? frames : replies);
        }
        QCOMPARE(frames, 2);
        QCOMPARE(replies, 21);
        QCOMPARE(capture.messages.list().last(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
    }

private:
    static QByteArray functionOf(const QString &call)
    {
        return call.section(QLatin1Char('('), 0, 0).toLatin1();
    }

    /// By the names of the commands.
    static void cameras()
    {
        const Rows<int, QString, QString, QString> row("code", "first", "last", "restart");
        // clang-format off
        //  name                code  first and second try  third try           after failed frames
        row("bStartPlay",       1,    "bStartPlay(90)",     "bStartPlay(90)",   "bStartPlay(0)");
        row("bStartPlayRotate", 11,   "bStartPlay(90)",     "bStartPlay(90)",   "bStartPlay(0)");
        row("bStartPlay2",      2,    "bStartPlay2(0)",     "bStartPlay2(0)",   "bStartPlay2(0)");
        row("bStartPlay3",      3,    "bStartPlay3(0)",     "bStartPlay3(0)",   "bStartPlay3(0)");
        row("bStartPlay5",      5,    "bStartPlay5(90)",    "bStartPlay5(0)",   "bStartPlay3(0)");
        row("bStartPlay6",      6,    "bStartPlay6(90)",    "bStartPlay6(0)",   "bStartPlay6(0)");
        row("bStartPlay8",      8,    "bStartPlay8(90)",    "bStartPlay8(0)",   "bStartPlay8(0)");
        row("bStartPlay9",      9,    "bStartPlay9(90)",    "bStartPlay9(0)",   "bStartPlay9(0)");
        row("bStartPlayOpen",   25,   "bStartPlayOpen()",   "bStartPlayOpen()", "bStartPlayOpen()");
        // clang-format on
    }
};

QTEST_GUILESS_MAIN(TestCaptureThread)
#include "tst_capturethread.moc"
