// SPDX-License-Identifier: MIT
// The portable library's recordings: what ffmpeg finds in the files, and how recordings end.
#include "devicelib/doccamera.h"
#include "portable/recording/avpreview.h"
#include "portable/recording/recorder.h"
#include "tests/fakemicrophone.h"
#include "tests/fakesource.h"
#include "tests/fulldisk.h"
#include "tests/manualclock.h"
#include "tests/portabletest.h"

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>
#include <QWindow>
#include <QtTest>
#include <opencv2/imgproc.hpp>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

using namespace portable;
using namespace std::chrono_literals;

namespace {

/**
 * Cameras of 80 x 60 that share one device, number 1 open with one frame, and a recorder. Frames
 * come when the test shows them, and the recorder's time moves when the test says so. The
 * microphone isn't there until the test plugs it in.
 */
struct Studio
{
    Studio()
    {
        device->holdFrames();
        device->deliver(1);
        cameras.settings().setResolution(1, {80, 60});
        cameras.start(1);
    }
    ~Studio()
    {
        recorder.finish();
        device->fail(line("the test is over")); // ends a read in progress
    }

    /// Has the camera deliver frames up to this one, whose pixels are its number.
    void show(int frame)
    {
        device->deliver(frame - grey());
        cv::Mat shown;
        while (grey() != frame) {
            QVERIFY(cameras.nextPreviewFrame(shown));
        }
    }

    /// Number of the camera's frame.
    int grey() const
    {
        cv::Mat frame;
        return cameras.currentFrame(frame) ? frame.at<cv::Vec3b>(0, 0)[0] : 0;
    }

    /// Lets time pass until that many further frames of the video have been recorded.
    void record(int frames)
    {
        for (int i = 0; i < frames; ++i) {
            QVERIFY(clock.waitForWaiter());
            clock.advance(40ms);
        }
        QVERIFY(clock.waitForWaiter());
    }

    /// The same with sound: clicks at the whole seconds from `origin`, each 40 ms captured as one.
    void recordSound(int frames, base::Clock::TimePoint origin)
    {
        for (int i = 0; i < frames; ++i) {
            const std::chrono::duration<double> time = clock.now() - origin;
            microphone->capture({clock.now(), clicks(time.count(), soundRate / videoFrameRate)});
            record(1);
        }
    }

    /// Resumes the recording; returns when its thread has noticed.
    bool resume()
    {
        clock.takeWaits();
        const bool done = recorder.resume();
        while (done && clock.takeWaits().empty()) {
            std::this_thread::yield();
        }
        return done;
    }

    ManualClock clock;
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    CameraSet cameras{[this](int, QString *) { return std::make_unique<FakeSource>(device); }};
    std::shared_ptr<FakeMicrophoneDevice> microphone = std::make_shared<FakeMicrophoneDevice>();
    SoundOpener openSound = [this](QString *error) {
        return SoundCapture::start(FakeMicrophone::opener(microphone), clock, error);
    };
    Recorder recorder{cameras, clock, openSound};
};

/// What ffprobe says about a video, having counted its frames.
struct Probe
{
    explicit Probe(const QString &path)
    {
        const QByteArray json =
            outputOf("ffprobe",
                     words("-v error -count_frames -show_streams -show_format -of json")
                         << line("file:") + path);
        const QJsonObject root = QJsonDocument::fromJson(json).object();
        const QJsonArray all = root[line("streams")].toArray();
        const QJsonObject stream = all.at(0).toObject();
        sound = all.at(1).toObject()[line("codec_name")].toString();
        streams = all.size();
        codec = stream[line("codec_name")].toString();
        rate = stream[line("avg_frame_rate")].toString();
        size = {stream[line("width")].toInt(), stream[line("height")].toInt()};
        bFrames = stream[line("has_b_frames")].toInt();
        frames = stream[line("nb_read_frames")].toString().toInt();
        const QJsonObject format = root[line("format")].toObject();
        container = format[line("format_name")].toString();
        seconds = format[line("duration")].toString().toDouble();
    }

    int streams = 0;
    QString codec;
    QString sound; // its codec
    QString rate;
    cv::Size size;
    int frames = 0;
    int bFrames = 0;
    QString container;
    double seconds = 0;
};

/// Plays a video to its end. \return its frames in grey, or nothing when the player complains
std::vector<cv::Mat> play(const QString &path, const cv::Size &size = {80, 60})
{
    const QByteArray bytes = outputOf("ffmpeg",
                                      words("-v error -i") << line("file:") + path
                                                           << words("-f rawvideo -pix_fmt gray -"));
    std::vector<cv::Mat> pictures;
    for (int at = 0; size.area() > 0 && at + size.area() <= bytes.size(); at += size.area()) {
        pictures.push_back(cv::Mat(size, CV_8UC1, const_cast<char *>(bytes.data() + at)).clone());
    }
    return pictures;
}

/// The grey of each frame of a video, at its middle.
QList<int> greysOf(const QString &path)
{
    QList<int> greys;
    for (const cv::Mat &picture : play(path)) {
        greys << picture.at<uchar>(picture.rows / 2, picture.cols / 2);
    }
    return greys;
}

/// When the clicks of a video are heard, in seconds.
std::vector<double> clicksIn(const QString &path)
{
    const QByteArray bytes = outputOf(
        "ffmpeg",
        words("-v error -i") << line("file:") + path
                             << words("-map 0:a -af aresample=async=1:first_pts=0 -f s16le -ac 1 "
                                      "-ar 48000 -"));
    const auto *samples = reinterpret_cast<const qint16 *>(bytes.constData());
    std::vector<double> times;
    for (int i = 0; i < bytes.size() / 2; ++i) {
        const double time = double(i) / soundRate;
        if (std::abs(int(samples[i])) > 6000 && (times.empty() || time > times.back() + 0.5)) {
            times.push_back(time);
        }
    }
    return times;
}

/// The clicks' seconds, where all are within 10 ms of a whole one.
QList<int> secondsOf(const std::vector<double> &clicks)
{
    QList<int> seconds;
    for (const double time : clicks) {
        if (std::abs(time - std::round(time)) > 0.01) {
            qWarning("a click at %.3f s", time);
            return {};
        }
        seconds << int(std::round(time));
    }
    return seconds;
}

QList<int> range(int begin, int end)
{
    QList<int> numbers;
    for (int i = begin; i < end; ++i) {
        numbers << i;
    }
    return numbers;
}

/// Whether the greys are these, apart from what the codec loses.
bool areNear(const QList<int> &greys, const QList<int> &expected)
{
    return std::equal(greys.begin(), greys.end(), expected.begin(), expected.end(),
                      [](int a, int b) { return std::abs(a - b) <= 2; });
}

QByteArray textOf(const QList<int> &numbers)
{
    QByteArray text;
    for (const int number : numbers) {
        text += QByteArray::number(number) + ' ';
    }
    return text;
}

/// Records the test scene for a moment, until the application ends.
int recordScene(const QByteArray &path)
{
    if (!bStartPlay(0) || isRecording() || !bStartRec(path.constData()) || !isRecording()) {
        return 1;
    }
    QTimer::singleShot(200, QCoreApplication::instance(), &QCoreApplication::quit);
    return QCoreApplication::exec();
}

} // namespace

Q_DECLARE_METATYPE(VideoFormat)

class TestPortableRecording : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void formats_data()
    {
        const Rows<VideoFormat, QString, QString, QString, QString> row("format", "name", "file",
                                                                        "container", "codec");
        constexpr auto standard = VideoFormat::Standard;
        constexpr auto legacy = VideoFormat::Legacy;
        // clang-format off
        row("standard",           standard, "a",         "a.mp4",         "mp4",      "h264");
        row("legacy",             legacy,   "a",         "a.avi",         "avi",      "mpeg4");
        row("extension is there", standard, "a.MP4",     "a.MP4",         "mp4",      "h264");
        row("unknown extension",  legacy,   "a.mp3",     "a.mp3.avi",     "avi",      "mpeg4");
        row("legacy in MP4",      legacy,   "a.mp4",     "a.mp4",         "mp4",      "mpeg4");
        row("standard in AVI",    standard, "a.avi",     "a.avi",         "avi",      "mpeg4");
        row("Matroska",           standard, "a.mkv",     "a.mkv",         "matroska", "h264");
        row("Chinese",            standard, "柜台/录像", "柜台/录像.mp4", "mp4",      "h264");
        // clang-format on
    }

    void formats()
    {
        QFETCH(VideoFormat, format);
        QFETCH(QString, name);
        QFETCH(QString, file);
        QFETCH(QString, container);
        QFETCH(QString, codec);
        Studio studio;
        QVERIFY(studio.recorder.start(path(name), format));
        QCOMPARE(m_log->lines().last(),
                 line("recording, without sound: %1, 80 x 60, %2; there is no microphone")
                     .arg(path(file), line(codec == line("h264") ? "H.264" : "MPEG-4")));
        QVERIFY(studio.recorder.isRecording());
        studio.clock.advance(1200ms);
        QVERIFY(studio.recorder.stop());
        QTRY_VERIFY(!studio.recorder.isRecording());
        const Probe probe(path(file));
        QCOMPARE(probe.streams, 1); // no sound
        QVERIFY2(probe.container.contains(container), qPrintable(probe.container));
        QCOMPARE(probe.codec, codec);
        QCOMPARE(probe.size, cv::Size(80, 60));
        QCOMPARE(probe.rate, line("25/1"));
        QCOMPARE(probe.frames, 30);
        QCOMPARE(probe.bFrames, 0); // they would delay what is written
        QVERIFY2(std::abs(probe.seconds - 1.2) < 0.01, qPrintable(QString::number(probe.seconds)));
        QVERIFY(
            m_log->lines().last().startsWith(line("recorded: ") + path(file) + line(", 1.2 s, ")));
    }

    void sizes_data()
    {
        const Rows<int, int, qint64, qint64, int, int> row(
            "width", "height", "wantedWidth", "wantedHeight", "resultWidth", "resultHeight");
        constexpr qint64 max = std::numeric_limits<qint64>::max();
        //                 picture     wanted       result
        // clang-format off
        row("none wanted", 1920, 1080, 0,    0,     1920, 1080);
        row("half wanted", 1920, 1080, 640,  0,     1920, 1080);
        row("negative",    1920, 1080, -640, -480,  1920, 1080);
        row("wanted",      1920, 1080, 640,  480,   640,  480);
        row("odd",         1920, 1080, 641,  481,   640,  480);
        row("odd picture", 81,   61,   0,    0,     80,   60);
        row("least",       1920, 1080, 1,    1,     16,   16);
        row("absurd",      1920, 1080, max,  1,     4096, 16);
        row("too large",   8192, 4096, 0,    0,     4096, 2048);
        row("too small",   3,    5000, 0,    0,     16,   4096);
        // clang-format on
    }

    void sizes()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QFETCH(qint64, wantedWidth);
        QFETCH(qint64, wantedHeight);
        const cv::Size size = videoSize({width, height}, wantedWidth, wantedHeight);
        QTEST(size.width, "resultWidth");
        QTEST(size.height, "resultHeight");
    }

    void otherShapesGetBarsAndNoDistortion()
    {
        Studio studio;
        studio.show(100); // brighter than bars
        studio.recorder.setSize(200, 60);
        QVERIFY(studio.recorder.start(path("wide"), VideoFormat::Standard));
        studio.recorder.finish();
        studio.recorder.setSize(60, 200);
        QVERIFY(studio.recorder.start(path("tall"), VideoFormat::Standard));
        studio.recorder.finish();
        const cv::Mat wide = play(path("wide.mp4"), {200, 60}).at(0);
        QCOMPARE(cv::boundingRect(wide > 50), cv::Rect(60, 0, 80, 60));
        const cv::Mat tall = play(path("tall.mp4"), {60, 200}).at(0);
        QCOMPARE(cv::boundingRect(tall > 50), cv::Rect(0, 77, 60, 45));
    }

    void rateIsConstant_data()
    {
        const Rows<int, int> row("interval", "step");
        row("slow camera: frames are repeated", 5, 30);
        row("fast camera: frames are left out", 1, 5);
    }

    void rateIsConstant()
    {
        QFETCH(int, interval); // of the camera, in frames of the video
        QFETCH(int, step); // from one shown frame to the next
        Studio studio;
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        studio.record(1); // the frame that the file begins with
        QList<int> expected{1};
        for (int i = 1; i < 30; ++i) {
            if (i % interval == 0) {
                studio.show(studio.grey() + step);
            }
            expected << studio.grey();
            studio.record(1);
        }
        studio.recorder.finish();
        const QList<int> greys = greysOf(path("a.mp4"));
        QVERIFY2(areNear(greys, expected), textOf(greys).constData());
        // The first frame counts again where it is repeated.
        const auto different = std::set<int>(expected.begin(), expected.end()).size()
            + (expected[0] == expected[1] ? 1 : 0);
        QVERIFY(
            m_log->lines().last().endsWith(line("1.2 s, %1 different pictures").arg(different)));
    }

    void aFrameWaitsForALatePicture()
    {
        ManualClock clock;
        const auto device = std::make_shared<FakeDevice>();
        device->holdFrames();
        device->deliver(1);
        CameraSet cameras([&](int, QString *) { return std::make_unique<FakeSource>(device); },
                          clock);
        cameras.settings().setResolution(1, {80, 60});
        cameras.start(1);
        Recorder recorder(cameras, clock, [](QString *) { return nullptr; });
        QVERIFY(recorder.start(path("a"), VideoFormat::Standard));
        QVERIFY(clock.waitForWaiter(60ms));
        clock.advance(60ms); // the second frame: the first picture, which is current
        for (int frame = 3; frame <= 4; ++frame) {
            QVERIFY(clock.waitForWaiter(40ms));
            clock.advance(40ms);
            QVERIFY(clock.waitForWaiter(20ms));
            device->deliver(1); // after the frame was due
        }
        QVERIFY(clock.waitForWaiter(40ms));
        recorder.finish();
        device->fail(line("the test is over")); // ends a read in progress
        const QString log = m_log->lines().join(QLatin1Char('\n'));
        QVERIFY2(log.contains(line("0.2 s, 4 different pictures")), qPrintable(log));
    }

    void aStartThatRunsOutOfMemoryIsNoRecording()
    {
        ManualClock clock;
        const auto device = std::make_shared<FakeDevice>();
        CameraSet cameras([&](int, QString *) { return std::make_unique<FakeSource>(device); },
                          clock);
        cameras.start(1);
        bool hasMemory = false;
        Recorder recorder(cameras, clock, [&](QString *) -> std::shared_ptr<SoundCapture> {
            return hasMemory ? nullptr : throw std::bad_alloc();
        });
        QVERIFY(!recorder.start(path("a"), VideoFormat::Standard));
        QVERIFY(m_log->takeLines().join(QString()).contains(line("bad_alloc")));
        hasMemory = true;
        QVERIFY(recorder.start(path("a"), VideoFormat::Standard));
        recorder.finish();
    }

    void soundStaysWithThePicture_data()
    {
        const Rows<VideoFormat, QString, QString, int, int> row("format", "name", "codec", "ppm",
                                                                "gapEnd");
        row("exact", VideoFormat::Standard, "a.mp4", "aac", 0, 20);
        row("fast microphone", VideoFormat::Standard, "a.mp4", "aac", 400, 20);
        row("slow microphone", VideoFormat::Legacy, "a.avi", "mp3", -400, 20);
        row("lost for 5 s", VideoFormat::Standard, "a.mkv", "aac", 100, 25);
        row("lost for 0.5 s", VideoFormat::Legacy, "a.mp4", "mp3", -100, -1);
        row("AVI", VideoFormat::Standard, "a.avi", "mp3", 0, 20);
    }

    /// For a minute; without correction, 400 ppm are 24 ms then.
    void soundStaysWithThePicture()
    {
        QFETCH(VideoFormat, format);
        QFETCH(int, ppm);
        QFETCH(int, gapEnd);
        QFETCH(QString, name);
        QString error;
        auto file = VideoFile::create(path(name), format, {80, 60}, true, &error);
        QVERIFY2(file, qPrintable(error));
        constexpr int seconds = 60;
        constexpr int block = soundRate / 10;
        const double rate = soundRate * (1 + ppm / 1e6); // samples in a second
        const double gap = gapEnd < 0 ? 20.55 : gapEnd;
        int blocks = 0;
        for (int i = 0; i < seconds * videoFrameRate; ++i) {
            const cv::Mat picture = i == 0 ? cv::Mat(60, 80, CV_8UC3, cv::Scalar()) : cv::Mat();
            QVERIFY(file->add(i, picture, &error));
            for (; (blocks + 1) * block / rate < double(i) / videoFrameRate; ++blocks) {
                const double time = blocks * block / rate;
                const double jitter = (blocks * 5 % 7 - 3) * 0.001;
                if (time < 20.05 || time > gap) {
                    const std::chrono::duration<double> at(std::max(0.0, time + jitter));
                    QVERIFY(file->addSound(std::chrono::duration_cast<base::Clock::Duration>(at),
                                           clicks(time, block, rate), &error));
                }
            }
        }
        QVERIFY(file->finish(&error));
        const Probe probe(path(name));
        QTEST(probe.sound, "codec");
        QVERIFY2(std::abs(probe.seconds - seconds) < 0.1,
                 qPrintable(QString::number(probe.seconds)));
        // Encoders leave the first one out, which is where they begin.
        QCOMPARE(secondsOf(clicksIn(path(name))),
                 range(1, 21) + range(std::max(21, int(gap) + 1), seconds));
    }

    void recordsTheMicrophone()
    {
        Studio studio;
        studio.microphone->plug(true);
        studio.device->age = 160ms; // a click that is heard then is seen so much later
        studio.cameras.stopMain();
        studio.device->deliver(1);
        QVERIFY(studio.cameras.start(1));
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        QCOMPARE(m_log->lines().last(),
                 line("recording: %1, 80 x 60, H.264, AAC from Fake").arg(path("a.mp4")));
        const auto origin = studio.clock.now() - 160ms;
        studio.recordSound(55, origin); // clicks at 1 s and 2 s
        QVERIFY(studio.recorder.pause());
        studio.clock.advance(800ms); // a click at 3 s, which is left out
        studio.recorder.resume();
        studio.recordSound(30, origin + 800ms); // at 3 s of the video
        studio.microphone->plug(false);
        QTRY_VERIFY(m_log->lines().contains(line("microphone lost: Fake: unplugged")));
        studio.record(50);
        studio.microphone->plug(true);
        while (!m_log->lines().contains(line("microphone is back: Fake"))) {
            studio.record(1);
        }
        const auto now = studio.clock.now() - origin - 800ms;
        const int second = int(now / 1s) + 1;
        studio.recordSound(30, origin + 800ms);
        studio.recorder.finish();
        QCOMPARE(Probe(path("a.mp4")).streams, 2);
        QCOMPARE(secondsOf(clicksIn(path("a.mp4"))), range(1, 4) + range(second, second + 1));
    }

    void previewWindow()
    {
        Studio studio;
        studio.device->deliverFreely();
        studio.microphone->plug(true);
        QVERIFY(studio.cameras.start(4));
        AvPreview preview(studio.cameras, studio.clock, studio.openSound);
        const auto window = [] { return QGuiApplication::topLevelWindows().value(0); };
        preview.open();
        studio.microphone->capture({studio.clock.now(), clicks(0, 1920)});
        studio.record(2);
        QVERIFY(!preview.picture().main.isNull() && !preview.picture().inset.isNull());
        QVERIFY(preview.picture().hasMicrophone);
        QVERIFY(std::abs(preview.picture().level - 20000.0 / 32768) < 0.01);
        QTRY_VERIFY(window() && window()->isVisible());
        preview.setVisible(false);
        QTRY_VERIFY(!window()->isVisible());
        preview.setVisible(true);
        QTRY_VERIFY(window()->isVisible());
        QVERIFY(window()->close()); // by the person
        studio.clock.advance(40ms);
        QTRY_VERIFY(!preview.isOpen() && !window());
        studio.microphone->plug(false);
        preview.open();
        studio.record(2);
        QVERIFY(preview.isOpen() && !preview.picture().hasMicrophone);
        studio.cameras.announceEnd();
        studio.cameras.stopMain();
        studio.clock.advance(40ms);
        QTRY_VERIFY(!preview.isOpen());
    }

    void contentOfThePreviewWindow()
    {
        AvPicture picture;
        picture.main = QImage(200, 100, QImage::Format_RGB888);
        picture.main.fill(Qt::blue);
        picture.inset = QImage(40, 40, QImage::Format_RGB888);
        picture.inset.fill(Qt::yellow);
        picture.hasMicrophone = true;
        picture.level = 0.0316; // -30 dB, half of the bar
        const QImage page = paintAvPreview({800, 640}, picture);
        const QColor middle = page.pixelColor(400, 300);
        QCOMPARE(middle, QColor(Qt::blue));
        QCOMPARE(page.pixelColor(700, 430), QColor(Qt::yellow)); // 28 % of the main picture
        QCOMPARE(page.pixelColor(560, 430), middle);
        QCOMPARE(page.pixelColor(400, 10), page.pixelColor(400, 590)); // above and below
        QCOMPARE(page.pixelColor(20, 620), page.pixelColor(390, 620));
        QVERIFY(page.pixelColor(20, 620) != page.pixelColor(410, 620));
    }

    void recorderFarBehindSkipsFrames()
    {
        Studio studio;
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        studio.record(10);
        studio.clock.advance(10s);
        studio.record(1);
        studio.recorder.finish();
        const Probe probe(path("a.mp4"));
        QVERIFY2(std::abs(probe.seconds - 10.44) < 0.01,
                 qPrintable(QString::number(probe.seconds)));
        QCOMPARE(probe.frames, 10 + 50 + 1); // two seconds are repeated
    }

    void pauseLeavesNoGap()
    {
        Studio studio;
        Recorder &recorder = studio.recorder;
        QVERIFY(!recorder.pause());
        QVERIFY(!recorder.resume());
        QVERIFY(!recorder.stop());
        studio.show(50);
        QVERIFY(recorder.start(path("a"), VideoFormat::Legacy));
        QVERIFY(!recorder.resume());
        studio.record(20);
        QVERIFY(recorder.pause());
        QVERIFY(!recorder.pause());
        studio.show(100);
        studio.clock.advance(1h);
        QVERIFY(studio.clock.waitForWaiter());
        QVERIFY(recorder.isRecording());
        studio.show(150);
        QVERIFY(studio.resume());
        studio.record(10);
        QVERIFY(recorder.pause());
        studio.clock.advance(1h);
        QVERIFY(recorder.stop());
        QTRY_VERIFY(!recorder.isRecording());
        QVERIFY(!recorder.stop());
        const QList<int> greys = greysOf(path("a.avi"));
        const QList<int> expected = QVector<int>(20, 50).toList() + QVector<int>(10, 150).toList();
        QVERIFY2(areNear(greys, expected), textOf(greys).constData());
    }

    void goesOnWhileCamerasChange()
    {
        Studio studio;
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        studio.record(10);
        studio.device->deliverFreely();
        QVERIFY(studio.cameras.start(2, 90));
        studio.record(10);
        studio.cameras.stopMain();
        studio.record(10);
        QVERIFY(studio.cameras.start(1));
        studio.record(10);
        studio.device->fail(line("unplugged"));
        QTRY_COMPARE(studio.grey(), 0);
        studio.record(10);
        studio.recorder.finish();
        QCOMPARE(play(path("a.mp4")).size(), size_t(50));
    }

    void endsWithThePreview()
    {
        Studio studio;
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        QVERIFY(studio.recorder.pause()); // it is noticed even so
        studio.device->deliverFreely();
        studio.cameras.stopMain();
        for (int second = 1; second <= 5; ++second) {
            QVERIFY(studio.clock.waitForWaiter());
            studio.clock.advance(1s);
        }
        QVERIFY(studio.clock.waitForWaiter());
        QVERIFY(studio.recorder.isRecording()); // it could be a switch of cameras
        studio.clock.advance(1s);
        QTRY_VERIFY(!studio.recorder.isRecording());
        QVERIFY(m_log->lines().contains(line("the recording ends with the preview")));
        QCOMPARE(play(path("a.mp4")).size(), size_t(1));
    }

    void endsAtOnceWithAnAnnouncedEnd()
    {
        Studio studio;
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        studio.record(5);
        studio.device->deliverFreely();
        studio.cameras.announceEnd();
        studio.cameras.stopMain();
        studio.clock.advance(40ms);
        QTRY_VERIFY(!studio.recorder.isRecording());
        QCOMPARE(play(path("a.mp4")).size(), size_t(5));
    }

    void refusals_data()
    {
        const Rows<QString, QString> row("name", "reason");
        QString tooLong;
        tooLong.fill(QLatin1Char('x'), 100000);
        QString tooDeep = tooLong;
        tooDeep.replace(line("xx"), line("x/"));
        row("nothing", QString(), "the path is not a file name");
        row("a directory", line("directory"), "the path is not a file name");
        row("ends like a directory", line("new/"), "the path is not a file name");
        row("a directory like a video", line("directory.mp4"), "the path is not a file name");
        row("a pipe", line("pipe.mp4"), "file");
        row("below a file", line("file/a.mp4"), "Not a directory");
        row("too long", tooLong, "File name too long");
        row("too deep", tooDeep, "File name too long");
    }

    void refusals()
    {
        QFETCH(QString, name);
        QFETCH(QString, reason);
        QDir(m_folder->path()).mkdir(line("directory"));
        QDir(m_folder->path()).mkdir(line("directory.mp4"));
        QCOMPARE(mkfifo(QFile::encodeName(path("pipe.mp4")).constData(), 0600), 0);
        QFile file(path("file"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QStringList before = everythingIn(m_folder->path());
        Studio studio;
        m_log->takeLines();
        QVERIFY(!studio.recorder.start(name.isEmpty() ? name : path(name), VideoFormat::Standard));
        QVERIFY(!studio.recorder.isRecording());
        const QStringList lines = m_log->takeLines();
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.front().startsWith(line("recording doesn't start: "))
                     && lines.front().contains(reason) && lines.front().size() < 1000,
                 qPrintable(lines.front().left(1000)));
        QCOMPARE(everythingIn(m_folder->path()), before);
    }

    void oneRecordingAtATime()
    {
        Studio studio;
        studio.device->deliverFreely();
        studio.cameras.stopMain();
        m_log->takeLines();
        QVERIFY(!studio.recorder.start(path("a"), VideoFormat::Standard));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("recording doesn't start: there is no preview")});
        QVERIFY(studio.cameras.start(1));
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        m_log->takeLines();
        QVERIFY(!studio.recorder.start(path("b"), VideoFormat::Standard));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("recording doesn't start: the previous one has not finished")});
        studio.recorder.finish();
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard)); // is replaced
        studio.recorder.finish();
        QCOMPARE(everythingIn(m_folder->path()), QStringList{line("a.mp4")});
        QVERIFY(!play(path("a.mp4")).empty());
    }

    /// It ends by itself, with a file that is complete, and leaves room for others.
    void nearlyFullDisk()
    {
        Studio studio;
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Standard));
        studio.record(10);
        const FullDisk disk(255 << 20);
        for (int i = 0; i < 500 && studio.recorder.isRecording(); ++i) {
            studio.clock.advance(40ms);
            QTest::qWait(2);
        }
        QVERIFY(!studio.recorder.isRecording());
        QStringList lines = m_log->takeLines();
        QVERIFY(lines.join(QLatin1Char('\n'))
                    .contains(line("the recording ends: the disk is nearly full")));
        QVERIFY(lines.last().startsWith(line("recorded: ")));
        QVERIFY(play(path("a.mp4")).size() > 10);

        QVERIFY(!studio.recorder.start(path("b"), VideoFormat::Standard));
        lines = m_log->takeLines();
        QVERIFY(lines.size() == 1 && lines[0].contains(line("the disk is nearly full")));
        QVERIFY(!QFile::exists(path("b.mp4")));
    }

    void fullDisk_data()
    {
        const Rows<int, bool, bool> row("bytes", "starts", "leavesFile");
        row("at the start", 100, false, false);
        row("before a second is written", 900, true, false);
        row("later", 5000, true, true);
    }

    void fullDisk()
    {
        QFETCH(int, bytes);
        QFETCH(bool, starts);
        QFETCH(bool, leavesFile);
        Studio studio;
        {
            const FileSizeLimit full{rlim_t(bytes)};
            QCOMPARE(studio.recorder.start(path("a"), VideoFormat::Standard), starts);
            while (studio.recorder.isRecording()) {
                studio.clock.advance(1s);
                QTest::qWait(1);
            }
        }
        QCOMPARE(m_log->lines().last(),
                 line(starts ? "the recording broke off: " : "recording doesn't start: ")
                     + path("a.mp4") + line(": File too large"));
        QCOMPARE(QFile::exists(path("a.mp4")), leavesFile);
        QVERIFY(!leavesFile || play(path("a.mp4")).size() >= videoFrameRate);
    }

    void unfinishedFilePlays() // as after a kill, but for its last second
    {
        for (const QString &name : {line("a.mp4"), line("a.avi")}) {
            for (const bool withSound : {false, true}) {
                QString error;
                const auto file = VideoFile::create(path(name), VideoFormat::Standard, {80, 60},
                                                    withSound, &error);
                for (int i = 0; i < 55; ++i) {
                    QVERIFY(file->addSound(i * 40ms, clicks(i * 0.04, 1920), &error));
                    QVERIFY(file->add(i, cv::Mat(60, 80, CV_8UC3, cv::Scalar::all(i)), &error));
                }
                QVERIFY(QFile::copy(path(name), path(line("copy-") + name)));
                const auto copy = play(path(line("copy-") + name));
                QVERIFY2(copy.size() >= 50, qPrintable(QString::number(copy.size())));
                QVERIFY(QFile::remove(path(line("copy-") + name)));
            }
        }
    }

    void endOfTheProgramFinishesTheFile()
    {
        // A copy of this program, since devices.ini is looked for beside it.
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), path("child")));
        QVERIFY(QFile::link(besideProgram("libportablevideo.so"), path("libportablevideo.so")));
        writeFile(path("devices.ini"), "[cameras]\n1=scene\n[scene]\nsize=640x480\n");
        QProcess child;
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(path("child"), {line("--record"), path("a.mkv")});
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitCode(), 0);
        const QByteArray output = child.readAll();
        QVERIFY(output.contains("recorded: "));
        QVERIFY2(!output.contains("x264"), output.constData()); // FFmpeg's own messages
        QVERIFY(Probe(path("a.mkv")).seconds > 0.1); // known from the end of the file
    }

    void manyCallersAtOnce()
    {
        Studio studio;
        studio.device->deliverFreely();
        studio.clock.runFree();
        Repeaters callers;
        std::atomic<int> recorded{0};
        for (const auto *name : {"a", "b"}) {
            callers.add([&, name](int) {
                recorded += studio.recorder.start(path(line(name)), VideoFormat::Legacy);
            });
        }
        callers.add([&](int) {
            studio.recorder.pause();
            studio.recorder.resume();
            studio.recorder.setSize(64, 48);
            studio.recorder.isRecording();
            studio.recorder.stop();
        });
        callers.add([&](int) {
            studio.cameras.start(2);
            studio.recorder.finish();
        });
        QTRY_VERIFY_WITH_TIMEOUT(recorded >= 20, 60000);
        callers.stop();
        studio.recorder.finish();
        QVERIFY(!studio.recorder.isRecording());
        const QString last = everythingIn(m_folder->path()).value(0);
        QVERIFY(Probe(path(last)).frames > 0);
    }
};

int main(int argc, char **argv)
{
    const QGuiApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == line("--record")) {
        return recordScene(arguments.value(2).toUtf8());
    }
    TestPortableRecording test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_portablerecording.moc"
