// SPDX-License-Identifier: MIT
#include "portable/face/faceengine.h"

#include "portable/base/deviceini.h"
#include "portable/base/failure.h"
#include "portable/base/featuretext.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace portable {

namespace {

// Sides of the detector's input in pixels. The default is tried first, the large one next: it finds
// faces that are small in the picture.
constexpr int defaultInput = 416;
constexpr int largeInput = 608;
constexpr int smallInput = 224; // finds faces that fill the picture
constexpr int fastInput = 320;
constexpr float minFaceSide = 24; // pixels; a smaller face can't be recognized

// dlib's threshold for this descriptor, 0.6, accepted 5 of 21 pairs of different people. All of
// those were more than 0.55 apart, altered pictures of the same face less than 0.3.
constexpr float matchDistance = 0.5F;
constexpr float zeroScoreDistance = 1.2F;

constexpr char featureMark[] = "FAC1";
constexpr int valueDigits = 3;
constexpr float valueUnit = 1.0F / (1 << 16); // descriptor values are within -2 to 2
constexpr int valueZero = 1 << 17; // offset that makes them positive

/// The largest face, or null; the part of it within `inside` must be at least minFaceSide wide.
const FaceBox *largest(const std::vector<FaceBox> &faces, const cv::Rect2f &inside)
{
    const FaceBox *result = nullptr;
    for (const FaceBox &face : faces) {
        const cv::Rect2f seen = face.box & inside;
        if (std::min(seen.width, seen.height) >= minFaceSide
            && (!result || face.box.area() > result->box.area())) {
            result = &face;
        }
    }
    return result;
}

/// Tries these detector input sizes in order until one finds a face.
bool findFace(FaceNets &nets, const cv::Mat &picture, const cv::Rect2f &inside,
              const std::vector<int> &sizes, FaceBox *face)
{
    for (const int size : sizes) {
        const auto faces = nets.detect(picture, size);
        if (const FaceBox *found = largest(faces, inside)) {
            *face = *found;
            return true;
        }
    }
    return false;
}

bool findFace(FaceNets &nets, const cv::Mat &picture, const std::vector<int> &sizes, FaceBox *face)
{
    return findFace(nets, picture, {{}, cv::Size2f(picture.size())}, sizes, face);
}

/// The detector misses a face that fills the picture, as in an ID photo; a margin helps.
bool findFaceWithMargin(FaceNets &nets, const cv::Mat &picture, FaceBox *face)
{
    const int margin = std::max(picture.cols, picture.rows) / 2;
    const cv::Rect2f inside(cv::Point2f(cv::Point(margin, margin)), cv::Size2f(picture.size()));
    cv::Mat wide;
    cv::copyMakeBorder(picture, wide, margin, margin, margin, margin, cv::BORDER_REPLICATE);
    const bool found = findFace(nets, wide, inside, {defaultInput, smallInput, largeInput}, face);
    face->box -= inside.tl();
    return found;
}

} // namespace

QString failureText(FaceFailure failure)
{
    switch (failure) {
    case FaceFailure::None:
        return {};
    case FaceFailure::Unreadable:
        return QStringLiteral("the image can't be read");
    case FaceFailure::NoFace:
        return QStringLiteral("there is no face in the picture");
    case FaceFailure::NoEngine:
        return QStringLiteral("the face engine isn't available");
    case FaceFailure::NoCamera:
        return QStringLiteral("no camera is delivering frames");
    case FaceFailure::NoFeature:
        return QStringLiteral("not a face feature of this library");
    case FaceFailure::Busy:
        return QStringLiteral("another check is using the camera");
    }
    return {};
}

FaceEngine &FaceEngine::instance()
{
    static FaceEngine engine(
        [] { return deviceFolder(QStringLiteral("faces/models"), QStringLiteral("models")); });
    return engine;
}

FaceEngine::FaceEngine(std::function<QString()> folder)
    : m_folder(std::move(folder))
{
}

FaceFailure FaceEngine::prepare()
{
    return use([](FaceNets &) { return FaceFailure::None; });
}

FaceFailure FaceEngine::find(const cv::Mat &picture, SeenFace *face)
{
    return use([&](FaceNets &nets) {
        if (!findFace(nets, picture, {defaultInput, largeInput}, &face->box)
            && !findFaceWithMargin(nets, picture, &face->box)) {
            return FaceFailure::NoFace;
        }
        face->points = nets.points(picture, face->box);
        return FaceFailure::None;
    });
}

FaceFailure FaceEngine::findFast(const cv::Mat &picture, SeenFace *face)
{
    return use([&](FaceNets &nets) {
        if (!findFace(nets, picture, {fastInput}, &face->box)) {
            return FaceFailure::NoFace;
        }
        face->points = nets.points(picture, face->box);
        return FaceFailure::None;
    });
}

FaceFailure FaceEngine::describe(const cv::Mat &picture, const SeenFace &face,
                                 FaceDescriptor *descriptor)
{
    return use([&](FaceNets &nets) {
        *descriptor = nets.describe(picture, face.points);
        return FaceFailure::None;
    });
}

FaceFailure FaceEngine::describe(const cv::Mat &picture, FaceDescriptor *descriptor)
{
    SeenFace face;
    const FaceFailure failure = find(picture, &face);
    return failure == FaceFailure::None ? describe(picture, face, descriptor) : failure;
}

template <class Use> FaceFailure FaceEngine::use(Use useNets)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_nets) {
        const QString folder = m_folder();
        QString error;
        m_nets = FaceNets::load(folder, &error);
        if (!m_nets) {
            logWarning() << "no face engine:" << error
                         << "(scripts/fetch-face-models.sh installs the models)";
            return FaceFailure::NoEngine;
        }
    }
    try {
        return useNets(*m_nets);
    } catch (const cv::Exception &exception) {
        logWarning() << "the face engine failed:" << reasonOf(exception);
        return FaceFailure::NoEngine;
    }
}

int faceScore(const FaceDescriptor &a, const FaceDescriptor &b)
{
    const float apart = distance(a, b);
    const float score = apart <= matchDistance
        ? 100 - apart / matchDistance * (100 - samePersonScore)
        : samePersonScore * (zeroScoreDistance - apart) / (zeroScoreDistance - matchDistance);
    return std::clamp(int(score), 0, 100); // rounded down: just beyond matchDistance is no match
}

QByteArray faceFeature(const FaceDescriptor &descriptor)
{
    FeatureWriter feature(featureMark);
    for (const float value : descriptor) {
        feature.put(cvRound(value / valueUnit) + valueZero, valueDigits);
    }
    return feature.finish();
}

bool readFaceFeature(const char *feature, FaceDescriptor *descriptor)
{
    FeatureReader reader(feature, featureMark);
    for (float &value : *descriptor) {
        value = float(reader.take(valueDigits) - valueZero) * valueUnit;
    }
    return reader.finish() && *reader.end() == '\0';
}

} // namespace portable
