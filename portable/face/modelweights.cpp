// SPDX-License-Identifier: MIT
#include "portable/face/modelweights.h"

#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inputlimits.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <cstring>

namespace portable {

namespace {

constexpr int maxAxis = 1 << 16;

bool readFile(const QString &path, QByteArray *content, QString *error)
{
    *content = readWholeFile(path, limits::modelFile, error);
    return !content->isNull() || prefixError(path, error);
}

/// Number of elements of a tensor of this shape; 0 for an invalid shape.
qint64 elementCount(const QJsonArray &shape, std::vector<int> *axes)
{
    qint64 count = 1;
    for (const QJsonValue &value : shape) {
        const int axis = value.toInt();
        if (axis < 1 || axis > maxAxis || count > limits::modelFile) {
            return 0;
        }
        axes->push_back(axis);
        count *= axis;
    }
    return count;
}

float floatAt(const char *bytes)
{
    const quint32 bits = qFromLittleEndian<quint32>(bytes);
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

bool ModelWeights::read(const QString &folder, const QString &model, QString *error)
{
    const QString path = folder + QLatin1Char('/') + model;
    QByteArray manifest;
    QByteArray numbers;
    return readFile(path + QStringLiteral("-weights_manifest.json"), &manifest, error)
        && readFile(path + QStringLiteral(".bin"), &numbers, error)
        && readTensors(manifest, numbers, error);
}

bool ModelWeights::readTensors(const QByteArray &manifest, const QByteArray &numbers,
                               QString *error)
{
    const auto mismatch = QStringLiteral("the weights are broken: manifest and data don't match");
    m_tensors.clear();
    const QJsonArray tensors = QJsonDocument::fromJson(manifest)
                                   .array()
                                   .at(0)
                                   .toObject()[QStringLiteral("weights")]
                                   .toArray();
    const char *at = numbers.constData();
    qint64 left = numbers.size();
    for (const QJsonValue &value : tensors) {
        const QJsonObject entry = value.toObject();
        const QJsonObject quantization = entry[QStringLiteral("quantization")].toObject();
        const bool isQuantized = !quantization.isEmpty(); // to one byte each
        const qint64 size = isQuantized ? 1 : qint64(sizeof(float));
        Tensor tensor;
        const qint64 count = elementCount(entry[QStringLiteral("shape")].toArray(), &tensor.shape);
        if (count < 1 || count * size > left) {
            return setError(mismatch, error);
        }
        const double scale = quantization[QStringLiteral("scale")].toDouble();
        const double smallest = quantization[QStringLiteral("min")].toDouble();
        tensor.values.reserve(size_t(count));
        for (qint64 i = 0; i < count; ++i, at += size) {
            tensor.values.push_back(isQuantized ? float(smallest + scale * uchar(*at))
                                                : floatAt(at));
        }
        left -= count * size;
        m_tensors[entry[QStringLiteral("name")].toString().toStdString()] = std::move(tensor);
    }
    if (left != 0 || m_tensors.empty()) {
        return setError(mismatch, error);
    }
    return true;
}

cv::Mat ModelWeights::filters(const std::string &name) const
{
    const Tensor &from = tensor(name, 4);
    const size_t places = size_t(from.shape[0]) * size_t(from.shape[1]);
    const auto in = size_t(from.shape[2]);
    const auto out = size_t(from.shape[3]);
    const int sizes[] = {from.shape[3], from.shape[2], from.shape[0], from.shape[1]};
    cv::Mat result(4, sizes, CV_32F);
    auto *to = result.ptr<float>();
    for (size_t o = 0; o < out; ++o) {
        for (size_t i = 0; i < in; ++i) {
            for (size_t place = 0; place < places; ++place) {
                *to++ = from.values[(place * in + i) * out + o];
            }
        }
    }
    return result;
}

cv::Mat ModelWeights::channelFilters(const std::string &name) const
{
    const cv::Mat swapped = filters(name); // [1, channels, rows, columns]
    const int sizes[] = {swapped.size[1], 1, swapped.size[2], swapped.size[3]};
    return swapped.reshape(1, 4, sizes);
}

cv::Mat ModelWeights::matrix(const std::string &name) const
{
    const Tensor &from = tensor(name, 2);
    return cv::Mat(from.shape[0], from.shape[1], CV_32F,
                   const_cast<float *>(from.values.data())) // only read: t() copies
        .t();
}

cv::Mat ModelWeights::vector(const std::string &name) const
{
    return cv::Mat(tensor(name, 1).values, true).reshape(1, 1);
}

/// Throws cv::Exception without such a tensor: these are the weights of another model.
const ModelWeights::Tensor &ModelWeights::tensor(const std::string &name, size_t axes) const
{
    const auto found = m_tensors.find(name);
    if (found == m_tensors.end() || found->second.shape.size() != axes) {
        CV_Error(cv::Error::StsObjectNotFound, "the weights have no tensor " + name);
    }
    return found->second;
}

} // namespace portable
