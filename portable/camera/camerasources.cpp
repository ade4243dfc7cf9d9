// SPDX-License-Identifier: MIT
#include "portable/camera/camerasources.h"

#include "portable/base/inifile.h"
#include "portable/base/simulation.h"
#include "portable/camera/pairsource.h"
#include "portable/camera/testscenesource.h"
#include "portable/camera/v4l2source.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <iterator>

namespace portable {

namespace {

constexpr int cameras[] = {1, 2, 3, 4, 5, 6, 8, 9, dualCamera};

void readNumber(const IniFile &ini, const QString &key, double min, double max, double *value)
{
    if (!ini.contains(key)) {
        return;
    }
    bool isNumber = false;
    const double number = ini.text(key).toDouble(&isNumber);
    if (isNumber && number >= min && number <= max) {
        *value = number;
    } else {
        ini.logProblem(
            QStringLiteral("%1 must be a number from %2 to %3").arg(key).arg(min).arg(max));
    }
}

void readSize(const IniFile &ini, const QString &key, cv::Size *value)
{
    if (!ini.contains(key)) {
        return;
    }
    static const QRegularExpression form(QStringLiteral("^(\\d{1,5})\\s*x\\s*(\\d{1,5})$"));
    const QRegularExpressionMatch match = form.match(ini.text(key));
    if (match.hasMatch()) {
        *value = {match.captured(1).toInt(), match.captured(2).toInt()};
    } else {
        ini.logProblem(key + QStringLiteral(" must be a size such as 1920x1080"));
    }
}

/// Which of the machine's cameras "auto" takes for a camera number, counting from 1.
int autoPosition(int camera)
{
    return camera == 2 || camera == 4 ? 2 : camera == 3 ? 3 : 1;
}

/// The part of `text` after `prefix`; null when it has another prefix or nothing follows.
QString textAfter(const QString &text, const char *prefix)
{
    const QLatin1String start(prefix);
    return text.startsWith(start) && text.size() > start.size() ? text.mid(start.size()).trimmed()
                                                                : QString();
}

std::unique_ptr<FrameSource> singleSource(const QString &text, const DeviceConfig &config,
                                          const V4l2Lister &lister, QString *error)
{
    if (text == QLatin1String("scene")) {
        return std::make_unique<TestSceneSource>(config.sceneSize, config.sceneFramesPerSecond);
    }
    const QString device = textAfter(text, "v4l2:");
    if (!device.isEmpty()) {
        return std::make_unique<V4l2Source>(device, lister);
    }
    const QString picture = textAfter(text, "image:");
    const QString folder = textAfter(text, "folder:");
    if (!picture.isEmpty() || !folder.isEmpty()) {
        return std::make_unique<PictureSource>(picture.isEmpty() ? folder : picture,
                                               config.playback);
    }
    const QString video = textAfter(text, "video:");
    if (!video.isEmpty()) {
        return std::make_unique<VideoSource>(video);
    }
    *error = text == QLatin1String("none")
        ? QStringLiteral("it is switched off in devices.ini")
        : QStringLiteral("devices.ini gives it a source that doesn't exist: \"%1\"").arg(text);
    return nullptr;
}

std::unique_ptr<FrameSource> pairSource(const QString &text, const DeviceConfig &config,
                                        const V4l2Lister &lister, QString *error)
{
    const QStringList halves = text.split(QLatin1Char('|'));
    if (halves.size() != 2) {
        *error = QStringLiteral("devices.ini must give it two sources joined by |, not \"%1\"")
                     .arg(text);
        return nullptr;
    }
    auto left = singleSource(halves[0].trimmed(), config, lister, error);
    auto right = left ? singleSource(halves[1].trimmed(), config, lister, error) : nullptr;
    return right ? std::make_unique<PairSource>(std::move(left), std::move(right)) : nullptr;
}

} // namespace

QString cameraKey(int camera)
{
    if (std::find(std::begin(cameras), std::end(cameras), camera) == std::end(cameras)) {
        return {};
    }
    return camera == dualCamera ? QStringLiteral("dual") : QString::number(camera);
}

QString cameraName(int camera)
{
    return camera == dualCamera ? QStringLiteral("the dual camera")
                                : QStringLiteral("camera %1").arg(camera);
}

DeviceConfig readDeviceConfig(const QString &path)
{
    IniFile ini(path);
    DeviceConfig config;
    QStringList keys = ini.keys(QStringLiteral("cameras"));
    for (const int camera : cameras) {
        const QString key = cameraKey(camera);
        if (keys.removeAll(key) > 0) {
            config.sources[camera] = ini.text(QStringLiteral("cameras/") + key);
        }
    }
    for (const QString &key : qAsConst(keys)) {
        ini.logProblem(QStringLiteral("there is no camera \"%1\"").arg(key));
    }
    readSize(ini, QStringLiteral("scene/size"), &config.sceneSize);
    readNumber(ini, QStringLiteral("scene/framesPerSecond"), 1, 60, &config.sceneFramesPerSecond);
    readNumber(ini, QStringLiteral("playback/framesPerSecond"), 1, 60,
               &config.playback.framesPerSecond);
    readNumber(ini, QStringLiteral("playback/secondsPerPicture"), 0.1, 86400,
               &config.playback.secondsPerPicture);
    config.isSimulated = isSimulationEnabled(ini);
    return config;
}

QString autoSource(int camera, const V4l2Devices &devices, bool isSimulated, QString *error)
{
    const bool isDual = camera == dualCamera;
    if (devices.empty() && isSimulated) {
        return isDual ? QStringLiteral("scene|scene") : QStringLiteral("scene");
    }
    if (devices.empty()) {
        *error = QStringLiteral("this machine has no camera") + QLatin1String(simulationHint);
        return {};
    }
    const auto needed = size_t(isDual ? 2 : autoPosition(camera));
    if (devices.size() < needed) {
        *error = QStringLiteral("this machine has %1 of the %2 cameras it needs: %3")
                     .arg(devices.size())
                     .arg(needed)
                     .arg(v4l2Labels(devices));
        return {};
    }
    const auto text = [&](size_t position) {
        return QStringLiteral("v4l2:") + devices[position - 1].path;
    };
    return isDual ? text(1) + QLatin1Char('|') + text(2) : text(needed);
}

std::unique_ptr<FrameSource> makeSource(int camera, const DeviceConfig &config,
                                        const V4l2Lister &lister, QString *error)
{
    if (cameraKey(camera).isEmpty()) {
        *error = QStringLiteral("there is no such camera");
        return nullptr;
    }
    const auto configured = config.sources.find(camera);
    QString text = configured != config.sources.end() ? configured->second : QString();
    if (text.isEmpty() || text == QLatin1String("auto")) {
        text = autoSource(camera, lister(), config.isSimulated, error);
        if (text.isEmpty()) {
            return nullptr;
        }
    }
    const bool isPair = camera == dualCamera && text != QLatin1String("none");
    return isPair ? pairSource(text, config, lister, error)
                  : singleSource(text, config, lister, error);
}

} // namespace portable
