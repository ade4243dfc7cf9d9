// SPDX-License-Identifier: MIT
#include "devicelib/biometrics.h"
#include "tests/recordingcall.h"

using recording::Bytes;
using recording::call;

int lImageMatch(const char *image1, const char *image2)
{
    return call<int>(__func__, image1, image2);
}

qint64 lFaceMatch(const char *image)
{
    return call<qint64>(__func__, image);
}

qint64 lImageIdMatch(const char *image1, const char *image2)
{
    return call<qint64>(__func__, image1, image2);
}

bool bImageMatch(const char *image1, const char *image2)
{
    return call<bool>(__func__, image1, image2);
}

qint64 lFaceFeatureMatch(const char *feature1, const char *feature2)
{
    return call<qint64>(__func__, Bytes{feature1}, Bytes{feature2});
}

/// Passes the output of its answer, if any, to the callback.
bool bFaceFeatureGet(bool flag, const char *text1, const char *text2,
                     void (*onFeature)(const char *feature, void *context), void *context)
{
    QByteArray feature;
    const bool found =
        recording::fill<bool>(__func__, feature, flag, text1, text2, onFeature, context);
    if (!feature.isNull()) {
        onFeature(feature.constData(), context);
    }
    return found;
}

bool bImageMatchOnline(const char *text, int a, int b, int c,
                       void (*onResult)(int result, void *context))
{
    return call<bool>(__func__, text, a, b, c, onResult);
}

bool bFaceFeatureGetOnline(int a, int b, void (*onFeature)(const char *feature, void *context))
{
    return call<bool>(__func__, a, b, onFeature);
}

bool bLivingBodyDetect()
{
    return call<bool>(__func__);
}

bool bLivingBodyDetectOnline(int a, int b, void (*onResult)(int result, void *context))
{
    return call<bool>(__func__, a, b, onResult);
}

bool AutoLivingBody(void (*onData)(const char *data, int length, int kind))
{
    return call<bool>(__func__, onData);
}

void CloseLivingBody(void (*onDone)())
{
    call(__func__, onDone);
}

void DemoUIShow(int number, void (*onResult)(int result))
{
    call(__func__, number, onResult);
}

void fingerCaptureRawData(int timeoutMs,
                          void (*onCapture)(QByteArray image, QByteArray feature, int score,
                                            const char *message, void *context),
                          void *context)
{
    call(__func__, timeoutMs, onCapture, context);
}

int lFingerMatch(int mode, const char *feature, int count, const char *storedFeatures)
{
    return call<int>(__func__, mode, Bytes{feature}, count, Bytes{storedFeatures});
}
