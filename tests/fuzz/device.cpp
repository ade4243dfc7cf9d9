// SPDX-License-Identifier: MIT
#include "tests/fuzz/device.h"

#include "tests/devicelisteners.h"
#include "tests/manualclock.h"
#include "tests/recordingdevice.h"

#include <QApplication>
#include <QImage>
#include <QPoint>
#include <QProcess>
#include <QWidget>

namespace {

enum Way { Succeeds = 1, Throws = 2, HasTexts = 4, CallsBack = 8 };

const QImage &frame()
{
    static const QImage image = [] {
        QImage filled(16, 8, QImage::Format_RGB888);
        filled.fill(Qt::darkCyan);
        return filled;
    }();
    return image;
}

/// The good answer of a function of this type.
template <class Type> struct Success;
template <class Result, class... Args> struct Success<Result(Args...)>
{
    static recording::Value result()
    {
        if constexpr (std::is_same_v<Result, bool>) {
            return true;
        } else if constexpr (std::is_arithmetic_v<Result>) {
            return 80;
        } else {
            return {};
        }
    }
    static recording::Value output()
    {
        using Sizes = std::vector<std::pair<double, double>>;
        if constexpr ((std::is_same_v<Args, QImage &> || ...)) {
            return frame();
        } else if constexpr ((std::is_same_v<Args, cv::Mat &> || ...)) {
            return cv::Mat(8, 16, CV_8UC3, cv::Scalar(9, 90, 180));
        } else if constexpr ((std::is_same_v<Args, Sizes &> || ...)) {
            return Sizes{{640, 480}, {1920, 1080}};
        } else if constexpr ((std::is_same_v<Args, int *> || ...)) {
            return QPoint(300, 200);
        } else {
            return {};
        }
    }
};

} // namespace

/// Takes the place of Qt's: the programs that the server starts are not started.
bool QProcess::startDetached(const QString & /*program*/, const QStringList & /*arguments*/)
{
    return true;
}

void fuzz::useOwnClock()
{
    static auto &clock = *new ManualClock; // threads use it until the process ends
    clock.runFree();
    base::Clock::setShared(&clock);
}

void fuzz::orderDevice(int way, const QByteArray &text)
{
    recording::reset();
    if ((way & HasTexts) != 0) {
        recording::answerTexts(text);
    }
    if ((way & Succeeds) != 0) {
#define DEVICE(library, kind, seconds, type, name, parameters, names)                              \
    recording::answer(#name, Success<type parameters>::result(),                                   \
                      Success<type parameters>::output());
#include "devicelib/functions.h"
    }
    if ((way & Throws) != 0) {
        recording::throwAlways();
    }
}

void fuzz::callListeners(int way, const QByteArray &text)
{
    if ((way & CallsBack) == 0) {
        return;
    }
    if ((way & Throws) != 0) {
        reportFailures();
    } else {
        reportResults(text.constData());
    }
}

void fuzz::closeWindows()
{
    const auto windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        window->close();
    }
}
