// SPDX-License-Identifier: MIT
#include "camera/captureimgthread.h"
#include "tests/manualclock.h"
#include "tests/messages.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"

#include <QImage>
#include <QtTest>

#include <algorithm>
#include <ctime>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using Pauses = std::vector<std::chrono::milliseconds>;

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

/// A capture thread whose waits are over at once, and what it emits.
struct Capture
{
    Capture() { clock.runFree(); }
    ~Capture() { recording::release("getVideoFrame"); }

    /// The waits other than that of each pass.
    Pauses takePauses()
    {
        Pauses waits = clock.takeWaits();
        waits.erase(std::remove(waits.begin(), waits.end(), 20ms), waits.end());
        return waits;
    }

    /// Stops the thread in its next fetch of a frame, until that is released.
    void holdFrames()
    {
        recording::hold("getVideoFrame");
        QVERIFY(recording::waitUntilHeld("getVideoFrame"));
    }

    ManualClock clock;
    CaptureImgThread thread{clock};
    Messages messages{&thread};

    QByteArray open(int code)
    {
        thread.openCamera(code);
        return messages.next();
    }
};

/// A capture thread that has ended its last pass before a pause, without a camera.
struct PausedCapture : Capture
{
    PausedCapture()
    {
        recording::answer("bStartPlay", true);
        open(1);
        holdFrames();
        thread.setPause(true);
        recording::release("getVideoFrame");
        thread.silenceClose(); // returns when the pass has ended
        recording::takeCalls();
        clock.takeWaits();
    }
};

/// Makes getVideoFrame fail that many times, then deliver pictures.
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
        QVERIFY(capture.takePauses() == (Pauses{500ms, 1000ms}));

        recording::answerOnce(function, false);
        recording::answerOnce(function, false);
        recording::answerOnce(function, true);
        QCOMPARE(capture.open(code), "Begin" + name + "trueEnd" + name);
        QCOMPARE(recording::takeText(), tries);
    }

    void alreadyOpen_data()
    {
        const Rows<int, int, QByteArray, QString> row("code", "again", "reply", "calls");
        // clang-format off
        row("main camera",              1, 1,   "BeginbStartPlaytrueEndbStartPlay",             "");
        row("main camera, other name",  1, 11,  "BeginbStartPlayRotatetrueEndbStartPlayRotate", "");
        row("main camera, former name", 11, 1,  "BeginbStartPlaytrueEndbStartPlay",             "");
        row("dual camera",              25, 25, "BeginbDualCameraOpentrueEndbDualCameraOpen",   "");
        row("camera 5 restarts",        5, 5,   "BeginbStartPlay5trueEndbStartPlay5",           "bStopPlay() bStartPlay5(90)");
        row("camera 5 counts as 3",     5, 3,   "BeginbStartPlay3trueEndbStartPlay3",           "");
        // clang-format on
    }

    void alreadyOpen()
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

    void failedStartKeepsThePreviousCamera()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.open(1);
        QCOMPARE(capture.open(2), QByteArray("BeginbStartPlay2falseEndbStartPlay2"));
        recording::takeCalls();
        // It still counts as open, though it was stopped ...
        QCOMPARE(capture.open(1), QByteArray("BeginbStartPlaytrueEndbStartPlay"));
        QCOMPARE(recording::takeText(), QString());
        // ... and is restarted after six failures.
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
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlayfalseEndbStopPlay"));
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
        recording::takeCalls();
        capture.thread.silenceClose();
        QVERIFY(capture.open(1).contains("true"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90)"));
    }

    void silentCloseForgetsTheQueue()
    {
        PausedCapture capture;
        capture.thread.openCamera(1);
        capture.thread.openCamera(2);
        capture.thread.silenceClose();
        capture.thread.closeCamera();
        capture.thread.setPause(false);
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopPlay()"));
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
        const QByteArray text = capture.messages.nextFrame();
        QTEST(sizeOfFrame(text), "pushed");
        QCOMPARE(QByteArray::fromBase64(text).toBase64(), text); // nothing but base64
    }

    void framesWithoutAJpegAreSkipped()
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
        QVERIFY(capture.messages.frames().isEmpty());
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
        QVERIFY(capture.messages.frames().isEmpty());
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
        QVERIFY(capture.messages.nextFrame().startsWith("/9j/"));
        QCOMPARE(recording::takeCalls().mid(1),
                 QStringList({QStringLiteral("bStopPlay()"), restart}));
        QVERIFY(capture.takePauses() == (Pauses{1s, 1s, 1s, 1s, 1s, 1s, 3s}));
    }

    void fiveFailuresDoNot()
    {
        failFrames(5);
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.open(1);
        QVERIFY(capture.messages.nextFrame().startsWith("/9j/"));
        // A pushed frame resets the count, so that five more failures restart nothing.
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
        QVERIFY(capture.messages.nextFrame().startsWith("/9j/"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90) bStopPlay() bStartPlay(0)"));
    }

    void disabledPreviewKeepsTheFailures()
    {
        // Five failures, frames that are not pushed, one more failure: the sixth.
        failFrames(5);
        for (int i = 0; i < 3; ++i) {
            recording::answerOnce("getVideoFrame", true, picture());
        }
        recording::answerOnce("getVideoFrame", false);
        recording::answer("bStartPlay", true);
        Capture capture;
        capture.thread.vSetPreviewEnable(false);
        capture.open(1);
        QVERIFY(recording::waitFor("bStartPlay", 2));
        QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90) bStopPlay() bStartPlay(0)"));
    }

    void pauseHoldsOperations()
    {
        recording::answer("bStartPlay2", true);
        PausedCapture capture;
        capture.thread.closeCamera();
        capture.thread.openCamera(1);
        capture.thread.openCamera(2);
        QCOMPARE(recording::takeText(), QString());
        capture.thread.setPause(false);
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStartPlaytrueEndbStartPlay"));
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStartPlay2trueEndbStartPlay2"));
    }

    void restCostsNothing_data()
    {
        const Rows<bool> row("isPaused");
        row("paused", true);
        row("no camera", false);
    }

    void restCostsNothing()
    {
        QFETCH(bool, isPaused);
        PausedCapture capture;
        capture.thread.setPause(isPaused);
        std::this_thread::sleep_for(10ms); // it gets to its wait
        capture.clock.takeWaits();
        const std::clock_t before = std::clock(); // of the whole process
        std::this_thread::sleep_for(100ms); // the period that is measured
        QVERIFY((std::clock() - before) * 1000 / CLOCKS_PER_SEC < 50);
        QVERIFY(capture.clock.takeWaits().empty());
    }

    void aPauseHoldsWhatComesToAThreadAtRest()
    {
        Capture capture;
        std::this_thread::sleep_for(10ms); // it gets to its wait
        recording::takeCalls();
        capture.thread.setPause(true);
        capture.thread.closeCamera();
        std::this_thread::sleep_for(50ms);
        QCOMPARE(recording::takeText(), QString());
        capture.thread.setPause(false);
        QCOMPARE(capture.messages.next(), QByteArray("BeginbStopPlaytrueEndbStopPlay"));
    }

    void howLongItWaitsForAFrame()
    {
        recording::answer("bStartPlay", true);
        ManualClock clock;
        CaptureImgThread thread(clock);
        Messages messages(&thread);
        clock.advance(1h);
        thread.openCamera(1);
        QVERIFY(messages.next().contains("true"));
        QVERIFY(clock.waitForWaiter(20ms));
        clock.advance(15ms);
        QVERIFY(thread.figures().waiting == 15ms);
        clock.advance(5ms);
        QVERIFY(recording::waitFor("getVideoFrame", 1));
        QVERIFY(clock.waitForWaiter(20ms));
        QVERIFY(thread.figures().waiting == 0ms);
        thread.setPause(true);
        clock.advance(19ms);
        QVERIFY(thread.figures().waiting == 0ms);
        thread.setPause(false);
        QVERIFY(thread.figures().waiting == 0ms);
    }

    void pausedThreadEnds()
    {
        PausedCapture capture;
        capture.thread.destory();
        QVERIFY(capture.thread.wait(10000));
    }

    void aPassTakes20Milliseconds()
    {
        recording::answer("bStartPlay", true);
        ManualClock clock;
        CaptureImgThread thread(clock);
        Messages messages(&thread);
        thread.openCamera(1);
        QVERIFY(messages.next().contains("true"));
        for (int frame = 1; frame <= 3; ++frame) {
            QVERIFY(clock.waitForWaiter(20ms));
            clock.advance(19ms);
            QCOMPARE(recording::count("getVideoFrame"), frame - 1);
            clock.advance(1ms);
            QVERIFY(recording::waitFor("getVideoFrame", frame));
        }
    }

    void aStalledMainThreadGetsTwoFramesAndEveryResult()
    {
        recording::answer("bStartPlay", true);
        Capture capture;
        QVERIFY(capture.open(1).contains("true"));
        QVERIFY(capture.messages.nextFrame().startsWith("/9j/"));
        capture.holdFrames();
        QCoreApplication::processEvents();
        const int before = capture.messages.frames().size();

        // The main thread is in a slow device call: no event is handled.
        recording::release("getVideoFrame");
        recording::takeCalls();
        QVERIFY(recording::waitFor("getVideoFrame", 30));
        for (int i = 0; i < 20; ++i) {
            capture.thread.openCamera(1);
        }
        QVERIFY(recording::waitFor("getVideoFrame", 60));
        capture.holdFrames();

        QCoreApplication::processEvents();
        QCOMPARE(capture.messages.frames().size() - before, 2);
        QCOMPARE(capture.messages.list().size(), 20);

        // Frames go on, and it is the same again.
        recording::release("getVideoFrame");
        for (int i = 0; i < before + 5; ++i) {
            QVERIFY(capture.messages.nextFrame().startsWith("/9j/"));
        }
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
