// SPDX-License-Identifier: MIT
// The portable library's camera threads: readers, settings, loss and return, many callers at once.
#include "portable/camera/cameraset.h"
#include "portable/camera/camerasources.h"
#include "portable/camera/filesources.h"
#include "portable/camera/pairsource.h"
#include "portable/camera/previewwatch.h"
#include "tests/fakesource.h"
#include "tests/manualclock.h"
#include "tests/portabletest.h"

#include <QtTest>

#include <future>
#include <thread>

using namespace portable;
using namespace std::chrono_literals;

namespace {

int frameNumber(const cv::Mat &frame)
{
    return frame.at<cv::Vec3b>(0, 0)[0];
}

/// Camera 1 with its device. No wait times out unless the test moves the time.
struct OneCamera
{
    explicit OneCamera(double framesPerSecond = 0)
        : camera(1, std::make_unique<FakeSource>(device, framesPerSecond), settings, clock)
    {
    }
    ~OneCamera() { device->fail(QStringLiteral("the test is over")); } // ends a read in progress

    /// Starts the camera, which gets only the first frame.
    bool startHeld()
    {
        device->holdFrames();
        device->deliver(1);
        return camera.start();
    }

    ManualClock clock;

    Settings settings;
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    Camera camera;
};

/// Cameras that all share one device, except number 3, which doesn't exist.
struct ManyCameras
{
    ManualClock clock;
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    CameraSet cameras{[this](int camera, QString *error) -> std::unique_ptr<FrameSource> {
                          if (camera == 3) {
                              *error = QStringLiteral("there is none");
                              return nullptr;
                          }
                          return std::make_unique<FakeSource>(device);
                      },
                      clock};
};

} // namespace

class TestPortableCameras : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void everyReaderGetsEachFrameOnce()
    {
        OneCamera one;
        QVERIFY(one.startHeld());
        cv::Mat frame;
        quint64 fast = 0;
        quint64 slow = 0;
        for (int number = 1; number <= 3; ++number) {
            QVERIFY(one.camera.nextFrame(fast, frame));
            QCOMPARE(frameNumber(frame), number);
            QVERIFY(one.camera.currentFrame(frame)); // takes no frame from the readers
            QCOMPARE(frameNumber(frame), number);
            one.device->deliver(1);
        }
        QVERIFY(one.camera.nextFrame(fast, frame));
        QVERIFY(one.camera.nextFrame(slow, frame)); // has missed three, gets the newest
        QCOMPARE(frameNumber(frame), 4);
        QCOMPARE(slow, fast);
    }

    void waitIsBounded()
    {
        OneCamera one;
        QVERIFY(one.startHeld());
        cv::Mat frame;
        quint64 sequence = 0;
        QVERIFY(one.camera.nextFrame(sequence, frame));
        auto next =
            std::async(std::launch::async, [&] { return one.camera.nextFrame(sequence, frame); });
        QVERIFY(one.clock.waitForWaiter(frameTimeout));
        one.clock.advance(frameTimeout - 1ms);
        QVERIFY(next.wait_for(5ms) == std::future_status::timeout);
        one.clock.advance(1ms);
        QVERIFY(!next.get());
        QVERIFY(frame.empty());
        QVERIFY(one.camera.currentFrame(frame)); // there still is one

        one.settings.setRotation(90); // no frame taken with it comes
        auto current =
            std::async(std::launch::async, [&] { return one.camera.currentFrame(frame); });
        QVERIFY(one.clock.waitForWaiter(frameTimeout));
        one.clock.advance(frameTimeout);
        QVERIFY(current.get());
        QCOMPARE(frame.cols, 40);
    }

    void framesThatNobodyTakesAreSkipped()
    {
        OneCamera one;
        one.device->canSkip = true;
        QVERIFY(one.startHeld());
        cv::Mat frame;
        quint64 sequence = 0;
        QVERIFY(one.camera.nextFrame(sequence, frame));
        one.clock.advance(idleAfter - 1ms);
        one.device->deliver(2); // the third one's read begins now
        while (frameNumber(frame) < 3) {
            const quint64 before = sequence;
            QVERIFY(one.camera.nextFrame(sequence, frame));
            QVERIFY(sequence > before);
        }
        QCOMPARE(int(one.device->skipped), 0);
        one.clock.advance(idleAfter);
        one.device->deliver(4); // the first one's read may have begun
        QTRY_VERIFY(one.device->skipped >= 3);
        QVERIFY(one.camera.hasFrame());

        quint64 other = 0; // the frame there is isn't for this reader either
        cv::Mat fresh;
        auto next =
            std::async(std::launch::async, [&] { return one.camera.nextFrame(other, fresh); });
        QVERIFY(one.clock.waitForWaiter(frameTimeout));
        one.device->deliver(1); // it has been left out when the reader came; the next one is read
        QTest::qWait(20);
        QVERIFY(!one.camera.peekFrame(frame) || frameNumber(frame) > 6); // nor for another one
        one.device->deliver(1);
        QVERIFY(next.get());
        QVERIFY(frameNumber(fresh) > 6);
        QVERIFY(one.camera.currentFrame(frame));

        const int before = one.device->skipped;
        one.clock.advance(idleAfter);
        one.device->deliver(3);
        QTRY_VERIFY(one.device->skipped > before && one.device->number() == 12);
        auto late = std::async(std::launch::async, [&] { return one.camera.currentFrame(frame); });
        QVERIFY(one.clock.waitForWaiter(frameTimeout));
        one.clock.advance(frameTimeout);
        QVERIFY(!late.get()); // an old one would show what is gone
        QVERIFY(frame.empty());
        one.clock.advance(idleAfter);
        one.settings.setResolution(1, {80, 60}); // wanted, if only for its size
        one.device->deliver(3);
        QTRY_COMPARE(one.camera.size(), cv::Size(80, 60));
        auto current =
            std::async(std::launch::async, [&] { return one.camera.currentFrame(fresh); });
        while (current.wait_for(1ms) == std::future_status::timeout) {
            one.device->deliver(1);
        }
        QCOMPARE(fresh.size(), cv::Size(80, 60));
    }

    void sourceIsReadAtItsRate()
    {
        OneCamera one(10);
        QVERIFY(one.camera.start());
        cv::Mat frame;
        const auto number = [&] {
            one.camera.currentFrame(frame);
            return frameNumber(frame);
        };
        const auto passes = [&one](std::chrono::milliseconds time) {
            QVERIFY(one.clock.waitForWaiter());
            one.clock.advance(time);
        };
        passes(99ms);
        QVERIFY(one.clock.waitForWaiter());
        QCOMPARE(number(), 1);
        passes(1ms);
        QTRY_COMPARE(number(), 2);
        passes(10s); // the late frame and the one due now; others are not made up for
        QTRY_COMPARE(number(), 4);
        QVERIFY(one.clock.waitForWaiter(100ms));
        passes(100ms);
        QTRY_COMPARE(number(), 5);
    }

    void readersShareOneFrame()
    {
        OneCamera one;
        one.settings.setRotation(90);
        QVERIFY(one.startHeld());
        cv::Mat first;
        cv::Mat second;
        QVERIFY(one.camera.currentFrame(first));
        QVERIFY(one.camera.currentFrame(second));
        QCOMPARE(first.data, second.data);
    }

    void settingsShowInTheVeryNextPicture()
    {
        OneCamera one;
        QVERIFY(one.camera.start());
        cv::Mat frame;
        for (int i = 0; i < 50; ++i) {
            one.settings.setRotation(i % 2 == 0 ? 90 : 0);
            QVERIFY(one.camera.currentFrame(frame));
            QCOMPARE(frame.cols, i % 2 == 0 ? 30 : 40);
        }
        one.settings.setResolution(1, {90, 70});
        QVERIFY(one.camera.currentFrame(frame));
        QCOMPARE(frame.size(), cv::Size(80, 60));
        QCOMPARE(one.camera.size(), cv::Size(80, 60));
        QCOMPARE(one.device->opened().size(), size_t(2));
        one.settings.setResolution(2, {1, 1}); // another camera's
        QVERIFY(one.camera.currentFrame(frame));
        QCOMPARE(one.device->opened().size(), size_t(2));
    }

    void lostCameraIsFoundAgain()
    {
        OneCamera one;
        QVERIFY(one.camera.start());
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("camera 1 started: /dev/fake (Fake), 40 x 30")});
        cv::Mat frame;
        quint64 sequence = 0;
        one.device->fail(line("unplugged"));
        QTRY_COMPARE(m_log->lines(),
                     QStringList{line("camera 1 lost: /dev/fake (Fake): unplugged")});
        QVERIFY(!one.camera.currentFrame(frame)); // at once: no time passes
        QVERIFY(frame.empty() && !one.camera.hasFrame());
        m_log->takeLines();

        QVERIFY(one.clock.waitForWaiter(reopenInterval)); // tried at once, in vain
        one.clock.advance(reopenInterval); // in vain
        QVERIFY(one.clock.waitForWaiter(reopenInterval));
        auto next =
            std::async(std::launch::async, [&] { return one.camera.nextFrame(sequence, frame); });
        QVERIFY(one.clock.waitForWaiter(frameTimeout));
        one.device->fail({});
        one.clock.advance(reopenInterval - 1ms);
        QVERIFY(m_log->lines().isEmpty());
        one.clock.advance(1ms);
        QTRY_COMPARE(m_log->lines(), QStringList{line("camera 1 is back: /dev/fake (Fake)")});
        QVERIFY(next.get()); // who waited sees a gap only
    }

    void singleFailureIsNoGap()
    {
        OneCamera one;
        QVERIFY(one.startHeld());
        cv::Mat frame;
        quint64 sequence = 0;
        QVERIFY(one.camera.nextFrame(sequence, frame));
        one.device->failOnce(line("EIO"));
        one.device->deliverFreely();
        QVERIFY(one.camera.nextFrame(sequence, frame)); // without any time passing
        QCOMPARE(one.device->opened().size(), size_t(2));
    }

    void noPictureOfAFormerSize()
    {
        OneCamera one;
        QVERIFY(one.startHeld());
        cv::Mat frame;
        one.settings.setResolution(1, {80, 60});
        auto current =
            std::async(std::launch::async, [&] { return one.camera.currentFrame(frame); });
        QVERIFY(one.clock.waitForWaiter(resizeTimeout));
        one.clock.advance(resizeTimeout);
        QVERIFY(!current.get() && frame.empty());
        QVERIFY(m_log->lines().contains(line("camera 1 has no picture of the new size yet")));
        one.device->deliverFreely();
        QVERIFY(one.camera.currentFrame(frame));
        QCOMPARE(frame.size(), cv::Size(80, 60));
    }

    /// The server stops a camera that delivers no frames and starts it 3 s later, whatever comes.
    void lostCameraIsBackWhateverTheServerDoes_data()
    {
        const Rows<bool, bool> row("isBackInThePause", "isOther");
        row("back during the pause", true, false);
        row("back after the start", false, false);
        row("another camera is started", false, true);
    }

    void lostCameraIsBackWhateverTheServerDoes()
    {
        QFETCH(bool, isBackInThePause);
        QFETCH(bool, isOther);
        ManyCameras many;
        QVERIFY(many.cameras.start(1));
        many.device->fail(line("unplugged"));
        const auto camera = many.cameras.mainCamera();
        QTRY_VERIFY(!camera->hasFrame());
        many.cameras.stopMain();
        QVERIFY(!many.cameras.isOpen());
        if (isBackInThePause) {
            many.device->fail({});
            QVERIFY(many.clock.waitForWaiter(reopenInterval));
            many.clock.advance(reopenInterval);
            QTRY_VERIFY(camera->hasFrame());
        }
        QCOMPARE(many.cameras.start(isOther ? 2 : 1), isBackInThePause);
        many.device->fail({});
        cv::Mat frame;
        if (!isBackInThePause && !isOther) {
            QVERIFY(many.clock.waitForWaiter(reopenInterval));
            many.clock.advance(reopenInterval);
            QTRY_VERIFY(camera->hasFrame());
        }
        QCOMPARE(many.cameras.nextPreviewFrame(frame), !isOther);
        QCOMPARE(many.cameras.mainCamera() == camera, !isOther);
    }

    void lostCameraIsNotLookedForForEver()
    {
        ManyCameras many;
        QVERIFY(many.cameras.start(1));
        many.device->fail(line("unplugged"));
        const auto camera = many.cameras.mainCamera();
        QTRY_VERIFY(!camera->hasFrame());
        many.cameras.stopMain();
        for (auto passed = 0ms; passed < lostCameraLimit; passed += reopenInterval) {
            QVERIFY(many.clock.waitForWaiter(reopenInterval));
            many.clock.advance(reopenInterval);
        }
        QVERIFY(camera->hasEnded());
        many.device->fail({});
        QVERIFY(many.cameras.start(1)); // another object
        QVERIFY(many.cameras.mainCamera() != camera && !camera->hasFrame());
    }

    void stopReleasesWhoWaits()
    {
        OneCamera one(0.0001); // hours between frames, which stop() doesn't wait for
        QVERIFY(one.camera.start());
        quint64 sequence = 0;
        cv::Mat frame;
        QVERIFY(one.camera.nextFrame(sequence, frame));
        auto waiting = std::async(std::launch::async, [&] {
            cv::Mat never;
            return one.camera.nextFrame(sequence, never);
        });
        one.camera.stop();
        QVERIFY(!waiting.get());
        QVERIFY(!one.camera.currentFrame(frame));
    }

    void failedStart_data()
    {
        const Rows<int, int, QString, QString> row("camera", "rotation", "reason", "expected");
        // clang-format off
        row("busy",        1,  0,   "busy",    "camera 1 doesn't start: /dev/fake (Fake): busy");
        row("absent",      3,  0,   QString(), "camera 3 doesn't start: there is none");
        row("odd angle",   25, 45,  QString(), "the dual camera doesn't start: there is no rotation by 45 degrees");
        row("full circle", 1,  360, QString(), "camera 1 doesn't start: there is no rotation by 360 degrees");
        // clang-format on
    }

    void failedStart()
    {
        QFETCH(int, camera);
        QFETCH(int, rotation);
        QFETCH(QString, reason);
        QFETCH(QString, expected);
        ManyCameras many;
        many.device->fail(reason);
        QVERIFY(!many.cameras.start(camera, rotation));
        QCOMPARE(m_log->takeLines(), QStringList{expected});
        cv::Mat frame;
        QVERIFY(!many.cameras.nextPreviewFrame(frame));
        QVERIFY(!many.cameras.currentFrame(frame));
        QCOMPARE(many.cameras.settings().orientation().rotation, 0);
    }

    void startReplacesThePreviewAndKeepsTheSettings()
    {
        ManyCameras many;
        QVERIFY(many.cameras.start(1, 90));
        QVERIFY(many.cameras.settings().setFlip(1));
        const auto first = many.cameras.mainCamera();
        cv::Mat frame;
        QVERIFY(many.cameras.nextPreviewFrame(frame));
        QVERIFY(many.cameras.start(2));
        QVERIFY(!first->currentFrame(frame)); // its holder finds it stopped
        QVERIFY(many.cameras.nextPreviewFrame(frame));
        QCOMPARE(frame.size(), cv::Size(30, 40));
        QCOMPARE(many.cameras.settings().orientation().flip, 1);

        QVERIFY(!many.cameras.start(3)); // leaves none, not the previous one
        QVERIFY(!many.cameras.mainCamera());
    }

    void fourthCameraIsIndependentOfThePreview()
    {
        ManyCameras many;
        QVERIFY(many.cameras.start(4));
        cv::Mat frame;
        QVERIFY(!many.cameras.nextPreviewFrame(frame));
        QVERIFY(many.cameras.currentFrame(frame)); // alone, it is what a capture takes
        QVERIFY(many.cameras.start(1));
        many.cameras.stopFourth();
        QVERIFY(many.cameras.nextPreviewFrame(frame));
        many.cameras.stopMain();
        QVERIFY(!many.cameras.currentFrame(frame));
    }

    void stopOfOneCameraLeavesAnother()
    {
        ManyCameras many;
        const auto first = many.cameras.open(1);
        QVERIFY(first && many.cameras.isOpen() && many.cameras.start(2));
        many.cameras.stop(first);
        many.cameras.stop(nullptr);
        QVERIFY(many.cameras.mainCamera());
        many.cameras.stop(many.cameras.mainCamera());
        QVERIFY(!many.cameras.isOpen());
    }

    void sizesOfOpenAndClosedCameras()
    {
        ManyCameras many;
        many.cameras.settings().setResolution(1, {100, 100});
        QCOMPARE(many.cameras.size(1), cv::Size(80, 60));
        QCOMPARE(many.cameras.size(2), cv::Size(40, 30));
        QVERIFY(many.cameras.start(1, 90));
        QCOMPARE(many.cameras.size(1), cv::Size(80, 60)); // before rotation
        QCOMPARE(many.cameras.sizes(1).size(), size_t(2));
        QVERIFY(many.cameras.sizes(3).empty());
        QCOMPARE(many.cameras.size(3), cv::Size());
    }

    void manyCallersAtOnce()
    {
        ManyCameras many;
        CameraSet &cameras = many.cameras;
        std::atomic<int> frames{0};
        Repeaters callers;
        const auto look = [&frames](const cv::Mat &frame) {
            // Every pixel is the frame's number: one that is written to meanwhile would differ.
            const cv::Vec3b last = frame.at<cv::Vec3b>(frame.rows - 1, frame.cols - 1);
            if (last == frame.at<cv::Vec3b>(0, 0)) {
                ++frames;
            } else {
                qFatal("a published frame was changed");
            }
        };
        callers.add([&](int i) { cameras.start(i % 2 == 0 ? 1 : 2, i % 4 * 90); });
        callers.add([&](int i) { i % 3 == 0 ? cameras.stopMain() : void(cameras.start(4)); });
        callers.add([&](int i) {
            cameras.settings().setRotation(i % 4 * 90);
            cameras.settings().setFlip(i % 4);
            cameras.settings().setResolution(1, {i % 100, i % 100});
            cameras.size(1);
        });
        for (int reader = 0; reader < 2; ++reader) {
            callers.add([&](int) {
                cv::Mat frame;
                if (cameras.nextPreviewFrame(frame)) {
                    look(frame);
                }
                if (cameras.currentFrame(frame)) {
                    look(frame);
                }
            });
        }
        QTRY_VERIFY_WITH_TIMEOUT(frames >= 500, 60000);
        callers.stop();
    }

    void endOfThePreview_data()
    {
        const Rows<bool, int, int, bool> row("isAnnounced", "stopsAfter", "secondsLater",
                                             "hasEnded");
        // clang-format off
        row("announced",             true,  1,    0, true);
        row("announced long before", true,  6000, 0, false);
        row("a moment without",      false, 0,    5, false);
        row("long without",          false, 0,    6, true);
        // clang-format on
    }

    void endOfThePreview()
    {
        QFETCH(bool, isAnnounced);
        QFETCH(int, stopsAfter);
        QFETCH(int, secondsLater);
        QFETCH(bool, hasEnded);
        ManyCameras many;
        PreviewWatch watch(many.cameras, many.clock);
        QVERIFY(!watch.camera());
        QVERIFY(!watch.ended());
        many.clock.advance(1h);
        QVERIFY(many.cameras.start(1));
        QVERIFY(watch.camera());
        if (isAnnounced) {
            many.cameras.announceEnd();
        }
        many.clock.advance(std::chrono::milliseconds(stopsAfter));
        QVERIFY(watch.camera());
        many.cameras.stopMain();
        many.clock.advance(std::chrono::seconds(secondsLater));
        QVERIFY(!watch.camera());
        QCOMPARE(watch.ended(), hasEnded);
        QCOMPARE(many.cameras.hasEnded(), hasEnded && isAnnounced);
        QVERIFY(many.cameras.start(1));
        QVERIFY(watch.camera());
        QVERIFY(!watch.ended());
        many.cameras.stopMain(); // the announcement was for the one before
        QVERIFY(!many.cameras.hasEnded());
    }

    void folderIsShownPictureByPicture()
    {
        for (const int grey : {10, 20}) {
            QImage picture(8, 6, QImage::Format_RGB32);
            picture.fill(QColor(grey, grey, grey));
            QVERIFY(picture.save(path("%1.png").arg(grey)));
        }
        ManualClock clock;
        PictureSource source(m_folder->path(), {30, 2.5}, clock);
        QString error;
        QVERIFY(source.open({}, &error));
        cv::Mat frame;
        const auto shown = [&] {
            return source.read(frame, &error) ? int(frame.at<cv::Vec3b>(0, 0)[0]) : -1;
        };
        for (const int grey : {10, 20, 10}) { // from the start again
            QCOMPARE(shown(), grey);
            clock.advance(2499ms);
            QCOMPARE(shown(), grey);
            clock.advance(1ms);
        }
    }

    void pairIsAsHighAsItsLeftHalf()
    {
        auto left = std::make_shared<FakeDevice>();
        auto right = std::make_shared<FakeDevice>();
        // 40 x 30 beside a picture of 8 x 12 pixels, which is 20 wide at that height.
        QImage picture(8, 12, QImage::Format_RGB32);
        picture.fill(Qt::white);
        QVERIFY(picture.save(path("a.png")));
        PairSource pair(std::make_unique<FakeSource>(left, 20),
                        std::make_unique<PictureSource>(path("a.png"), PlaybackSettings{5, 1}));
        QCOMPARE(pair.framesPerSecond(), 5.0);
        QCOMPARE(pair.sizes(), (std::vector<cv::Size>{{60, 30}}));
        QString error;
        QVERIFY(pair.open({}, &error));
        cv::Mat frame;
        QVERIFY(pair.read(frame, &error));
        QCOMPARE(frame.size(), cv::Size(60, 30));
        QCOMPARE(frame.at<cv::Vec3b>(29, 39), cv::Vec3b::all(1));
        QCOMPARE(frame.at<cv::Vec3b>(29, 40), cv::Vec3b::all(255));
        left->fail(line("unplugged"));
        QVERIFY(!pair.read(frame, &error));
        QCOMPARE(error, line("/dev/fake (Fake): unplugged"));
        pair.close();
        QVERIFY(!pair.open({}, &error));
        QCOMPARE(error, line("/dev/fake (Fake): unplugged"));

        PairSource none(std::make_unique<PictureSource>(path("absent"), PlaybackSettings()),
                        std::make_unique<FakeSource>(right));
        QVERIFY(none.sizes().empty());
    }

    /// No picture is copied, and none is decoded while nobody looks.
    void pairIsMadeInPlace()
    {
        struct InPlace : FakeSource
        {
            using FakeSource::FakeSource;
            bool read(cv::Mat &frame, QString *error) override
            {
                isInPlace = !frame.empty();
                cv::Mat picture;
                const bool isThere = FakeSource::read(picture, error);
                picture.copyTo(frame); // keeps the memory if the size is right
                return isThere;
            }
            bool isInPlace = false;
        };
        const auto device = std::make_shared<FakeDevice>();
        auto left = std::make_unique<InPlace>(device);
        auto right = std::make_unique<InPlace>(device);
        InPlace *const sources[] = {left.get(), right.get()};
        PairSource pair(std::move(left), std::move(right));
        QString error;
        QVERIFY(pair.open({}, &error));
        cv::Mat first;
        cv::Mat second;
        QVERIFY(pair.read(first, &error) && pair.read(second, &error));
        QVERIFY(sources[0]->isInPlace && sources[1]->isInPlace);
        QCOMPARE(first.at<cv::Vec3b>(29, 39), cv::Vec3b::all(1));
        QCOMPARE(first.at<cv::Vec3b>(0, 40), cv::Vec3b::all(2));
        QCOMPARE(second.at<cv::Vec3b>(29, 39), cv::Vec3b::all(3));
        QCOMPARE(second.at<cv::Vec3b>(0, 40), cv::Vec3b::all(4));
        QVERIFY(!pair.canSkip());
        device->canSkip = true;
        QVERIFY(pair.canSkip() && pair.skip(&error));
        QCOMPARE(device->skipped.load(), 2);
    }
};

QTEST_GUILESS_MAIN(TestPortableCameras)
#include "tst_portablecameras.moc"
