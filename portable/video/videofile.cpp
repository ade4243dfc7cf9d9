// SPDX-License-Identifier: MIT
#include "portable/video/videofile.h"

#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cmath>

namespace portable {

namespace {

constexpr int minSide = 16;
constexpr int maxSide = 4096;

struct Container
{
    const char *extension;
    const char *muxer;
};
constexpr std::array<Container, 3> containers{
    {{"mp4", "mp4"}, {"avi", "avi"}, {"mkv", "matroska"}}};

int even(double side)
{
    return int(std::clamp(side, double(minSide), double(maxSide))) & ~1;
}

} // namespace

const char *videoMuxer(const QString &path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    const auto *const found =
        std::find_if(containers.begin(), containers.end(), [&](const Container &container) {
            return suffix == QLatin1String(container.extension);
        });
    return found == containers.end() ? nullptr : found->muxer;
}

QString videoPath(const QString &path, VideoFormat format)
{
    if (videoMuxer(path)) {
        return path;
    }
    return path + QLatin1String(format == VideoFormat::Standard ? ".mp4" : ".avi");
}

cv::Size videoSize(const cv::Size &picture, qint64 width, qint64 height)
{
    if (width > 0 && height > 0) {
        return {even(double(width)), even(double(height))};
    }
    const double scale = std::min(1.0, double(maxSide) / std::max(picture.width, picture.height));
    return {even(picture.width * scale), even(picture.height * scale)};
}

cv::Rect fitInto(const cv::Size &frame, const cv::Size &picture)
{
    const double scale =
        std::min(double(frame.width) / picture.width, double(frame.height) / picture.height);
    const auto side = [scale](int ofPicture, int ofFrame) {
        const int scaled = std::max(1, int(std::lround(ofPicture * scale)));
        return ofFrame - scaled < 2 ? ofFrame : scaled; // no bars of one pixel
    };
    const cv::Size size(side(picture.width, frame.width), side(picture.height, frame.height));
    return {{(frame.width - size.width) / 2, (frame.height - size.height) / 2}, size};
}

} // namespace portable
