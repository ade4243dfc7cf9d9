// SPDX-License-Identifier: MIT
#include "portable/camera/shot.h"

#include "portable/camera/cameraset.h"
#include "portable/picture/pagefinder.h"

#include <QDebug>

namespace portable {

namespace {

/// The area as far as it lies within the picture; the whole picture without one.
cv::Mat cropped(const cv::Mat &frame, const CaptureSettings &settings)
{
    const auto clipped = [](int begin, int end, int length) {
        return cv::Range(qBound(0, begin, length), qBound(0, end, length));
    };
    const cv::Range columns = clipped(settings.areaBegin.x, settings.areaEnd.x, frame.cols);
    const cv::Range rows = clipped(settings.areaBegin.y, settings.areaEnd.y, frame.rows);
    if (!columns.empty() && !rows.empty()) {
        return frame(rows, columns).clone();
    }
    if (settings.areaBegin != settings.areaEnd) {
        qWarning(
            "portable: the crop area (%d, %d) to (%d, %d) lies outside the picture of %d x %d; "
            "the whole picture is taken",
            settings.areaBegin.x, settings.areaBegin.y, settings.areaEnd.x, settings.areaEnd.y,
            frame.cols, frame.rows);
    }
    return frame;
}

cv::Mat pageOrWhole(const cv::Mat &frame)
{
    cv::Mat page = straightenedPage(frame);
    if (page.empty()) {
        qInfo("portable: no page is found; the whole picture is taken");
        return frame;
    }
    return page;
}

cv::Mat takePlainShot(const CaptureSettings &settings)
{
    cv::Mat frame;
    if (!CameraSet::instance().currentFrame(frame)) {
        qWarning(
            "portable: there is nothing to capture: no camera is open, or it delivers nothing");
        return {};
    }
    switch (settings.mode) {
    case ShotMode::Whole:
        break;
    case ShotMode::Area:
        return cropped(frame, settings);
    case ShotMode::Page:
        return pageOrWhole(frame);
    }
    return frame;
}

} // namespace

Shot takeShot()
{
    const CaptureSettings settings = captureSettings();
    return {stamped(takePlainShot(settings), settings.watermark, settings.dpi.y), settings.quality,
            settings.dpi};
}

cv::Mat takePlainShot()
{
    return takePlainShot(captureSettings());
}

CaptureSettings captureSettings()
{
    return CameraSet::instance().settings().capture();
}

} // namespace portable
