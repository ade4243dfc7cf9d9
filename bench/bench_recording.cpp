// SPDX-License-Identifier: MIT
// A load test: the preview of camera 1 as the server makes it, alone and during a recording. Both
// take frames from the camera at the same time; neither may starve the other. Then what the sound
// costs.
#include "camera/frameencoder.h"
#include "devicelib/doccamera.h"
#include "portable/video/videofile.h"

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <random>
#include <thread>

namespace {

constexpr QSize previewSize{800, 600};
constexpr int seconds = 4;

/// The CPU time of this process so far, in seconds.
double cpuTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

/// Fetches and encodes each frame, as the capture thread does.
class Preview
{
public:
    Preview()
        : m_thread([this] { run(); })
    {
    }
    ~Preview()
    {
        m_end = true;
        m_thread.join();
    }
    Preview(const Preview &) = delete;
    Preview &operator=(const Preview &) = delete;

    /// Prints the frame rate and the CPU load.
    void measure(const char *what)
    {
        const int framesBefore = m_frames;
        const double cpuBefore = cpuTime();
        QElapsedTimer time;
        time.start();
        QThread::sleep(seconds);
        const double passed = double(time.nsecsElapsed()) / 1e9;
        std::printf("  %-22s preview %4.1f frames/s, %3.0f %% of a core\n", what,
                    (m_frames - framesBefore) / passed, 100 * (cpuTime() - cpuBefore) / passed);
    }

private:
    void run()
    {
        FrameEncoder encoder;
        QImage frame;
        while (!m_end) {
            if (getVideoFrame(frame) && !encoder.encode(frame, previewSize).isEmpty()) {
                ++m_frames;
            }
        }
    }

    std::atomic<bool> m_end{false};
    std::atomic<int> m_frames{0};
    std::thread m_thread;
};

/**
 * Passes on the library's log lines about recordings, such as the final "..., 4.0 s, 100 different
 * pictures".
 */
void printRecordingLines(QtMsgType, const QMessageLogContext &, const QString &line)
{
    if (line.contains(QLatin1String("record"))) {
        std::printf("    %s\n", qUtf8Printable(line));
    }
}

void record(const char *what, bool (*start)(const char *), const QString &path, Preview &preview)
{
    if (!start(QFile::encodeName(path).constData())) {
        return; // the library has logged the reason
    }
    preview.measure(what);
    bStopRec();
    while (isRecording()) {
        QThread::msleep(1);
    }
}

/// Encodes a minute of noise whose clock is 100 ppm fast, beside pictures that cost next to
/// nothing.
void encodeSound(portable::VideoFormat format, const QString &path)
{
    using namespace portable;
    constexpr int soundSeconds = 60;
    QString error;
    const auto file = VideoFile::create(path, format, {80, 60}, true, &error);
    if (!file) {
        std::printf("  %s\n", qUtf8Printable(error));
        return;
    }
    std::mt19937 random(1);
    std::uniform_int_distribution<int> noise(-3000, 3000);
    Samples samples(soundRate / videoFrameRate);
    for (qint16 &sample : samples) {
        sample = qint16(noise(random));
    }
    const double before = cpuTime();
    const cv::Mat picture(60, 80, CV_8UC3, cv::Scalar());
    for (int i = 0; i < soundSeconds * videoFrameRate; ++i) {
        file->add(i, i == 0 ? picture : cv::Mat(), &error);
        file->addSound(std::chrono::microseconds(i * 39996LL), samples, &error);
    }
    file->finish(&error);
    std::printf("  %-40s %.1f %% of a core\n", qUtf8Printable(file->description()),
                100 * (cpuTime() - before) / soundSeconds);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("DEVICE_SIMULATION", "1"); // for a camera
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    const QTemporaryDir directory;
    qInstallMessageHandler(printRecordingLines);
    for (const QSize size : {QSize(1280, 720), QSize(1920, 1080)}) {
        setResolution(1, size.width(), size.height());
        if (!bStartPlay(0)) {
            std::printf("camera 1 doesn't start\n");
            return 1;
        }
        std::printf("%d x %d\n", iGetResolutionX(1), iGetResolutionY(1));
        Preview preview;
        preview.measure("alone");
        record("beside H.264 in MP4", bStartRec, directory.filePath(QStringLiteral("a")), preview);
        record("beside MPEG-4 in AVI", bStartRecMp3, directory.filePath(QStringLiteral("b")),
               preview);
        bStopPlay();
    }
    std::printf("sound\n");
    encodeSound(portable::VideoFormat::Standard, directory.filePath(QStringLiteral("c.mp4")));
    encodeSound(portable::VideoFormat::Legacy, directory.filePath(QStringLiteral("d.avi")));
    return 0;
}
