// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <opencv2/core.hpp>

#include <map>
#include <string>
#include <vector>

namespace portable {

/**
 * The weights of a network in TensorFlow.js format: "<model>-weights_manifest.json" lists name,
 * shape and quantization of each tensor, in the order of their data in "<model>.bin".
 *
 * The functions return float matrices in the axis order of OpenCV's dnn module.
 */
class ModelWeights
{
public:
    /// \return false, with the reason in `error`, unless both files exist and match
    bool read(const QString &folder, const QString &model, QString *error);

    /// Filters of a convolution: [rows, columns, in, out] becomes [out, in, rows, columns].
    cv::Mat filters(const std::string &name) const;

    /// Filters of a depthwise convolution: [rows, columns, n, 1] becomes [n, 1, rows, columns].
    cv::Mat channelFilters(const std::string &name) const;

    /// Weights of a fully connected layer: [in, out] becomes [out, in].
    cv::Mat matrix(const std::string &name) const;

    /// A one-dimensional tensor as one row.
    cv::Mat vector(const std::string &name) const;

private:
    struct Tensor
    {
        std::vector<int> shape;
        std::vector<float> values;
    };

    bool readTensors(const QByteArray &manifest, const QByteArray &numbers, QString *error);
    const Tensor &tensor(const std::string &name, size_t axes) const;

    std::map<std::string, Tensor> m_tensors;
};

} // namespace portable
