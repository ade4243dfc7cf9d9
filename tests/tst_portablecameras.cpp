// SPDX-License-Identifier: MIT
// The portable library's camera threads: readers, settings, loss and return, many callers at once.
#include "portable/camera/cameraset.h"
#include "portable/camera/camerasources.h"
#include "tests/fakesource.h"
#include "tests/portabletest.h"

#include <QtTest>

#include <future>
#include <thread>

using namespace portable;
using namespace std::chrono_literals;

namespace {

/// Waits that a test would never outlast: who waits that long is stopped by ctest.
constexpr CameraTimes patient{1h, 5ms};

int frameNumber(const cv::Mat &frame)
{
    return frame.at<cv::Vec3b>(0, 0)[0];
}

/// A camera with its device, number 1.
struct OneCamera
{
    explicit OneCamera(CameraTimes times = patient, double framesPerSecond = 1000)
        : camera(1, std::make_unique<FakeSource>(device, framesPerSecond), settings, times)
    {
    }
    ~OneCamera() { device->fail(QStringLiteral("the test is over")); } // ends a read under way

    Settings settings;
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    Camera camera;
};

/// A set of cameras that are all the same device, except that there is none behind 3.
struct ManyCameras
{
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    CameraSet cameras{[this](int camera, QString *error) -> std::unique_ptr<FrameSource> {
                          if (camera == 3) {
                              *error = QStringLiteral("there is none");
                              return nullptr;
                          }
                          return std::make_unique<FakeSource>(device);
                      },
                      patient};
};

} // namespace

class TestPortableCameras : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void everyReaderGetsEachFrameOnce()
    {
        OneCamera one;
        one.device->holdFrames();
        one.device->deliver(1);
        QVERIFY(one.camera.start());
        cv::Mat frame;
        quint64 fast = 0;
        quint64 slow = 0;
        for (int number = 1; number <= 3; ++number) {
            QVERIFY(one.camera.nextFrame(fast, frame));
            QCOMPARE(frameNumber(frame), number);
            QVERIFY(one.camera.currentFrame(frame)); // is no reader that frames are kept for
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
        OneCamera one({20ms, 5ms});
        one.device->holdFrames();
        one.device->deliver(1);
        QVERIFY(one.camera.start());
        cv::Mat frame;
        quint64 place = 0;
        QVERIFY(one.camera.nextFrame(place, frame));
        QVERIFY(!one.camera.nextFrame(place, frame));
        QVERIFY(frame.empty());
        QVERIFY(one.camera.currentFrame(frame)); // there still is one
    }

    void readersShareOneFrame()
    {
        OneCamera one;
        one.settings.setRotation(90);
        one.device->holdFrames();
        one.device->deliver(1);
        QVERIFY(one.camera.start());
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
        quint64 place = 0;
        one.device->fail(line("unplugged"));
        while (one.camera.nextFrame(place, frame)) { } // the last ones before
        QVERIFY(frame.empty());
        QVERIFY(!one.camera.currentFrame(frame)); // at once: the waits are of an hour
        QVERIFY(!one.camera.nextFrame(place, frame));
        QTRY_COMPARE(m_log->lines(),
                     QStringList{line("camera 1 lost: /dev/fake (Fake): unplugged")});
        m_log->takeLines();

        one.device->fail({});
        QTRY_COMPARE(m_log->lines(), QStringList{line("camera 1 is back: /dev/fake (Fake)")});
        const quint64 before = place;
        QVERIFY(one.camera.nextFrame(place, frame));
        QVERIFY(place > before);
    }

    void stopReleasesWhoWaits()
    {
        OneCamera one(patient, 0.0001); // hours between frames, which stop() doesn't wait for
        QVERIFY(one.camera.start());
        quint64 place = 0;
        cv::Mat frame;
        QVERIFY(one.camera.nextFrame(place, frame));
        auto waiting = std::async(std::launch::async, [&] {
            cv::Mat never;
            return one.camera.nextFrame(place, never);
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

        QVERIFY(!many.cameras.start(3)); // leaves none, not the former
        QVERIFY(!many.cameras.mainCamera());
    }

    void fourthCameraStandsBesideThePreview()
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
        QVERIFY(first && many.cameras.start(2));
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

private:
};

QTEST_GUILESS_MAIN(TestPortableCameras)
#include "tst_portablecameras.moc"
