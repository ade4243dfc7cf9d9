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
 * The weights of a network in the format of TensorFlow.js: "<model>-weights_manifest.json" tells
 * name, shape and quantisation of each tensor, in the order in which they stand in "<model>.bin".
 *
 * Tensors come out as float matrices in the order of OpenCV's dnn module, which is the reverse of
 * TensorFlow's for the last two axes and has them first.
 */
class ModelWeights
{
public:
    /// \return false, with a reason for the log, unless both files are there and fit together
    bool read(const QString &folder, const QString &model, QString *error);

    /// Of a convolution: [rows, columns, in, out] becomes [out, in, rows, columns].
    cv::Mat filters(const std::string &name) const;

    /// Of a convolution of each channel by itself: [rows, columns, n, 1] becomes [n, 1, ...].
    cv::Mat channelFilters(const std::string &name) const;

    /// Of a full connection: [in, out] becomes [out, in].
    cv::Mat matrix(const std::string &name) const;

    /// One row.
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
