// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <array>
#include <memory>
#include <vector>

namespace portable {

/// Where a face is, in pixels, and how sure the detector is of it (0 to 1).
struct FaceBox
{
    cv::Rect2f box;
    float confidence = 0;
};

/**
 * The 68 points of a face in pixels, in the usual order (iBUG 300-W): 0 chin line, 17 brows, 27
 * nose, 36 and 42 eyes, 48 mouth. "Left" is the left of the picture.
 */
using FacePoints = std::array<cv::Point2f, 68>;

/// What a face looks like; the smaller the distance of two, the more alike they are.
using FaceDescriptor = std::array<float, 128>;

/**
 * The three networks behind the face functions: a detector, the points of a face, its descriptor.
 * They are those of the npm package @vladmandic/face-api (MIT), whose weight files are read.
 *
 * Belongs to one thread at a time. Pictures are 8-bit BGR. Everything throws cv::Exception when
 * OpenCV can't do it.
 */
class FaceNets
{
public:
    /// Builds the networks. \return null, with a reason for the log, without usable weights
    static std::unique_ptr<FaceNets> load(const QString &folder, QString *error);

    /**
     * The faces of a picture, the surest first.
     * \param size  side in pixels, a multiple of 32, that the picture is shrunk or grown to: a
     *              larger one finds smaller faces, and takes longer
     */
    std::vector<FaceBox> detect(const cv::Mat &picture, int size);

    FacePoints points(const cv::Mat &picture, const FaceBox &face);

    FaceDescriptor describe(const cv::Mat &picture, const FacePoints &points);

private:
    cv::dnn::Net m_detector;
    cv::dnn::Net m_points;
    cv::dnn::Net m_descriptor;
};

/// The Euclidean distance.
float distance(const FaceDescriptor &a, const FaceDescriptor &b);

} // namespace portable
