// SPDX-License-Identifier: MIT
// The V4L2 cameras of a machine: their nodes, sizes, obstacles and controls.
#include "portable/camera/v4l2controls.h"
#include "portable/camera/v4l2devices.h"
#include "tests/fakev4l2.h"

#include <QtTest>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace portable;

class TestV4l2Cameras : public FakeV4l2Test
{
    Q_OBJECT

private Q_SLOTS:
    void camerasInTheOrderOfTheirNodes()
    {
        node("video10").name = "Ten";
        node("video2").name = "Two";
        node("video0").name = "Metadata";
        node("video0").capabilities = V4L2_CAP_META_CAPTURE;
        node("videox").name = "No number";
        QCOMPARE(::mkfifo(utf8("video3"), 0600), 0); // no V4L2 device
        for (const char *name : {"video1", "video4"}) { // these can't be opened
            sockaddr_un address = {};
            address.sun_family = AF_UNIX;
            std::strcpy(address.sun_path, utf8(name));
            const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            QCOMPARE(::bind(server, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
            ::close(server);
        }
        writeFile(path("sys/class/video4linux/video1/name"), "Closed\n");
        writeFile(path("sys/class/video4linux/video1/index"), "0\n");
        writeFile(path("sys/class/video4linux/video4/index"), "1\n"); // of the same camera
        writeFile(path("sys/devices/usb1/1-1/idVendor"), "2b19\n");
        writeFile(path("sys/devices/usb1/1-1/idProduct"), "0200\n");
        QVERIFY(QDir().mkpath(path("sys/class/video4linux/video2")));
        QVERIFY(
            QFile::link(path("sys/devices/usb1/1-1"), path("sys/class/video4linux/video2/device")));
        const V4l2Devices devices = v4l2DevicesIn(m_folder->path(), path("sys"));
        QCOMPARE(v4l2Labels(devices).replace(m_folder->path(), line("/dev")),
                 line("/dev/video1 (Closed), /dev/video2 (Two, 2b19:0200), /dev/video10 (Ten), "
                      "/dev/videox (No number)"));
        QCOMPARE(devices[1].bus, line("usb-1"));
        QCOMPARE(v4l2Labels({}), line("none"));
    }

    void sizes_data()
    {
        const Rows<int, QString> row("camera", "sizes");
        row("MJPEG's, where it has them", 0, "1920 x 1080, 640 x 480");
        row("of all formats otherwise", 1, "1280 x 720, 640 x 480, 320 x 240");
        row("MJPEG without sizes", 2, "640 x 480");
        row("common ones within a range", 3, "1000 x 600, 800 x 600, 320 x 240");
        row("any within a range without steps", 4, "700 x 500, 640 x 480");
        row("all common ones", 5,
            "3840 x 2448, 3840 x 2160, 3264 x 2448, 2592 x 1944, 2048 x 1536, 1920 x 1080, "
            "1600 x 1200, 1280 x 960, 1280 x 720, 1024 x 768, 800 x 600, 640 x 480, 320 x 240");
        row("none", 6, "");
    }

    void sizes()
    {
        QFETCH(int, camera);
        const std::vector<FakeFormat> cameras[] = {
            {{V4L2_PIX_FMT_YUYV, {{2592, 1944}}},
             {V4L2_PIX_FMT_MJPEG, {{640, 480}, {1920, 1080}, {640, 480}}}},
            {{V4L2_PIX_FMT_YUYV, {{640, 480}, {320, 240}}}, {V4L2_PIX_FMT_RGB24, {{1280, 720}}}},
            {{V4L2_PIX_FMT_MJPEG, {}}, {V4L2_PIX_FMT_YUYV, {{640, 480}}}},
            {{V4L2_PIX_FMT_YUYV, {{320, 240}, {1000, 600}, {240, 180}}, true}},
            {{V4L2_PIX_FMT_YUYV, {{321, 240}, {700, 500}, {0, 0}}, true}},
            {{V4L2_PIX_FMT_YUYV, {{320, 240}, {3840, 2448}, {16, 1}}, true}},
            {},
        };
        node("video0").formats = cameras[camera];
        interruptCalls(2);
        const V4l2Formats formats = v4l2Formats(path("video0"));
        QStringList texts;
        for (const cv::Size &size : formats.sizes) {
            texts << QStringLiteral("%1 x %2").arg(size.width).arg(size.height);
        }
        QTEST(texts.join(line(", ")), "sizes");
    }

    void obstacles_data()
    {
        const Rows<int, QString> row("error", "reason");
        row("none", 0, "");
        row("busy", EBUSY, "it is in use by another program");
        row("unplugged", ENODEV, "it is not there (unplugged?)");
        row("forbidden", EPERM, "no permission to open it (is this user in the group \"video\"?)");
        row("no camera", ENOTTY, "it is not a camera");
        row("other", EIO, qt_error_string(EIO));
    }

    void obstacles()
    {
        QFETCH(int, error);
        node("video0").streamError = error;
        QTEST(v4l2Obstacle(path("video0")), "reason");
        QCOMPARE(v4l2Obstacle(path("video1")), line("it is not there (unplugged?)"));
    }

    void adjustments()
    {
        FakeDriver &driver = node("video0");
        driver.controls = {{V4L2_CID_BRIGHTNESS, {-64, 64, 1, 0, 7}},
                           {V4L2_CID_CONTRAST, {0, 95, 1, 32, 32, V4L2_CTRL_FLAG_READ_ONLY}},
                           {V4L2_CID_EXPOSURE_AUTO, {0, 3, 1, 3, 3}},
                           {V4L2_CID_EXPOSURE_ABSOLUTE, {3, 2047, 1, 250, 300}}};
        {
            V4l2Controls controls(path("video0"));
            const Adjustments rest = controls.adjust({-100, 50, 40});
            QCOMPARE(rest.brightness, 0);
            QCOMPARE(rest.contrast, 40); // can't be set, as when disabled
            QCOMPARE(rest.exposure, 0);
            QCOMPARE(taken(driver), line("brightness=32 mode=1 exposure=3"));
            QCOMPARE(controls.adjust({-100, 50, 40}).contrast, 40);
            QCOMPARE(taken(driver), QString()); // nothing has changed
            controls.adjust({0, 50, 40});
            QCOMPARE(taken(driver), line("mode=1 exposure=250 mode=3"));
        }
        // As they were before, the mode last: it may forbid to set the exposure.
        QCOMPARE(taken(driver), line("brightness=7 exposure=300 mode=3"));
    }

    void exposureOfSimpleCameras()
    {
        FakeDriver &driver = node("video0");
        V4l2Controls none(path("video0"));
        QCOMPARE(none.adjust({10, 0, 0}).exposure, 10);
        driver.controls = {{V4L2_CID_EXPOSURE, {-100, 100, 1, 0, 0}}};
        V4l2Controls controls(path("video0"));
        QCOMPARE(controls.adjust({10, 0, 0}).exposure, 0);
        QCOMPARE(taken(driver), line("gain=10"));
    }

    void focusing()
    {
        FakeDriver &driver = node("video0");
        V4l2Controls controls(path("video0"));
        QVERIFY(!controls.focus());
        driver.controls = {{V4L2_CID_FOCUS_AUTO, {0, 1, 1, 1, 1}}};
        QVERIFY(controls.focus());
        QCOMPARE(taken(driver), line("autofocus=0 autofocus=1"));
        driver.controls[V4L2_CID_AUTO_FOCUS_START] = {0, 1, 1, 0, 0};
        QVERIFY(controls.focus());
        QCOMPARE(taken(driver), line("focus=0"));
    }
};

QTEST_GUILESS_MAIN(TestV4l2Cameras)
#include "tst_v4l2cameras.moc"
