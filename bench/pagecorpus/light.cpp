// SPDX-License-Identifier: MIT
#include "bench/pagecorpus/light.h"

#include "bench/pagecorpus/fields.h"

#include <QBuffer>
#include <QImage>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace pagecorpus {

namespace {

/// The picture after JPEG compression.
cv::Mat compressed(const cv::Mat &picture, int quality)
{
    const QImage image(picture.data, picture.cols, picture.rows, int(picture.step),
                       QImage::Format_RGB888); // red and blue swapped, here and below
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    image.rgbSwapped().save(&file, "JPEG", quality);
    QImage result = QImage::fromData(file.data(), "JPEG").convertToFormat(QImage::Format_RGB888);
    result = result.rgbSwapped();
    return cv::Mat(result.height(), result.width(), CV_8UC3, result.bits(),
                   size_t(result.bytesPerLine()))
        .clone();
}

cv::Mat polygonMask(const cv::Size &size, const std::vector<cv::Point> &outline)
{
    cv::Mat mask(size, CV_32F, cv::Scalar(0));
    cv::fillConvexPoly(mask, outline, cv::Scalar(1));
    return mask;
}

} // namespace

cv::Mat lampLight(cv::RNG &random, const cv::Size &size, double fallOff)
{
    const cv::Point2f lamp{between(random, -0.2, 1.2) * float(size.width),
                           between(random, -0.2, 1.2) * float(size.height)};
    const float power = between(random, 1.2, 2.5);
    const float stretch = between(random, 0.6, 1.6);
    cv::Mat light(size, CV_32F);
    for (int y = 0; y < size.height; ++y) {
        auto *row = light.ptr<float>(y);
        const float dy = (float(y) - lamp.y) * stretch;
        for (int x = 0; x < size.width; ++x) {
            const float dx = float(x) - lamp.x;
            row[x] = dx * dx + dy * dy;
        }
    }
    double farthest = 0;
    cv::minMaxLoc(light, nullptr, &farthest);
    cv::pow(light / farthest, double(power) / 2, light);
    return 1 - fallOff * light;
}

cv::Mat hardShadow(cv::RNG &random, const cv::Size &size)
{
    // A band across the picture, a half of it, or a wedge.
    const double angle = random.uniform(0.0, 2 * CV_PI);
    const cv::Point2f along(float(std::cos(angle)), float(std::sin(angle)));
    const cv::Point2f across(-along.y, along.x);
    const cv::Point2f middle{between(random, 0.2, 0.8) * float(size.width),
                             between(random, 0.2, 0.8) * float(size.height)};
    const float width = happens(random, 0.5) ? between(random, 60, 350) : 4000;
    const float spread = between(random, 0, 200);
    const std::vector<cv::Point> outline{
        cv::Point(middle - along * 3000), cv::Point(middle + along * 3000),
        cv::Point(middle + along * 3000 + across * (width + spread)),
        cv::Point(middle - along * 3000 + across * width)};
    const cv::Mat mask = softened(polygonMask(size, outline), random.uniform(1.5, 7.0));
    return 1 - between(random, 0.2, 0.5) * mask;
}

cv::Mat windowLight(cv::RNG &random, const cv::Size &size)
{
    const float width = between(random, 200, 600);
    const float height = between(random, 150, 450);
    const float skew = between(random, -150, 150);
    const cv::Point2f corner{between(random, 0, 0.6) * float(size.width),
                             between(random, 0, 0.6) * float(size.height)};
    cv::Mat light(size, CV_32F, cv::Scalar(0));
    for (int pane = 0; pane < 2; ++pane) {
        const cv::Point2f from = corner + cv::Point2f((width + 30) * float(pane), 0);
        light += polygonMask(size,
                             {cv::Point(from), cv::Point(from + cv::Point2f(width, 0)),
                              cv::Point(from + cv::Point2f(width + skew, height)),
                              cv::Point(from + cv::Point2f(skew, height))});
    }
    // The sun is as wide as half a degree: its shadows are soft at a distance.
    return 1 + between(random, 0.15, 0.5) * softened(light, random.uniform(6.0, 14.0));
}

cv::Mat reflection(cv::RNG &random, const cv::Size &size, const cv::Point2f &center)
{
    cv::Mat mask(size, CV_32F, cv::Scalar(0));
    const cv::Size2f axes{between(random, 60, 320), between(random, 25, 110)};
    cv::ellipse(mask, cv::RotatedRect(center, axes, between(random, 0, 180)), cv::Scalar(1),
                cv::FILLED);
    return between(random, 0.5, 1.0) * softened(mask, random.uniform(4.0, 25.0));
}

cv::Mat photographed(cv::RNG &random, cv::Mat scene, const Camera &camera)
{
    const double scale = scene.cols / 1920.0;
    cv::GaussianBlur(scene, scene, {},
                     std::max(0.4, scale * (random.uniform(0.5, 1.6) + camera.blur)));
    const cv::Vec3f gain{between(random, 0.9, 1.04), between(random, 0.96, 1.02),
                         between(random, 0.92, 1.04)};
    const float exposure = between(random, 0.75, 1.04) * float(camera.exposure);
    const float vignetting = between(random, 0, 0.12);
    const float noise = between(random, 0.8, 4) + float(camera.noise);
    cv::Mat grain(scene.size(), CV_16SC3);
    cv::randn(grain, cv::Scalar::all(0), cv::Scalar::all(double(noise) * 16));
    const cv::Point2f center(float(scene.cols) / 2, float(scene.rows) / 2);
    const float corner = center.dot(center);
    cv::Mat picture(scene.size(), CV_8UC3);
    for (int y = 0; y < scene.rows; ++y) {
        const auto *from = scene.ptr<cv::Vec3f>(y);
        const auto *dust = grain.ptr<cv::Vec3s>(y);
        auto *to = picture.ptr<cv::Vec3b>(y);
        for (int x = 0; x < scene.cols; ++x) {
            const cv::Point2f offset = cv::Point2f(float(x), float(y)) - center;
            const float light = exposure * (1 - vignetting * offset.dot(offset) / corner);
            for (int i = 0; i < 3; ++i) {
                to[x][i] =
                    cv::saturate_cast<uchar>(from[x][i] * gain[i] * light + dust[x][i] / 16.0F);
            }
        }
    }
    return compressed(picture, std::min(camera.quality, random.uniform(60, 96)));
}

} // namespace pagecorpus
