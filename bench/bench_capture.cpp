// SPDX-License-Identifier: MIT
// The cost of saving the camera's picture, relative to its minimum: one JPEG compression and one
// file write.
#include "bench/ratios.h"
#include "devicelib/doccamera.h"
#include "portable/picture/pagefinder.h"

#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <opencv2/core.hpp>

#include <cstdio>
#include <cstdlib>
// After <cstdio>: it uses its types without including it.
#include <jpeglib.h>

namespace {

/// The camera with the test scene, 1920 x 1080, while it lives.
class Camera
{
public:
    Camera()
    {
        if (!bStartPlay(0) || !getVideoFrameMat(m_picture)) {
            std::fputs("the scene doesn't start\n", stderr);
            std::exit(1);
        }
    }
    ~Camera() { bStopPlay(); }
    Camera(const Camera &) = delete;
    Camera &operator=(const Camera &) = delete;

    cv::Mat picture() const { return m_picture.clone(); }

private:
    cv::Mat m_picture;
};

/// Plain libjpeg-turbo; free() releases the memory.
unsigned long compress(const cv::Mat &picture, unsigned char **memory)
{
    jpeg_error_mgr error{};
    jpeg_compress_struct jpeg{};
    jpeg.err = jpeg_std_error(&error);
    jpeg_create_compress(&jpeg);
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, memory, &size);
    jpeg.image_width = JDIMENSION(picture.cols);
    jpeg.image_height = JDIMENSION(picture.rows);
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_EXT_BGR;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, sGetImageQuality(), TRUE);
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        auto *row = const_cast<JSAMPROW>(picture.ptr(int(jpeg.next_scanline)));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    return size;
}

// Neither this nor the straightening needs the camera, whose thread would take time from the second
// processor.
void BM_compress(benchmark::State &state)
{
    const cv::Mat picture = Camera().picture();
    for (auto _ : state) {
        unsigned char *memory = nullptr;
        benchmark::DoNotOptimize(compress(picture, &memory));
        std::free(memory);
    }
}
BENCHMARK(BM_compress)->UseRealTime();

void BM_compressAndWrite(benchmark::State &state)
{
    const Camera camera;
    const cv::Mat picture = camera.picture();
    const QTemporaryDir folder;
    for (auto _ : state) {
        unsigned char *memory = nullptr;
        const unsigned long size = compress(picture, &memory);
        QFile file(folder.filePath(QStringLiteral("plain.jpg")));
        file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        file.write(reinterpret_cast<const char *>(memory), qint64(size));
        std::free(memory);
    }
}
BENCHMARK(BM_compressAndWrite)->UseRealTime();

void BM_bSaveJPG(benchmark::State &state)
{
    const Camera camera;
    const QTemporaryDir folder;
    const QByteArray path = folder.path().toUtf8();
    for (auto _ : state) {
        if (!bSaveJPG(path.constData(), "ours")) {
            state.SkipWithError("not saved");
        }
    }
}
BENCHMARK(BM_bSaveJPG)->UseRealTime();

void BM_findAndStraighten(benchmark::State &state)
{
    const cv::Mat picture = Camera().picture();
    for (auto _ : state) {
        if (portable::straightenedPage(picture).empty()) {
            state.SkipWithError("no page");
        }
    }
}
BENCHMARK(BM_findAndStraighten)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    qputenv("DEVICE_SIMULATION", "1"); // for a camera
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    const RatioRun run(argc, argv);
    run.printRatio("bSaveJPG / compression and plain write", "BM_bSaveJPG", "BM_compressAndWrite",
                   1.1);
    run.printRatio("finding and straightening a page / compression", "BM_findAndStraighten",
                   "BM_compress", 1.6);
    return 0;
}
