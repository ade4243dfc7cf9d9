// SPDX-License-Identifier: MIT
//
// Texts with bytes in them: base64, and features of faces and fingers.
#include "dispatch/base64.h"
#include "portable/base/base64text.h"
#include "portable/face/faceengine.h"
#include "portable/finger/fingerprint.h"
#include "tests/fuzz/fuzztarget.h"

using namespace portable;

namespace {

void checkBase64(const QByteArray &input)
{
    QString error;
    bytesOfBase64(input.constData(), &error);
    base64_decode(input.toStdString());
    for (const bool url : {false, true}) {
        const std::string text = base64_encode(
            reinterpret_cast<const unsigned char *>(input.constData()), ulong(input.size()), url);
        fuzz::require(url || base64_decode(text) == input.toStdString(), "base64 both ways");
    }
}

/// As lFingerMatch goes through the stored ones.
std::vector<Minutiae> fingersIn(const char *text)
{
    std::vector<Minutiae> fingers;
    while (text && *text != '\0' && fingers.size() < 8) {
        Minutiae minutiae;
        if (readFingerFeature(&text, &minutiae)) {
            fingers.push_back(minutiae);
        } else {
            text = nextFingerFeature(text);
        }
    }
    return fingers;
}

void checkFeatures(const QByteArray &input)
{
    FaceDescriptor face{};
    if (readFaceFeature(input.constData(), &face)) {
        const int score = faceScore(face, face);
        fuzz::require(score >= 0 && score <= 100, "a score of faces is 0 to 100");
    }
    const std::vector<Minutiae> fingers = fingersIn(input.constData());
    for (const Minutiae &finger : fingers) {
        const int score = fingerScore(finger, fingers.front());
        fuzz::require(score >= 0 && score <= 100, "a score of fingers is 0 to 100");
    }
}

} // namespace

void fuzz::prepare() { }

void fuzz::run(const QByteArray &input)
{
    checkBase64(input);
    checkFeatures(input);
}

QList<QByteArray> fuzz::seeds()
{
    FaceDescriptor face{};
    face[3] = 0.5F;
    Minutiae finger;
    for (int i = 0; i < 30; ++i) {
        finger.push_back(
            {cv::Point2f(float(i * 37 % 200), float(i * 53 % 250)), float(i % 6), i % 2 == 0});
    }
    const QByteArray feature = fingerFeature(finger);
    return {
        "data:image/jpeg;base64," + QByteArray("a picture").toBase64(),
        QByteArray("some\nlines").toBase64() + "\r\n ==",
        faceFeature(face),
        feature,
        feature + 'x' + feature,
    };
}
