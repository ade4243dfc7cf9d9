// SPDX-License-Identifier: MIT
#include "devicelib/biometrics.h"
#include "portable/unsupported.h"

#include <QByteArray>

using portable::answerLater;
using portable::unsupported;

namespace {

constexpr int noScore = -1;

} // namespace

// clang-format off

// Faces
int lImageMatch(const char *, const char *)
    { return unsupported<int>(__func__, noScore); }
qint64 lFaceMatch(const char *)
    { return unsupported<qint64>(__func__, noScore); }
qint64 lImageIdMatch(const char *, const char *)
    { return unsupported<qint64>(__func__, noScore); }
bool bImageMatch(const char *, const char *)          { return unsupported<bool>(__func__); }
qint64 lFaceFeatureMatch(const char *, const char *)
    { return unsupported<qint64>(__func__, noScore); }
bool bFaceFeatureGet(bool, const char *, const char *, void (*)(const char *, void *), void *)
    { return unsupported<bool>(__func__); }
bool bImageMatchOnline(const char *, int, int, int, void (*)(int, void *))
    { return unsupported<bool>(__func__); }
bool bFaceFeatureGetOnline(int, int, void (*)(const char *, void *))
    { return unsupported<bool>(__func__); }

// Liveness
bool bLivingBodyDetect()                              { return unsupported<bool>(__func__); }
bool bLivingBodyDetectOnline(int, int, void (*)(int, void *))
    { return unsupported<bool>(__func__); }
bool AutoLivingBody(void (*)(const char *, int, int)) { return unsupported<bool>(__func__); }
// clang-format on

/** Nothing was begun, so the end is reached at once. */
void CloseLivingBody(void (*onDone)())
{
    answerLater(onDone);
}

/** Answers 0, not passed. */
void DemoUIShow(int, void (*onResult)(int result))
{
    unsupported(__func__);
    answerLater([onResult] { onResult(0); });
}

// Fingerprints

/** Answers "no capture". */
void fingerCaptureRawData(int,
                          void (*onCapture)(QByteArray image, QByteArray feature, int score,
                                            const char *message, void *context),
                          void *context)
{
    unsupported(__func__);
    answerLater([onCapture, context] {
        onCapture(QByteArray(), QByteArray(), noScore, "未连接指纹仪", context);
    });
}

int lFingerMatch(int, const char *, int, const char *)
{
    return unsupported<int>(__func__, noScore);
}
