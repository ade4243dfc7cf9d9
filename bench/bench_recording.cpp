// SPDX-License-Identifier: MIT
// A load test: the preview of camera 1 as the server makes it, alone and during a recording. Both
// take frames from the camera at the same time; neither may starve the other. Then what the sound
// costs, and what a recording costs besides its encoder.
#include "bench/table.h"
#include "camera/frameencoder.h"
#include "devicelib/doccamera.h"
#include "portable/video/videofile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QThread>
#include <opencv2/imgproc.hpp>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <random>
#include <thread>
#include <vector>

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

    /// Prints the frame rate and the CPU load. \return the load, in % of a core
    double measure(const char *what)
    {
        const int framesBefore = m_frames;
        const double cpuBefore = cpuTime();
        QElapsedTimer time;
        time.start();
        QThread::sleep(seconds);
        const double passed = double(time.nsecsElapsed()) / 1e9;
        const double load = 100 * (cpuTime() - cpuBefore) / passed;
        std::printf("  %-22s preview %4.1f frames/s, %3.0f %% of a core\n", what,
                    (m_frames - framesBefore) / passed, load);
        return load;
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

/// \return the CPU load, in % of a core; 0 if there is no recording
double record(const char *what, bool (*start)(const char *), const QString &path, Preview &preview)
{
    if (!start(QFile::encodeName(path).constData())) {
        return 0; // the library has logged the reason
    }
    const double load = preview.measure(what);
    bStopRec();
    while (isRecording()) {
        QThread::msleep(1);
    }
    return load;
}

/// The encoder alone, with the settings of a recording, fed with the pictures of a second of the
/// camera. \return its CPU load at the frame rate of videos, in % of a core
double bareEncoderLoad()
{
    constexpr int rate = portable::videoFrameRate;
    constexpr int rounds = 4;
    std::vector<cv::Mat> pictures; // YUV 4:2:0
    QImage frame;
    while (int(pictures.size()) < rate && getVideoFrame(frame)) {
        const QImage rgb = frame.convertToFormat(QImage::Format_RGB888);
        cv::cvtColor(cv::Mat(rgb.height(), rgb.width(), CV_8UC3, const_cast<uchar *>(rgb.bits()),
                             std::size_t(rgb.bytesPerLine())),
                     pictures.emplace_back(), cv::COLOR_RGB2YUV_I420);
    }
    const AVCodec *codec = avcodec_find_encoder_by_name("libx264");
    AVCodecContext *encoder = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!encoder) {
        return 0;
    }
    encoder->width = frame.width();
    encoder->height = frame.height();
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, rate};
    encoder->framerate = {rate, 1};
    encoder->gop_size = rate;
    encoder->max_b_frames = 0;
    encoder->thread_count = 1;
    av_opt_set(encoder->priv_data, "preset", "ultrafast", 0);
    av_opt_set(encoder->priv_data, "crf", "23", 0);
    AVFrame *yuv = av_frame_alloc();
    AVPacket *packet = av_packet_alloc();
    const bool isOpen = avcodec_open2(encoder, codec, nullptr) == 0;
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    for (int i = 0; isOpen && i < rounds * rate; ++i) {
        const cv::Mat &picture = pictures[std::size_t(i % rate)];
        yuv->format = AV_PIX_FMT_YUV420P;
        yuv->width = frame.width();
        yuv->height = frame.height();
        yuv->pts = i;
        av_image_fill_arrays(yuv->data, yuv->linesize, picture.data, AV_PIX_FMT_YUV420P,
                             frame.width(), frame.height(), 1);
        avcodec_send_frame(encoder, yuv);
        while (avcodec_receive_packet(encoder, packet) == 0) {
            av_packet_unref(packet);
        }
    }
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    av_packet_free(&packet);
    av_frame_free(&yuv);
    avcodec_free_context(&encoder);
    return 100
        * (double(after.tv_sec - before.tv_sec) + double(after.tv_nsec - before.tv_nsec) / 1e9)
        / rounds;
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
    double alone = 0; // of the last size
    double beside = 0;
    double bare = 0;
    for (const QSize size : {QSize(1280, 720), QSize(1920, 1080)}) {
        setResolution(1, size.width(), size.height());
        if (!bStartPlay(0)) {
            std::printf("camera 1 doesn't start\n");
            return 1;
        }
        std::printf("%d x %d\n", iGetResolutionX(1), iGetResolutionY(1));
        Preview preview;
        alone = preview.measure("alone");
        beside = record("beside H.264 in MP4", bStartRec, directory.filePath(QStringLiteral("a")),
                        preview);
        record("beside MPEG-4 in AVI", bStartRecMp3, directory.filePath(QStringLiteral("b")),
               preview);
        bare = bareEncoderLoad();
        std::printf("  %-22s %3.0f %% of a core\n", "its encoder alone", bare);
        bStopPlay();
    }
    std::printf("sound\n");
    encodeSound(portable::VideoFormat::Standard, directory.filePath(QStringLiteral("c.mp4")));
    encodeSound(portable::VideoFormat::Legacy, directory.filePath(QStringLiteral("d.avi")));
    printRow("a recording at 1080p, besides its encoder", beside - alone - bare, "% of a core",
             "<= 25 %");
    return 0;
}
