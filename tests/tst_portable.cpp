// SPDX-License-Identifier: MIT
// The portable library's sources, its devices.ini, and its exported functions.
#include "devicelib/doccamera.h"
#include "portable/camera/camerasources.h"
#include "portable/camera/testscenesource.h"
#include "portable/camera/v4l2source.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/orientation.h"
#include "tests/portabletest.h"

#include <QtTest>

#define ZX_USE_UTF8 1

#include <set>

using namespace portable;

namespace {

/// This many cameras: "/dev/video0 (Camera 0, 0c45:6360)" and so on.
V4l2Devices machineWith(int cameras)
{
    V4l2Devices devices;
    for (int i = 0; i < cameras; ++i) {
        devices.push_back({QStringLiteral("/dev/video%1").arg(i),
                           QStringLiteral("Camera %1").arg(i),
                           QStringLiteral("0c45:636%1").arg(i),
                           {}});
    }
    return devices;
}

/// `frame` turned by a quarter clockwise, pixel by pixel.
cv::Mat quarterTurn(const cv::Mat &frame)
{
    cv::Mat result(frame.cols, frame.rows, CV_8UC3);
    for (int y = 0; y < frame.rows; ++y) {
        for (int x = 0; x < frame.cols; ++x) {
            result.at<cv::Vec3b>(x, frame.rows - 1 - y) = frame.at<cv::Vec3b>(y, x);
        }
    }
    return result;
}

/// `frame` mirrored, pixel by pixel.
cv::Mat mirrored(const cv::Mat &frame, bool leftRight, bool upsideDown)
{
    cv::Mat result(frame.size(), CV_8UC3);
    for (int y = 0; y < frame.rows; ++y) {
        for (int x = 0; x < frame.cols; ++x) {
            result.at<cv::Vec3b>(upsideDown ? frame.rows - 1 - y : y,
                                 leftRight ? frame.cols - 1 - x : x) = frame.at<cv::Vec3b>(y, x);
        }
    }
    return result;
}

bool equal(const cv::Mat &a, const cv::Mat &b)
{
    return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0;
}

/// Reads a frame and gives its first blue value, -1 on failure.
int blueOf(FrameSource &source)
{
    cv::Mat frame;
    QString error;
    return source.read(frame, &error) ? frame.at<cv::Vec3b>(0, 0)[0] : -1;
}

} // namespace

class TestPortable : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:

    void sourceOfACamera_data()
    {
        // expected: the source's name, or the reason after "!"
        const Rows<QByteArray, int, int, QString> row("ini", "machine", "camera", "expected");
        // clang-format off
        //   what                            [cameras]            machine camera  source
        row("no hardware: the scene",        "",                        0,  3,    "desk scene");
        row("no hardware: two scenes",       "",                        0, 25,    "desk scene beside desk scene");
        row("no hardware, not simulated",    "[simulation]\nenabled=0", 0, 1,    "!this machine has no camera; simulation is off ([simulation] enabled= in devices.ini, or the server's --simulate)");
        row("simulated by the file",         "[simulation]\nenabled=True", 0, 25, "desk scene beside desk scene");
        row("named, not simulated",          "1=scene\n[simulation]",  0,  1,    "desk scene");
        row("1 is the first",                "",                        2,  1,    "/dev/video0");
        row("9 is the first too",            "",                        2,  9,    "/dev/video0");
        row("2 is the second",               "",                        2,  2,    "/dev/video1");
        row("4 is the second too",           "4=auto",                  2,  4,    "/dev/video1");
        row("3 is the third",                "",                        3,  3,    "/dev/video2");
        row("the third isn't there",         "",                        2,  3,    "!this machine has 2 of the 3 cameras it needs: /dev/video0 (Camera 0, 0c45:6360), /dev/video1 (Camera 1, 0c45:6361)");
        row("dual of first and second",      "",                        2, 25,    "/dev/video0 beside /dev/video1");
        row("dual needs two",                "",                        1, 25,    "!this machine has 1 of the 2 cameras it needs: /dev/video0 (Camera 0, 0c45:6360)");
        row("dual of anything",              "dual=scene | v4l2:HD",    0, 25,    "desk scene beside HD");
        row("dual of one",                   "dual=scene",              0, 25,    "!devices.ini must give it two sources joined by |, not \"scene\"");
        row("scene beside hardware",         "1=scene",                 1,  1,    "desk scene");
        row("another camera's key",          "2=scene",                 1,  1,    "/dev/video0");
        row("part of a name",                "5=v4l2: Camera 1",        1,  5,    "Camera 1");
        row("Chinese path with a comma",     "1=\"image:/扫描/甲, 乙.png\"", 0,  1,    "/扫描/甲, 乙.png");
        row("folder",                        "1=folder:/tmp",           0,  1,    "/tmp");
        row("video",                         "8=video:/a.avi",          0,  8,    "/a.avi");
        row("switched off",                  "6=none",                  1,  6,    "!it is switched off in devices.ini");
        row("dual switched off",             "dual=none",               1, 25,    "!it is switched off in devices.ini");
        row("slip of the pen",               "1=scenery",               1,  1,    "!devices.ini gives it a source that doesn't exist: \"scenery\"");
        row("nothing behind the colon",      "1=v4l2:",                 1,  1,    "!devices.ini gives it a source that doesn't exist: \"v4l2:\"");
        row("no camera of that number",      "7=scene",                 1,  7,    "!there is no such camera");
        // clang-format on
    }

    void sourceOfACamera()
    {
        QFETCH(QByteArray, ini);
        QFETCH(int, machine);
        QFETCH(int, camera);
        if (ini.contains("[simulation]")) {
            qunsetenv("DEVICE_SIMULATION");
        }
        writeFile(path("devices.ini"), "[cameras]\n" + ini + '\n');
        QString error;
        const auto source = makeSource(
            camera, readDeviceConfig(path("devices.ini")),
            [machine] { return machineWith(machine); }, &error);
        QTEST(source ? source->name() : QLatin1Char('!') + error, "expected");
    }

    void valuesOfDevicesIni()
    {
        writeFile(path("devices.ini"),
                  "[cameras]\n7=scene\n[scene]\nsize=800x600\nframesPerSecond=many\n"
                  "[playback]\nsecondsPerPicture=0.5\nframesPerSecond=1000\n");
        const DeviceConfig config = readDeviceConfig(path("devices.ini"));
        QCOMPARE(config.sceneSize, cv::Size(800, 600));
        QCOMPARE(config.sceneFramesPerSecond, 30.0);
        QCOMPARE(config.playback.framesPerSecond, 30.0);
        QCOMPARE(config.playback.secondsPerPicture, 0.5);
        const QString file = path("devices.ini") + QStringLiteral(": ");
        QCOMPARE(
            m_log->takeLines(),
            (QStringList{file + line("there is no camera \"7\""),
                         file + line("scene/framesPerSecond must be a number from 1 to 60"),
                         file + line("playback/framesPerSecond must be a number from 1 to 60")}));

        // The sample says what holds without it.
        qunsetenv("DEVICE_SIMULATION");
        const DeviceConfig sample =
            readDeviceConfig(line(SOURCE_DIR "/portable/devices.ini.sample"));
        QCOMPARE(sample.sources.size(), size_t(9));
        QVERIFY(!sample.isSimulated);
        for (const auto &source : sample.sources) {
            QCOMPARE(source.second, line("auto"));
        }
        QCOMPARE(sample.sceneSize, DeviceConfig().sceneSize);
        QCOMPARE(sample.playback.secondsPerPicture, DeviceConfig().playback.secondsPerPicture);
        QCOMPARE(m_log->takeLines(), QStringList());
    }

    void cameraOfTheMachine_data()
    {
        const Rows<QString, QString> row("text", "expected");
        row("path", "/dev/video1", "/dev/video1");
        row("path that is the start of another", "/dev/video", QString());
        row("name, in any case", "cAMERA 2", "/dev/video2");
        row("first of several", "Camera", "/dev/video0");
        row("vid:pid", "0C45:6361", "/dev/video1");
        row("none", "Scanner", QString());
    }

    void cameraOfTheMachine()
    {
        QFETCH(QString, text);
        const V4l2Devices devices = machineWith(3);
        const V4l2Device *found = findV4l2Device(devices, text);
        QTEST(found ? found->path : QString(), "expected");
    }

    void hardwareThatCannotBeUsed()
    {
        writeFile(path("file"), "no camera");
        QCOMPARE(v4l2Obstacle(path("absent")), line("it is not there (unplugged?)"));
        QCOMPARE(v4l2Obstacle(path("file")), line("it is not a camera"));
        V4l2Source absent(line("Scanner"), [] { return machineWith(1); });
        QString error;
        QVERIFY(!absent.open({}, &error));
        QCOMPARE(error, line("there is no such camera; found: /dev/video0 (Camera 0, 0c45:6360)"));
        const QString gone = path("video0");
        V4l2Source unplugged(gone, [&] { return V4l2Devices{{gone, line("HD"), {}, {}}}; });
        QVERIFY(!unplugged.open({}, &error));
        QCOMPARE(unplugged.name(), gone + line(" (HD)"));
        QCOMPARE(error, line("it is not there (unplugged?)"));
    }

    void choiceOfASize()
    {
        std::vector<cv::Size> sizes{{640, 480}, {2592, 1944}, {640, 480}, {1920, 1080}};
        sortSizes(sizes);
        QCOMPARE(sizes, (std::vector<cv::Size>{{2592, 1944}, {1920, 1080}, {640, 480}}));
        QCOMPARE(chooseSize(sizes, {}), cv::Size(1920, 1080));
        QCOMPARE(chooseSize(sizes, {700, 500}), cv::Size(640, 480));
        QCOMPARE(chooseSize(sizes, {INT_MAX, INT_MAX}), cv::Size(2592, 1944));
        QCOMPARE(chooseSize({{4000, 3000}}, {}), cv::Size(4000, 3000));
        QCOMPARE(chooseSize({}, {640, 480}), cv::Size());
    }

    void sceneMovesInItsClockAlone()
    {
        const TestScene scene({1920, 1080});
        cv::Mat early = scene.background().clone();
        cv::Mat late = scene.background().clone();
        scene.drawClock(early, QTime(10, 9, 30, 0));
        scene.drawClock(late, QTime(10, 9, 30, 100));
        QVERIFY(!equal(early(scene.clockArea()), late(scene.clockArea())));
        for (cv::Mat *frame : {&early, &late}) {
            (*frame)(scene.clockArea()).setTo(0);
        }
        QVERIFY(equal(early, late));
        scene.drawClock(early, QTime(10, 9, 30, 100));
        scene.drawClock(late, QTime(4, 40, 2)); // over another time's hands
        scene.drawClock(late, QTime(10, 9, 30, 100));
        QVERIFY(equal(early, late));
    }

    void sceneReusesFramesThatNobodyHolds()
    {
        TestSceneSource scene({640, 480}, 30);
        QString error;
        cv::Mat frame;
        QVERIFY(scene.open({}, &error) && scene.read(frame, &error));
        const cv::Mat held = frame;
        const cv::Mat before = held.clone();
        std::set<const uchar *> places;
        for (int i = 0; i < 20; ++i) {
            frame.release();
            QVERIFY(scene.read(frame, &error));
            QVERIFY(frame.data != held.data);
            places.insert(frame.data);
        }
        QCOMPARE(places.size(), size_t(1));
        QVERIFY(equal(held, before));
    }

    void orientations()
    {
        cv::Mat frame(2, 3, CV_8UC3);
        for (int i = 0; i < 6; ++i) {
            frame.at<cv::Vec3b>(i / 3, i % 3) = cv::Vec3b(uchar(i), uchar(10 * i), 1);
        }
        const cv::Mat original = frame.clone();
        FramePool pool;
        cv::Mat rotated = frame;
        for (int rotation = 0; rotation < 360; rotation += 90) {
            for (int flip = 0; flip <= 3; ++flip) {
                const cv::Mat expected = mirrored(rotated, flip == 1 || flip == 3, flip >= 2);
                QVERIFY2(equal(turned(frame, {rotation, flip}, pool), expected),
                         qPrintable(QStringLiteral("%1 %2").arg(rotation).arg(flip)));
            }
            rotated = quarterTurn(rotated);
        }
        QVERIFY(equal(frame, original));
    }

    void picturesOfAFolder()
    {
        int blue = 10;
        for (const char *name : {"a.png", "b.bmp", "d.jpg"}) {
            QImage image(4, 4, QImage::Format_RGB32);
            image.fill(QColor(0, 0, blue));
            QVERIFY(image.save(path(name)));
            blue += 100;
        }
        writeFile(path("c.png"), "broken");
        writeFile(path("readme.txt"), "no picture");
        PictureSource folder(m_folder->path(), {30, 0});
        QString error;
        QVERIFY(folder.open({}, &error));
        QCOMPARE(blueOf(folder), 110);
        QCOMPARE(m_log->takeLines(), QStringList());
        QVERIFY(qAbs(blueOf(folder) - 210) < 5); // JPEG is not exact
        QCOMPARE(m_log->takeLines().size(), 1); // c.png
        QCOMPARE(blueOf(folder), 10);

        PictureSource single(path("b.bmp"), {30, 0});
        QVERIFY(single.open({}, &error));
        QCOMPARE(blueOf(single), 110);
        QCOMPARE(blueOf(single), 110);
        QCOMPARE(single.sizes(), (std::vector<cv::Size>{{4, 4}}));
        for (const char *bad : {"c.png", "absent.png"}) {
            PictureSource source(path(bad), {30, 5});
            QVERIFY(!source.open({}, &error));
            QVERIFY(!error.isEmpty());
        }
    }

    void videoPlaysAgainFromItsStart_data()
    {
        const Rows<QString, QString> row("file", "encoder");
        row("one frame a packet", "video.avi", "mjpeg");
        row("frames that refer to later ones", "video.mp4", "libx264 -bf 2");
        row("with sound first", "video.mkv", "mpeg4 -map 1 -map 0 -c:a pcm_s16le");
    }

    void videoPlaysAgainFromItsStart()
    {
        QFETCH(QString, file);
        QFETCH(QString, encoder);
        QByteArray pixels;
        for (const int level : {20, 120, 220}) {
            pixels += QByteArray(66 * 50 * 3, char(level));
        }
        writeFile(path("raw"), pixels);
        writeFile(path("sound"), QByteArray(4000, '\0'));
        outputOf("ffmpeg",
                 words("-v error -f rawvideo -pix_fmt bgr24 -s 66x50 -r 12 -i")
                     << path("raw") << words("-f s16le -i") << path("sound") << line("-c:v")
                     << encoder.split(QLatin1Char(' ')) << line("-pix_fmt")
                     << line(encoder == line("mjpeg") ? "yuvj420p" : "yuv420p") << path(file));
        VideoSource video(path(file));
        QString error;
        QVERIFY2(video.open({}, &error), qPrintable(error));
        QCOMPARE(video.framesPerSecond(), 12.0);
        QCOMPARE(video.sizes(), (std::vector<cv::Size>{{66, 50}}));
        for (const int level : {20, 120, 220, 20, 120, 220, 20}) {
            const int blue = blueOf(video);
            QVERIFY2(qAbs(blue - level) < 8, qPrintable(QString::number(blue)));
        }
    }

    void videosThatCannotBeRead_data()
    {
        const Rows<QString, QString, QString> row("file", "content", "error");
        const QString no = line("not a video that can be read here: ");
        row("none", "absent", "", "there is no such file");
        row("nothing", "a.avi", "no video", no + line("Invalid data found when processing input"));
        row("a playlist", "a.m3u8", "#EXTM3U\n#EXTINF:1,\na.avi\n",
            no + line("Invalid data found when processing input"));
        row("a list of files", "a.avi", "ffconcat version 1.0\nfile a.avi\n",
            no + line("Invalid argument"));
        row("sound alone", "sound.wav", "", no + line("Invalid argument"));
        row("too many pixels", "huge.avi", "", "no frame of the video can be decoded here");
    }

    void videosThatCannotBeRead()
    {
        QFETCH(QString, file);
        QFETCH(QString, content);
        if (!content.isEmpty()) {
            writeFile(path(file), content.toUtf8());
        } else if (file != line("absent")) {
            outputOf("ffmpeg",
                     words("-v error -f lavfi -i")
                         << line(file == line("huge.avi") ? "color=s=8000x6000" : "sine")
                         << words("-t 0.04") << path(file));
        }
        VideoSource video(path(file));
        QString error;
        cv::Mat frame;
        QVERIFY(!video.open({}, &error) || !video.read(frame, &error));
        QTEST(error, "error");
        QVERIFY(video.sizes().empty());
    }

    void pairIsAsHighAsItsLeftHalf()
    {
        QString error;
        DeviceConfig config;
        config.sources[dualCamera] = QStringLiteral("scene|image:") + path("right.png");
        QImage right(100, 50, QImage::Format_RGB32);
        right.fill(QColor(1, 2, 3));
        QVERIFY(right.save(path("right.png")));
        const auto pair = makeSource(dualCamera, config, {}, &error);
        cv::Mat frame;
        QVERIFY(pair->open({}, &error) && pair->read(frame, &error));
        QCOMPARE(frame.size(), cv::Size(1920 + 2160, 1080));
        QCOMPARE(pair->sizes(), (std::vector<cv::Size>{frame.size()}));
        QCOMPARE(frame.at<cv::Vec3b>(1079, 1920), cv::Vec3b(3, 2, 1));
        pair->close();
        QFile::remove(path("right.png"));
        QVERIFY(!pair->open({}, &error));
        QVERIFY(error.startsWith(path("right.png")));
    }

    void imagesKeepTheirPixels()
    {
        cv::Mat pixels(3, 5, CV_8UC3, cv::Scalar(10, 20, 30));
        QImage image = toImage(pixels);
        pixels.release();
        QCOMPARE(image.pixelColor(4, 2), QColor(30, 20, 10));
        QVERIFY(equal(toMat(image), cv::Mat(3, 5, CV_8UC3, cv::Scalar(10, 20, 30))));
        QImage clear(1, 1, QImage::Format_ARGB32);
        clear.fill(Qt::transparent);
        QCOMPARE(toMat(clear).at<cv::Vec3b>(0, 0), cv::Vec3b(255, 255, 255));
    }

    void exportedPreview()
    {
        useIni("[cameras]\n1=scene\n2=none\ndual=scene|scene\n"
               "[scene]\nsize=640x480\n");
        QImage image;
        QVERIFY(!getVideoFrame(image));
        QVERIFY(bStopPlay()); // nothing was open
        QVERIFY(bStartPlay(0));
        QVERIFY(getVideoFrame(image));
        QCOMPARE(image.size(), QSize(640, 480));
        QCOMPARE(iGetResolutionX(1), 640);
        cv::Mat pixels;
        QVERIFY(getVideoFrameMat(pixels) && getVideoFrameMatEx(pixels));

        vSetRotate(90);
        vSetRotate(45);
        QCOMPARE(int(iGetRotate()), 90);
        QVERIFY(getVideoFrameMat(pixels));
        QCOMPARE(pixels.size(), cv::Size(480, 640));
        vSetFlip(3);
        vSetFlip(4);
        QCOMPARE(int(iGetFlip()), 3);
        QVERIFY(!bStartPlay2(0));
        QVERIFY(!getVideoFrame(image) && image.isNull());

        // The file is read at each start.
        useIni("[cameras]\n1=none\n2=scene\n4=scene\ndual=scene|scene\n"
               "[scene]\nsize=1024x768\n");
        vSetRotate(0);
        vSetFlip(0);
        QVERIFY(!bStartPlay(0));
        QVERIFY(bStartPlay2(180));
        QCOMPARE(int(iGetRotate()), 180);
        QVERIFY(bStartPlay4());
        QVERIFY(bStartPlayOpen());
        QVERIFY(getVideoFrame(image));
        QVERIFY(bStopPlay() && bStopPlay4());
        QCOMPARE(image.copy().size(), QSize(2048, 768)); // its pixels outlive the camera
        QVERIFY(!getVideoFrameMat(pixels) && pixels.empty());
    }

    void exportedSizes()
    {
        useIni("[cameras]\n1=scene\n2=none\n");
        std::vector<std::pair<double, double>> sizes;
        getResolutionIndex(1, sizes);
        QCOMPARE(sizes,
                 (std::vector<std::pair<double, double>>{{2592, 1944},
                                                         {1920, 1080},
                                                         {1600, 1200},
                                                         {1280, 720},
                                                         {1024, 768},
                                                         {800, 600},
                                                         {640, 480}}));
        QCOMPARE(iGetResolutionX(1), 1920);
        QCOMPARE(iGetResolutionY(1), 1080);
        for (int absent : {2, 0, 7, -3, 26, INT_MAX}) {
            getResolutionIndex(absent, sizes);
            QVERIFY(sizes.empty());
            QCOMPARE(iGetResolutionX(absent), 0);
        }
    }

    void versionStaysWithinItsBuffer()
    {
        char buffer[64];
        doccameraVeriosn(buffer, sizeof buffer);
        const QByteArray whole = buffer;
        QVERIFY(whole.startsWith("portable device library ") && whole.endsWith(" (simulation)"));
        for (const int capacity : {-1, 0, 1, 5, whole.size(), whole.size() + 1}) {
            std::fill(std::begin(buffer), std::end(buffer), '#');
            doccameraVeriosn(buffer, capacity);
            if (capacity > 0) {
                QCOMPARE(QByteArray(buffer), whole.left(capacity - 1));
            }
            QVERIFY(std::all_of(buffer + qMax(capacity, 0), std::end(buffer),
                                [](char c) { return c == '#'; }));
        }
        doccameraVeriosn(nullptr, 10);
        qunsetenv("DEVICE_SIMULATION");
        doccameraVeriosn(buffer, sizeof buffer);
        QVERIFY(!QByteArray(buffer).contains("simulation"));
    }

private:
};

QTEST_MAIN(TestPortable)
#include "tst_portable.moc"
