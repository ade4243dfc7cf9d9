// SPDX-License-Identifier: MIT
#include "base/clock.h"
#include "base/mainthread.h"
#include "devicelib/biometrics.h"
#include "portable/base/deviceini.h"
#include "portable/base/failure.h"
#include "portable/base/simulation.h"
#include "portable/finger/fingerprint.h"
#include "portable/finger/fingerreader.h"
#include "portable/finger/fingersensor.h"

#include <QByteArray>

#include <algorithm>

using namespace portable;

namespace {

constexpr std::chrono::milliseconds usualTimeout{10'000};
constexpr std::chrono::milliseconds longestTimeout{60'000};

/// What lFingerMatch returns when there is nothing to compare.
enum MatchFailure { noFeature = -1, noStoredFeature = -2 };

const FingerSensor &sensor()
{
    static const FingerSensor sensor(
        [] { return deviceFolder(QStringLiteral("fingers/folder"), QStringLiteral("fingers")); },
        [] { return deviceSetting(QStringLiteral("fingers/finger")); });
    return sensor;
}

/// The captures, one at a time.
BackgroundJob &sensorJob()
{
    struct SensorJob
    {
        SensorJob()
        {
            sensor(); // destroyed after the job
            job.closeWithApplication();
        }
        BackgroundJob job;
    };
    static SensorJob one;
    return one.job;
}

/// Whether the simulated sensor takes the place of a real one that isn't there.
bool isSimulated()
{
    return isSimulationEnabled() || !deviceSetting(QStringLiteral("fingers/finger")).isEmpty();
}

FingerCapture captureFinger(const char *function, BackgroundJob::Clock::time_point deadline,
                            const BackgroundJob::Stop &stop)
{
    const SensorPicture real = readSensor(deadline, stop);
    const auto fail = [&](FingerCapture::Failure failure, const QString &why) {
        if (!stop.isRequested()) {
            logFailure(function, why);
        }
        return failedCapture(failure);
    };
    switch (real.outcome) {
    case SensorPicture::Outcome::Picture: {
        const FingerCapture capture = captureOf(real.gray, false);
        return capture.score >= 0
            ? capture
            : fail(FingerCapture::Unreadable, QStringLiteral("the picture shows no finger"));
    }
    case SensorPicture::Outcome::Unreadable:
        return fail(FingerCapture::Unreadable, real.why);
    case SensorPicture::Outcome::NoFinger:
        return fail(FingerCapture::NoFinger, real.why);
    case SensorPicture::Outcome::Failed:
        return fail(FingerCapture::NoSensor, real.why);
    case SensorPicture::Outcome::NoSensor:
        break;
    }
    return isSimulated() ? sensor().capture(deadline, stop)
                         : fail(FingerCapture::NoSensor,
                                QStringLiteral("there is no fingerprint sensor: ") + real.why
                                    + QLatin1String(simulationHint));
}

int failMatch(const QString &why, MatchFailure failure)
{
    logFailure("lFingerMatch", why);
    return failure;
}

} // namespace

namespace portable::api {

void fingerCaptureRawData(int timeoutMs,
                          void (*onCapture)(QByteArray image, QByteArray feature, int score,
                                            const char *message, void *context),
                          void *context)
{
    const auto answer = [=](const FingerCapture &capture) {
        base::postToMainThread([=] {
            onCapture(capture.image, capture.feature, capture.score, capture.message, context);
        });
    };
    const auto deadline = base::Clock::shared().now()
        + (timeoutMs > 0 ? std::min(std::chrono::milliseconds(timeoutMs), longestTimeout)
                         : usualTimeout);
    const char *const function = __func__;
    const bool begun = sensorJob().begin([=](const BackgroundJob::Stop &stop) {
        const FingerCapture capture = captureFinger(function, deadline, stop);
        return [=] { answer(capture); };
    });
    if (!begun) {
        logFailure(__func__, QStringLiteral("the sensor is already waiting for a finger"));
        answer(failedCapture(FingerCapture::Busy));
    }
}

int lFingerMatch(int, const char *feature, int count, const char *storedFeatures)
{
    Minutiae finger;
    if (!readFingerFeature(&feature, &finger)) {
        return failMatch(QStringLiteral("the feature is none of this library"), noFeature);
    }
    int best = noStoredFeature;
    Minutiae stored;
    bool isBroken = false; // one of them
    for (int i = 0; i < count && storedFeatures && *storedFeatures != '\0'; ++i) {
        if (readFingerFeature(&storedFeatures, &stored)) {
            best = std::max(best, fingerScore(finger, stored));
        } else {
            isBroken = true;
            storedFeatures = nextFingerFeature(storedFeatures);
        }
    }
    if (best < 0) {
        return failMatch(QStringLiteral("there is no stored feature of this library"),
                         noStoredFeature);
    }
    if (isBroken) {
        logFailure(__func__, QStringLiteral("a stored feature is none of this library"));
    }
    return best;
}

} // namespace portable::api
