// SPDX-License-Identifier: MIT
// What comparing two pictures of 640 x 480 costs, in milliseconds, against the bare networks that
// it can't do without: twice finding, points, describing. Without the models (see the path below)
// nothing is measured.
#include "bench/ratios.h"
#include "portable/face/faceengine.h"
#include "portable/finger/fingerprint.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/picturereader.h"
#include "tests/drawnface.h"
#include "tests/drawnfinger.h"

#include <QGuiApplication>
#include <QTemporaryDir>

#include <cstdio>

using namespace portable;

namespace {

const QString models = QStringLiteral(MODELS_DIR);
QString pictureFile;

/// As lImageMatch does it, files and all.
void BM_compareFiles(benchmark::State &state)
{
    FaceEngine engine([] { return models; });
    if (engine.prepare() != FaceFailure::None) {
        state.SkipWithError("no models");
        return;
    }
    for (auto _ : state) {
        FaceDescriptor faces[2];
        for (FaceDescriptor &face : faces) {
            QString error;
            engine.describe(readPicture(pictureFile, &error, biometricLimits), &face);
        }
        benchmark::DoNotOptimize(faceScore(faces[0], faces[1]));
    }
}
BENCHMARK(BM_compareFiles)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The networks alone, on pictures that are there already.
void BM_bareNetworks(benchmark::State &state)
{
    QString error;
    const auto nets = FaceNets::load(models, &error);
    if (!nets) {
        state.SkipWithError("no models");
        return;
    }
    const cv::Mat picture = toMat(QImage(pictureFile));
    for (auto _ : state) {
        for (int i = 0; i < 2; ++i) {
            const auto faces = nets->detect(picture, 416);
            benchmark::DoNotOptimize(nets->describe(picture, nets->points(picture, faces.front())));
        }
    }
}
BENCHMARK(BM_bareNetworks)->Unit(benchmark::kMillisecond)->UseRealTime();

/// From a picture of the sensor to minutiae.
void BM_readFinger(benchmark::State &state)
{
    const cv::Mat picture = pressFinger(drawFinger(1));
    for (auto _ : state) {
        benchmark::DoNotOptimize(readFingerprint(picture));
    }
}
BENCHMARK(BM_readFinger)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_compareFingers(benchmark::State &state)
{
    const cv::Mat finger = drawFinger(1);
    const Minutiae a = readFingerprint(pressFinger(finger)).minutiae;
    const Minutiae b = readFingerprint(pressFinger(finger, {10, {5, 5}, 8, 0})).minutiae;
    for (auto _ : state) {
        benchmark::DoNotOptimize(fingerScore(a, b));
    }
}
BENCHMARK(BM_compareFingers)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    const QGuiApplication application(argc, argv);
    const QTemporaryDir folder;
    pictureFile = folder.filePath(QStringLiteral("face.jpg"));
    drawFace({}, {640, 480}, {320, 240}, 190).save(pictureFile);
    const RatioRun run(argc, argv);
    run.printRatio("comparison of two files / bare networks", "BM_compareFiles", "BM_bareNetworks",
                   1.3);
    run.printRatio("comparison of two fingers / reading one", "BM_compareFingers", "BM_readFinger",
                   0.05);
    return 0;
}
