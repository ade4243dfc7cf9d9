// SPDX-License-Identifier: MIT
/// \file What the library and its module for faces have in common.
#pragma once

#include "portable/face/facenets.h"
#include "portable/face/modelweights.h"

namespace portable {

struct FaceWeights
{
    ModelWeights detector;
    ModelWeights points;
    ModelWeights descriptor;
};

/// What libportablefaces.so exports as `portableFaces`.
struct FaceModule
{
    /// Throws cv::Exception when the weights are not those of the networks.
    std::unique_ptr<FaceNets> (*create)(const FaceWeights &weights);
};

} // namespace portable
