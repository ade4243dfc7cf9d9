// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <opencv2/core.hpp>

#include <array>
#include <memory>
#include <vector>

namespace portable {

/// Bounding box of a face in pixels, and the detector's confidence (0 to 1).
struct FaceBox
{
    cv::Rect2f box;
    float confidence = 0;
};

/**
 * The 68 landmarks of a face in pixels, in iBUG 300-W order: from 0 the jaw line, 17 brows, 27
 * nose, 36 and 42 eyes, 48 mouth. The eye at 36 is the one on the left of the picture.
 */
using FacePoints = std::array<cv::Point2f, 68>;

/// Embedding of a face: the smaller the distance of two, the more alike the faces.
using FaceDescriptor = std::array<float, 128>;

/**
 * The three networks behind the face functions: detector, landmarks and descriptor. They are those
 * of the npm package @vladmandic/face-api (MIT), whose weight files this class reads.
 *
 * Used by one thread at a time. Pictures are 8-bit BGR. Apart from load(), every function throws
 * cv::Exception when OpenCV fails.
 */
class FaceNets
{
public:
    /**
     * Builds the networks, in a module that is loaded then.
     * \return null, with the reason in `error`, without usable weights or without the module
     */
    static std::unique_ptr<FaceNets> load(const QString &folder, QString *error);

    virtual ~FaceNets() = default;
    FaceNets(const FaceNets &) = delete;
    FaceNets &operator=(const FaceNets &) = delete;

    /**
     * The faces of a picture, most confident first.
     * \param size  side in pixels, a multiple of 32, that the picture is scaled to: larger finds
     *              smaller faces and takes longer
     */
    virtual std::vector<FaceBox> detect(const cv::Mat &picture, int size) = 0;

    /// The landmarks of a face that detect() found.
    virtual FacePoints points(const cv::Mat &picture, const FaceBox &face) = 0;

    virtual FaceDescriptor describe(const cv::Mat &picture, const FacePoints &points) = 0;

protected:
    FaceNets() = default;
};

/// What OpenCV says about a failure, with its version, in one line for the log.
QString reasonOf(const cv::Exception &exception);

/// Euclidean distance.
float distance(const FaceDescriptor &a, const FaceDescriptor &b);

} // namespace portable
