// SPDX-License-Identifier: MIT
#include "portable/face/faceengine.h"

#include "portable/base/deviceini.h"
#include "portable/base/featuretext.h"

#include <QDebug>
#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace portable {

namespace {

// Sides of the detector's input in pixels. The usual size comes first; a larger one for faces that
// are small in the picture.
constexpr int usualSize = 416;
constexpr int thoroughSize = 608;
constexpr int smallSize = 224; // blurs what is large
constexpr int glanceSize = 320;
constexpr float smallestFace = 24; // pixels wide; below there is nothing to recognise

// dlib's usual 0.6 for this descriptor took 5 of 21 pairs of different people for one person; all
// were farther apart than 0.55, and altered pictures of one face nearer than 0.3.
constexpr float limitDistance = 0.5F;
constexpr float farDistance = 1.2F;

constexpr char featureMark[] = "FAC1";
constexpr int valueDigits = 3;
constexpr float valueUnit = 1.0F / (1 << 16); // of a descriptor, whose values are within -2 to 2
constexpr int valueZero = 1 << 17;

/// The largest of the faces that are large enough; `inside` is where there can be any.
const FaceBox *largest(const std::vector<FaceBox> &faces, const cv::Rect2f &inside)
{
    const FaceBox *result = nullptr;
    for (const FaceBox &face : faces) {
        const cv::Rect2f seen = face.box & inside;
        if (std::min(seen.width, seen.height) >= smallestFace
            && (!result || face.box.area() > result->box.area())) {
            result = &face;
        }
    }
    return result;
}

/// The first face found with any of these sizes of the detector's input.
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

/// In a picture that the face fills, as a card's photo, the detector misses its surroundings.
bool findFaceWithMargin(FaceNets &nets, const cv::Mat &picture, FaceBox *face)
{
    const int margin = std::max(picture.cols, picture.rows) / 2;
    const cv::Rect2f inside(cv::Point2f(cv::Point(margin, margin)), cv::Size2f(picture.size()));
    cv::Mat wide;
    cv::copyMakeBorder(picture, wide, margin, margin, margin, margin, cv::BORDER_REPLICATE);
    const bool found = findFace(nets, wide, inside, {usualSize, smallSize, thoroughSize}, face);
    face->box -= inside.tl();
    return found;
}

} // namespace

QString failureText(FaceFailure failure)
{
    switch (failure) {
    case FaceFailure::none:
        return {};
    case FaceFailure::unreadable:
        return QStringLiteral("the image can't be read");
    case FaceFailure::noFace:
        return QStringLiteral("there is no face in the picture");
    case FaceFailure::noEngine:
        return QStringLiteral("there is no face engine");
    case FaceFailure::noCamera:
        return QStringLiteral("no camera delivers pictures");
    case FaceFailure::noFeature:
        return QStringLiteral("it is no face feature of this library");
    case FaceFailure::busy:
        return QStringLiteral("another check uses the camera");
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
    return use([](FaceNets &) { return FaceFailure::none; });
}

FaceFailure FaceEngine::find(const cv::Mat &picture, SeenFace *face)
{
    return use([&](FaceNets &nets) {
        if (!findFace(nets, picture, {usualSize, thoroughSize}, &face->box)
            && !findFaceWithMargin(nets, picture, &face->box)) {
            return FaceFailure::noFace;
        }
        face->points = nets.points(picture, face->box);
        return FaceFailure::none;
    });
}

FaceFailure FaceEngine::glance(const cv::Mat &picture, SeenFace *face)
{
    return use([&](FaceNets &nets) {
        if (!findFace(nets, picture, {glanceSize}, &face->box)) {
            return FaceFailure::noFace;
        }
        face->points = nets.points(picture, face->box);
        return FaceFailure::none;
    });
}

FaceFailure FaceEngine::describe(const cv::Mat &picture, const SeenFace &face,
                                 FaceDescriptor *descriptor)
{
    return use([&](FaceNets &nets) {
        *descriptor = nets.describe(picture, face.points);
        return FaceFailure::none;
    });
}

FaceFailure FaceEngine::describe(const cv::Mat &picture, FaceDescriptor *descriptor)
{
    SeenFace face;
    const FaceFailure failure = find(picture, &face);
    return failure == FaceFailure::none ? describe(picture, face, descriptor) : failure;
}

template <class Use> FaceFailure FaceEngine::use(Use useNets)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_nets) {
        const QString folder = m_folder();
        QString error;
        m_nets = FaceNets::load(folder, &error);
        if (!m_nets) {
            qWarning().noquote() << "portable: no face engine:" << error
                                 << "(scripts/fetch-face-models.sh installs the models)";
            return FaceFailure::noEngine;
        }
    }
    try {
        return useNets(*m_nets);
    } catch (const cv::Exception &exception) {
        qWarning().noquote() << "portable: the face engine failed:"
                             << QString::fromStdString(exception.err);
        return FaceFailure::noEngine;
    }
}

int faceScore(const FaceDescriptor &a, const FaceDescriptor &b)
{
    const float apart = distance(a, b);
    const float score = apart <= limitDistance
        ? 100 - apart / limitDistance * (100 - samePersonScore)
        : samePersonScore * (farDistance - apart) / (farDistance - limitDistance);
    return std::clamp(int(score), 0, 100); // cut off, so that the limit stays where it is
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
