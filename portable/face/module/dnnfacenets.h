// SPDX-License-Identifier: MIT
#pragma once

#include "portable/face/facemodule.h"

#include <opencv2/dnn.hpp>

namespace portable {

class DnnFaceNets : public FaceNets
{
public:
    /// FaceModule::create
    static std::unique_ptr<FaceNets> create(const FaceWeights &weights);

    std::vector<FaceBox> detect(const cv::Mat &picture, int size) override;
    FacePoints points(const cv::Mat &picture, const FaceBox &face) override;
    FaceDescriptor describe(const cv::Mat &picture, const FacePoints &points) override;

private:
    explicit DnnFaceNets(const FaceWeights &weights);

    cv::dnn::Net m_detector;
    cv::dnn::Net m_points;
    cv::dnn::Net m_descriptor;
};

} // namespace portable
