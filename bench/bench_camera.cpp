// SPDX-License-Identifier: MIT
// The cost of a camera's frame of 1920 x 1080, relative to its minimum: plain libjpeg-turbo into a
// picture that is there already, and one conversion of OpenCV.
#include "bench/ratios.h"
#include "portable/camera/testscenesource.h"
#include "portable/camera/v4l2pixels.h"
#include "portable/picture/jpegfile.h"

#include <QGuiApplication>
#include <linux/videodev2.h>
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <cstdlib>
// After <cstdio>: it uses its types without including it.
#include <jpeglib.h>

using namespace portable;

namespace {

const cv::Size size(1920, 1080);

/// The test scene, as a camera sends it.
QByteArray jpegFrame()
{
    TestSceneSource scene(size, 30);
    QString error;
    cv::Mat picture;
    if (!scene.open(size, &error) || !scene.read(picture, &error)) {
        std::fputs("the scene doesn't start\n", stderr);
        std::exit(1);
    }
    const auto row = [&picture](int y, QString *) { return picture.ptr(y); };
    return jpegOfRows(size, Pixels::Bgr, 85, {300, 300}, row, &error);
}

V4l2Bytes viewOf(const QByteArray &bytes)
{
    return {reinterpret_cast<const uchar *>(bytes.constData()), std::size_t(bytes.size())};
}

void decodeOurs(benchmark::State &state, unsigned code, const QByteArray &bytes)
{
    V4l2FrameFormat format;
    V4l2Pixels pixels;
    cv::Mat frame;
    bool ok = decodableFormat(code, unsigned(size.width), unsigned(size.height), 0, &format);
    for (auto _ : state) {
        ok = ok && pixels.decode(format, viewOf(bytes), frame);
    }
    if (!ok) {
        state.SkipWithError("not decoded");
    }
}

void BM_mjpeg(benchmark::State &state)
{
    decodeOurs(state, V4L2_PIX_FMT_MJPEG, jpegFrame());
}
BENCHMARK(BM_mjpeg)->Unit(benchmark::kMillisecond);

void BM_plainLibjpeg(benchmark::State &state)
{
    const QByteArray bytes = jpegFrame();
    cv::Mat frame(size, CV_8UC3);
    for (auto _ : state) {
        jpeg_error_mgr error{};
        jpeg_decompress_struct jpeg{};
        jpeg.err = jpeg_std_error(&error);
        jpeg_create_decompress(&jpeg);
        jpeg_mem_src(&jpeg, viewOf(bytes).data, ulong(bytes.size()));
        jpeg_read_header(&jpeg, TRUE);
        jpeg.out_color_space = JCS_EXT_BGR;
        jpeg_start_decompress(&jpeg);
        while (jpeg.output_scanline < jpeg.output_height) {
            JSAMPROW row = frame.ptr(int(jpeg.output_scanline));
            jpeg_read_scanlines(&jpeg, &row, 1);
        }
        jpeg_finish_decompress(&jpeg);
        jpeg_destroy_decompress(&jpeg);
    }
}
BENCHMARK(BM_plainLibjpeg)->Unit(benchmark::kMillisecond);

/// Two bytes a pixel that are different from each other.
QByteArray yuyvFrame()
{
    QByteArray bytes(2 * size.area(), '\0');
    for (int i = 0; i < bytes.size(); ++i) {
        bytes[i] = char(i * 7);
    }
    return bytes;
}

void BM_yuyv(benchmark::State &state)
{
    decodeOurs(state, V4L2_PIX_FMT_YUYV, yuyvFrame());
}
BENCHMARK(BM_yuyv)->Unit(benchmark::kMillisecond);

void BM_plainConversion(benchmark::State &state)
{
    QByteArray bytes = yuyvFrame();
    const cv::Mat yuyv(size, CV_8UC2, bytes.data());
    cv::Mat frame(size, CV_8UC3);
    for (auto _ : state) {
        cv::cvtColor(yuyv, frame, cv::COLOR_YUV2BGR_YUYV);
    }
}
BENCHMARK(BM_plainConversion)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    cv::setNumThreads(1); // CPU time is compared
    const RatioRun run(argc, argv);
    run.printRatio("an MJPEG frame / plain libjpeg-turbo", "BM_mjpeg", "BM_plainLibjpeg", 1.1);
    run.printRatio("a YUYV frame / one conversion", "BM_yuyv", "BM_plainConversion", 1.2);
    return 0;
}
