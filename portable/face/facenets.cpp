// SPDX-License-Identifier: MIT
#include "portable/face/facenets.h"

#include "portable/base/module.h"
#include "portable/face/facemodule.h"

namespace portable {

std::unique_ptr<FaceNets> FaceNets::load(const QString &folder, QString *error)
{
    FaceWeights weights;
    if (!weights.detector.read(folder, QStringLiteral("tiny_face_detector_model"), error)
        || !weights.points.read(folder, QStringLiteral("face_landmark_68_model"), error)
        || !weights.descriptor.read(folder, QStringLiteral("face_recognition_model"), error)) {
        return nullptr;
    }
    const auto *module = static_cast<const FaceModule *>(
        symbolOfModule(QStringLiteral("libportablefaces.so"), "portableFaces", error));
    if (!module) {
        return nullptr;
    }
    try {
        return module->create(weights);
    } catch (const cv::Exception &exception) {
        *error = reasonOf(exception);
        return nullptr;
    }
}

QString reasonOf(const cv::Exception &exception)
{
    const std::string function = exception.func.empty() ? "OpenCV" : exception.func;
    return QStringLiteral("%1: %2 (OpenCV %3)")
        .arg(QString::fromStdString(function), QString::fromStdString(exception.err).simplified(),
             QStringLiteral(CV_VERSION));
}

float distance(const FaceDescriptor &a, const FaceDescriptor &b)
{
    return float(cv::norm(a, b));
}

} // namespace portable
