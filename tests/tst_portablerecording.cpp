// SPDX-License-Identifier: MIT
// The portable library's recordings: what ffmpeg finds in the files, and how they end.
#include "devicelib/doccamera.h"
#include "portable/recording/recorder.h"
#include "tests/fakesource.h"
#include "tests/portabletest.h"

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>
#include <QtTest>
#include <opencv2/imgproc.hpp>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <set>
#include <thread>

using namespace portable;
using namespace std::chrono_literals;

namespace {

/// Time that passes when the test says so.
class TestClock
{
public:
    void advance(std::chrono::milliseconds time) { m_passed += time.count(); }
    RecorderTimes times()
    {
        return {200ms, [this] {
                    return RecorderTimes::Clock::time_point(std::chrono::milliseconds(m_passed));
                }};
    }

private:
    std::atomic<qint64> m_passed{0};
};

/// CameraSet of 80 x 60 that are all the same device, number 1 open, and a recorder.
struct Studio
{
    explicit Studio(RecorderTimes times, double framesPerSecond = 100)
        : rate(framesPerSecond)
        , recorder(cameras, std::move(times))
    {
        cameras.settings().setResolution(1, {80, 60});
        cameras.start(1);
    }
    ~Studio() { device->fail(line("the test is over")); } // ends a read under way

    const double rate;
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    CameraSet cameras{[this](int, QString *) { return std::make_unique<FakeSource>(device, rate); },
                      {2000ms, 5ms}};
    Recorder recorder;
};

/// What ffprobe says about a video, having counted its pictures.
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
        streams = all.size();
        codec = stream[line("codec_name")].toString();
        rate = stream[line("avg_frame_rate")].toString();
        size = {stream[line("width")].toInt(), stream[line("height")].toInt()};
        pictures = stream[line("nb_read_frames")].toString().toInt();
        const QJsonObject format = root[line("format")].toObject();
        container = format[line("format_name")].toString();
        seconds = format[line("duration")].toString().toDouble();
    }

    int streams = 0;
    QString codec;
    QString rate;
    cv::Size size;
    int pictures = 0;
    QString container;
    double seconds = 0;
};

/// Plays a video to its end. \return its pictures in grey, or nothing when the player complains
std::vector<cv::Mat> play(const QString &path)
{
    const cv::Size size = Probe(path).size;
    const QByteArray bytes = outputOf("ffmpeg",
                                      words("-v error -i") << line("file:") + path
                                                           << words("-f rawvideo -pix_fmt gray -"));
    std::vector<cv::Mat> pictures;
    for (int at = 0; size.area() > 0 && at + size.area() <= bytes.size(); at += size.area()) {
        pictures.push_back(cv::Mat(size, CV_8UC1, const_cast<char *>(bytes.data() + at)).clone());
    }
    return pictures;
}

int greyOfMiddle(const cv::Mat &picture)
{
    return picture.at<uchar>(picture.rows / 2, picture.cols / 2);
}

/// This program as another process, see main().
struct Child
{
    Child(const QStringList &arguments, const QString &directory)
    {
        // devices.ini is looked for beside the program.
        const QString program = directory + line("/child");
        QFile::copy(QCoreApplication::applicationFilePath(), program);
        writeFile(directory + line("/devices.ini"), "[cameras]\n1=scene\n[scene]\nsize=640x480\n");
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
    }

    QProcess process;
};

/// Records the scene until the recording ends by itself, or the process for `milliseconds`.
int recordScene(const QByteArray &path, rlim_t largestFile, int milliseconds)
{
    const rlimit limit{largestFile, largestFile};
    std::signal(SIGXFSZ, SIG_IGN); // writing more fails, as it does on a full disk
    setrlimit(RLIMIT_FSIZE, &limit);
    if (!bStartPlay(0) || !bStartRec(path.constData())) {
        return 1;
    }
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &watch, [] {
        if (!isRecording()) {
            QCoreApplication::quit();
        }
    });
    watch.start(20);
    QTimer::singleShot(milliseconds, QCoreApplication::instance(), &QCoreApplication::quit);
    return QCoreApplication::exec();
}

constexpr rlim_t noLimit = 1 << 30;

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
        constexpr auto usual = VideoFormat::Usual;
        constexpr auto old = VideoFormat::Old;
        // clang-format off
        row("usual",              usual, "a",         "a.mp4",          "mp4",      "h264");
        row("old",                old,   "a",         "a.avi",          "avi",      "mpeg4");
        row("extension is there", usual, "a.MP4",     "a.MP4",          "mp4",      "h264");
        row("unknown extension",  old,   "a.mp3",     "a.mp3.avi",      "avi",      "mpeg4");
        row("old in MP4",         old,   "a.mp4",     "a.mp4",          "mp4",      "mpeg4");
        row("usual in AVI",       usual, "a.avi",     "a.avi",          "avi",      "mpeg4");
        row("Matroska",           usual, "a.mkv",     "a.mkv",          "matroska", "h264");
        row("Chinese",            usual, "柜台/录像", "柜台/录像.mp4",  "mp4",      "h264");
        // clang-format on
    }

    void formats()
    {
        QFETCH(VideoFormat, format);
        QFETCH(QString, name);
        QFETCH(QString, file);
        QFETCH(QString, container);
        TestClock clock;
        Studio studio(clock.times());
        QVERIFY(studio.recorder.start(path(name), format));
        QVERIFY(studio.recorder.isRecording());
        clock.advance(1200ms);
        QVERIFY(studio.recorder.stop());
        QTRY_VERIFY(!studio.recorder.isRecording());
        const Probe probe(path(file));
        QCOMPARE(probe.streams, 1); // no sound
        QVERIFY2(probe.container.contains(container), qPrintable(probe.container));
        QTEST(probe.codec, "codec");
        QCOMPARE(probe.size, cv::Size(80, 60));
        QCOMPARE(probe.rate, line("25/1"));
        QCOMPARE(probe.pictures, 30);
        QVERIFY2(std::abs(probe.seconds - 1.2) < 0.01, qPrintable(QString::number(probe.seconds)));
        QCOMPARE(play(path(file)).size(), size_t(30));
        QVERIFY(
            m_log->lines().last().startsWith(line("recorded: ") + path(file) + line(", 1.2 s,")));
    }

    void sizes_data()
    {
        const Rows<int, int, qint64, qint64, int, int> row(
            "width", "height", "wantedWidth", "wantedHeight", "resultWidth", "resultHeight");
        constexpr qint64 most = std::numeric_limits<qint64>::max();
        //                 picture     wanted       result
        // clang-format off
        row("none wanted", 1920, 1080, 0,    0,     1920, 1080);
        row("half wanted", 1920, 1080, 640,  0,     1920, 1080);
        row("negative",    1920, 1080, -640, -480,  1920, 1080);
        row("wanted",      1920, 1080, 640,  480,   640,  480);
        row("odd",         1920, 1080, 641,  481,   640,  480);
        row("odd picture", 81,   61,   0,    0,     80,   60);
        row("absurd",      1920, 1080, most, 1,     4096, 16);
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
        Studio studio({});
        studio.device->holdFrames();
        studio.device->deliver(100); // until the grey is none that a bar could have
        studio.recorder.setSize(200, 60);
        QTRY_VERIFY(currentGrey(studio) > 90);
        QVERIFY(studio.recorder.start(path("wide"), VideoFormat::Usual));
        studio.recorder.finish();
        studio.recorder.setSize(60, 200);
        QVERIFY(studio.recorder.start(path("tall"), VideoFormat::Usual));
        studio.recorder.finish();
        const cv::Mat wide = play(path("wide.mp4")).at(0);
        QCOMPARE(wide.size(), cv::Size(200, 60));
        QCOMPARE(cv::boundingRect(wide > 50), cv::Rect(60, 0, 80, 60));
        const cv::Mat tall = play(path("tall.mp4")).at(0);
        QCOMPARE(tall.size(), cv::Size(60, 200));
        QCOMPARE(cv::boundingRect(tall > 50), cv::Rect(0, 77, 60, 45));
    }

    void pauseLeavesNoGap()
    {
        TestClock clock;
        Studio studio(clock.times());
        Recorder &recorder = studio.recorder;
        QVERIFY(!recorder.pause());
        QVERIFY(!recorder.resume());
        QVERIFY(!recorder.stop());
        QVERIFY(recorder.start(path("a"), VideoFormat::Old));
        QVERIFY(!recorder.resume());
        clock.advance(800ms);
        QVERIFY(recorder.pause());
        QVERIFY(!recorder.pause());
        clock.advance(1h);
        QVERIFY(recorder.isRecording());
        QVERIFY(recorder.resume());
        clock.advance(400ms);
        QVERIFY(recorder.pause());
        clock.advance(1h);
        QVERIFY(recorder.stop());
        QTRY_VERIFY(!recorder.isRecording());
        QVERIFY(!recorder.stop());
        QCOMPARE(play(path("a.avi")).size(), size_t(30));
    }

    void aPausedPictureIsNotRecorded()
    {
        Studio studio({}); // the numbers of the frames are their greys
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Usual));
        QTRY_VERIFY(currentGrey(studio) > 30);
        QVERIFY(studio.recorder.pause());
        const int pausedAt = currentGrey(studio);
        QTRY_VERIFY(currentGrey(studio) > 130);
        const int resumedAt = currentGrey(studio);
        QVERIFY(studio.recorder.resume());
        QTRY_VERIFY(currentGrey(studio) > 160);
        studio.recorder.finish();
        bool before = false;
        bool after = false;
        for (const cv::Mat &picture : play(path("a.mp4"))) {
            const int grey = greyOfMiddle(picture);
            before |= grey < pausedAt;
            after |= grey > resumedAt;
            QVERIFY2(grey < pausedAt + 3 || grey > resumedAt - 3,
                     qPrintable(QString::number(grey)));
        }
        QVERIFY(before && after);
    }

    void lengthIsThatOfTheClock_data()
    {
        const Rows<double> row("framesPerSecond");
        row("slow camera", 8.0);
        row("fast camera", 120.0);
    }

    void lengthIsThatOfTheClock()
    {
        QFETCH(double, framesPerSecond);
        Studio studio({}, framesPerSecond);
        QElapsedTimer time;
        time.start();
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Usual));
        QTest::qWait(1500);
        QVERIFY(studio.recorder.stop());
        const double seconds = double(time.nsecsElapsed()) / 1e9;
        QTRY_VERIFY(!studio.recorder.isRecording());

        const auto pictures = play(path("a.mp4"));
        const double expected = seconds * picturesPerSecond;
        QVERIFY2(
            std::abs(double(pictures.size()) - expected) <= 2,
            qPrintable(QStringLiteral("%1 pictures in %2 s").arg(pictures.size()).arg(seconds)));
        std::set<int> different;
        int last = 0;
        for (const cv::Mat &picture : pictures) {
            QVERIFY(greyOfMiddle(picture) >= last - 1); // none comes twice but at once
            last = greyOfMiddle(picture);
            different.insert(last);
        }
        if (framesPerSecond < picturesPerSecond) {
            QVERIFY(double(different.size()) <= seconds * framesPerSecond + 3);
        } else {
            QVERIFY(double(different.size()) > seconds * 8); // a tenth of a second each, at least
        }
    }

    void goesOnWhileCamerasChange()
    {
        TestClock clock;
        Studio studio(clock.times());
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Usual));
        clock.advance(400ms);
        QVERIFY(studio.cameras.start(2, 90));
        clock.advance(400ms);
        studio.device->fail(line("unplugged"));
        cv::Mat frame;
        QTRY_VERIFY(!studio.cameras.currentFrame(frame));
        clock.advance(400ms);
        studio.recorder.finish();
        const auto pictures = play(path("a.mp4"));
        QCOMPARE(pictures.size(), size_t(30));
        QCOMPARE(pictures.front().size(), cv::Size(80, 60));
    }

    void endsWithThePreview()
    {
        TestClock clock;
        Studio studio(clock.times());
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Usual));
        QVERIFY(studio.recorder.pause()); // it is noticed even so
        studio.cameras.stopMain();
        QTRY_VERIFY(!studio.recorder.isRecording());
        QVERIFY(m_log->lines().contains(line("the recording ends with the preview")));
        QCOMPARE(play(path("a.mp4")).size(), size_t(1));
    }

    void refusals_data()
    {
        const Rows<QString, QString> row("name", "reason");
        QString tooLong;
        tooLong.fill(QLatin1Char('x'), 100000);
        QString tooDeep = tooLong;
        tooDeep.replace(line("xx"), line("x/"));
        row("nothing", QString(), "the path is not that of a file");
        row("a directory", line("directory"), "the path is not that of a file");
        row("ends like a directory", line("new/"), "the path is not that of a file");
        row("a directory like a video", line("directory.mp4"), "the path is not that of a file");
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
        Studio studio({});
        m_log->takeLines();
        QVERIFY(!studio.recorder.start(name.isEmpty() ? name : path(name), VideoFormat::Usual));
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
        Studio studio({});
        studio.cameras.stopMain();
        m_log->takeLines();
        QVERIFY(!studio.recorder.start(path("a"), VideoFormat::Usual));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("recording doesn't start: there is no preview")});
        QVERIFY(studio.cameras.start(1));
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Usual));
        m_log->takeLines();
        QVERIFY(!studio.recorder.start(path("b"), VideoFormat::Usual));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("recording doesn't start: the former one is not finished")});
        studio.recorder.finish();
        QVERIFY(studio.recorder.start(path("a"), VideoFormat::Usual)); // is replaced
        studio.recorder.finish();
        QCOMPARE(everythingIn(m_folder->path()), QStringList{line("a.mp4")});
        QVERIFY(!play(path("a.mp4")).empty());
    }

    void fullDisk_data()
    {
        const Rows<int, int, bool> row("bytes", "exitCode", "leavesFile");
        row("at the start", 100, 1, false);
        row("before a second is written", 5000, 0, false);
        row("later", 150000, 0, true);
    }

    void fullDisk()
    {
        QFETCH(int, bytes);
        QFETCH(bool, leavesFile);
        Child child({line("--record"), path("a.mp4"), QString::number(bytes), line("60000")},
                    m_folder->path());
        QVERIFY(child.process.waitForFinished(60000));
        QTEST(child.process.exitCode(), "exitCode");
        QVERIFY(child.process.readAll().contains("File too large"));
        QCOMPARE(QFile::exists(path("a.mp4")), leavesFile);
        QCOMPARE(!leavesFile || play(path("a.mp4")).size() >= picturesPerSecond, true);
    }

    void killedProcessLeavesWhatItHas()
    {
        Child child({line("--record"), path("a.mp4"), QString::number(noLimit), line("60000")},
                    m_folder->path());
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path("a.mp4")).size() > 100000, 30000);
        child.process.kill();
        QVERIFY(child.process.waitForFinished());
        QVERIFY(play(path("a.mp4")).size() >= picturesPerSecond);
    }

    void endOfTheProgramFinishesTheFile()
    {
        Child child({line("--record"), path("a.mkv"), QString::number(noLimit), line("500")},
                    m_folder->path());
        QVERIFY(child.process.waitForFinished(30000));
        QCOMPARE(child.process.exitCode(), 0);
        QVERIFY(child.process.readAll().contains("recorded: "));
        QVERIFY(Probe(path("a.mkv")).seconds > 0.3); // known from the end of the file
    }

    void manyCallersAtOnce()
    {
        Studio studio({});
        Repeaters callers;
        std::atomic<int> recorded{0};
        for (const auto *name : {"a", "b"}) {
            callers.add([&, name](int) {
                recorded += studio.recorder.start(path(line(name)), VideoFormat::Old);
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
        QVERIFY(!play(path("a.avi")).empty() || !play(path("b.avi")).empty());
    }

private:
    static int currentGrey(Studio &studio)
    {
        cv::Mat frame;
        return studio.cameras.currentFrame(frame) ? greyOfMiddle(frame) : 0;
    }
};

int main(int argc, char **argv)
{
    const QGuiApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == line("--record")) {
        return recordScene(arguments.value(2).toUtf8(), rlim_t(arguments.value(3).toULongLong()),
                           arguments.value(4).toInt());
    }
    TestPortableRecording test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_portablerecording.moc"
