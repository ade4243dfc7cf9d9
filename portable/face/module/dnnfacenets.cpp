// SPDX-License-Identifier: MIT
#include "portable/face/module/dnnfacenets.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <string>

namespace portable {

namespace {

// The networks were trained with these shapes, means and anchors; from the sources of
// @vladmandic/face-api 1.7.15: tinyFaceDetector/, faceLandmarkNet/, faceRecognitionNet/.

const cv::Scalar detectorMean(117.001, 114.697, 97.404); // RGB
const cv::Scalar faceMean(122.782, 117.001, 104.298); // RGB
constexpr int cellSize = 32; // pixels of the detector's input
constexpr std::array<std::array<float, 2>, 5> anchors{{{1.603231F, 2.094468F},
                                                       {6.041143F, 7.080126F},
                                                       {2.882459F, 3.518061F},
                                                       {4.266906F, 5.178857F},
                                                       {9.041765F, 10.66308F}}}; // in cells
constexpr int valuesPerAnchor = 5; // x, y, width, height, confidence
constexpr float minConfidence = 0.5F;
constexpr float maxOverlap = 0.4F; // intersection over union; above, two boxes are one face
constexpr double toUnit = 1.0 / 255; // scales 8-bit colors to 0..1
constexpr int pointsSize = 112;
constexpr int chipSize = 150;

/**
 * Position of an eye corner or the nose in an upright face of side 1 (dlib's get_face_chip_details
 * with five points). The descriptor was trained on such chips, with chipPadding around the face.
 */
struct ChipPoint
{
    size_t number; ///< Index into FacePoints.
    float x;
    float y;
};
constexpr std::array<ChipPoint, 5> chipPoints{{{45, 0.8595674595992F, 0.2134981538014F},
                                               {42, 0.6460604764104F, 0.2289674387677F},
                                               {36, 0.1205750620789F, 0.2137274526848F},
                                               {39, 0.3340850613712F, 0.2290642403242F},
                                               {33, 0.4901123135679F, 0.6277975316475F}}};
constexpr float chipPadding = 0.25F;

/// Adds layers to a network one by one. Each function returns the id of its layer for later ones.
class NetBuilder
{
public:
    explicit NetBuilder(const ModelWeights &weights)
        : m_weights(weights)
    {
        m_net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        m_net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    }

    static constexpr int input = 0;

    cv::dnn::Net net() const { return m_net; }

    int convolution(int from, const cv::Mat &filters, const cv::Mat &bias, int stride, int pad,
                    int groups = 1)
    {
        cv::dnn::LayerParams params;
        params.set("num_output", filters.size[0]);
        params.set("kernel_size", filters.size[2]);
        params.set("stride", stride);
        params.set("pad", pad);
        params.set("group", groups);
        params.set("bias_term", !bias.empty());
        params.blobs.push_back(filters);
        if (!bias.empty()) {
            params.blobs.push_back(bias);
        }
        return add("Convolution", params, {from});
    }

    /// The same with the filters and bias of the model's layer `name`.
    int convolution(int from, const std::string &name, int stride, int pad)
    {
        return convolution(from, m_weights.filters(name + "/filters"),
                           m_weights.vector(name + "/bias"), stride, pad);
    }

    /// Depthwise separable: 3 x 3 for each channel by itself, then 1 x 1 over all channels.
    int separable(int from, const std::string &name, int stride, int pad)
    {
        const cv::Mat each = m_weights.channelFilters(name + "/depthwise_filter");
        return convolution(convolution(from, each, {}, stride, pad, each.size[0]),
                           m_weights.filters(name + "/pointwise_filter"),
                           m_weights.vector(name + "/bias"), 1, 0);
    }

    int fullyConnected(int from, const cv::Mat &matrix, const cv::Mat &bias)
    {
        cv::dnn::LayerParams params;
        params.set("num_output", matrix.rows);
        params.set("bias_term", !bias.empty());
        params.blobs.push_back(matrix);
        if (!bias.empty()) {
            params.blobs.push_back(bias);
        }
        return add("InnerProduct", params, {from});
    }

    /// \param slope  for negative values; 0 is a plain ReLU
    int relu(int from, float slope = 0)
    {
        cv::dnn::LayerParams params;
        params.set("negative_slope", slope);
        return add("ReLU", params, {from});
    }

    /// \param ceil  whether a window that extends past the end still counts
    int pooling(int from, const char *kind, int size, int stride, bool ceil)
    {
        cv::dnn::LayerParams params;
        params.set("pool", kind);
        params.set("kernel_size", size);
        params.set("stride", stride);
        params.set("ceil_mode", ceil);
        return add("Pooling", params, {from});
    }

    int globalAverage(int from)
    {
        cv::dnn::LayerParams params;
        params.set("pool", "ave");
        params.set("global_pooling", true);
        return add("Pooling", params, {from});
    }

    int sum(const std::vector<int> &from)
    {
        cv::dnn::LayerParams params;
        params.set("operation", "sum");
        return add("Eltwise", params, from);
    }

    /// Appends channels, or rows and columns, filled with `value`.
    int padding(int from, int channels, int pixels, float value = 0)
    {
        const int amounts[] = {0, 0, 0, channels, 0, pixels, 0, pixels};
        cv::dnn::LayerParams params;
        params.set("paddings", cv::dnn::DictValue::arrayInt(amounts, 8));
        params.set("value", value);
        return add("Padding", params, {from});
    }

private:
    int add(const char *type, cv::dnn::LayerParams &params, const std::vector<int> &from)
    {
        const std::string name = type + std::to_string(++m_layers);
        const int layer = m_net.addLayer(name, type, params);
        for (size_t i = 0; i < from.size(); ++i) {
            m_net.connect(from[i], 0, layer, int(i));
        }
        return layer;
    }

    const ModelWeights &m_weights;
    cv::dnn::Net m_net;
    int m_layers = 0;
};

cv::dnn::Net buildDetector(const ModelWeights &weights)
{
    constexpr float slope = 0.1F;
    NetBuilder net(weights);
    int layer = net.relu(net.convolution(NetBuilder::input, "conv0", 1, 0), slope);
    for (int block = 1; block <= 5; ++block) {
        layer = net.pooling(layer, "max", 2, 2, true);
        layer = net.relu(net.separable(layer, "conv" + std::to_string(block), 1, 1), slope);
    }
    constexpr float neverMax = -1e6F;
    layer = net.pooling(net.padding(layer, 0, 1, neverMax), "max", 2, 1, false);
    net.convolution(layer, "conv8", 1, 0);
    return net.net();
}

cv::dnn::Net buildPoints(const ModelWeights &weights)
{
    NetBuilder net(weights);
    int layer = NetBuilder::input;
    for (int block = 0; block < 4; ++block) {
        const std::string name = "dense" + std::to_string(block) + "/conv";
        layer = net.padding(layer, 0, 1); // TensorFlow's "same" with a stride of 2
        const int first = net.relu(block == 0 ? net.convolution(layer, name + "0", 2, 0)
                                              : net.separable(layer, name + "0", 2, 0));
        std::vector<int> terms{first};
        for (int i = 1; i < 4; ++i) {
            const int before = terms.size() == 1 ? first : net.relu(net.sum(terms));
            terms.push_back(net.separable(before, name + std::to_string(i), 1, 1));
        }
        layer = net.relu(net.sum(terms));
    }
    layer = net.pooling(layer, "ave", 7, 2, false);
    net.fullyConnected(layer, weights.matrix("fc/weights"), weights.vector("fc/bias"));
    return net.net();
}

/// Builds the descriptor's residual network. Its scale layers are folded into the convolutions.
class DescriptorBuilder
{
public:
    explicit DescriptorBuilder(const ModelWeights &weights)
        : m_weights(weights)
        , m_net(weights)
    {
    }

    cv::dnn::Net build()
    {
        int layer = m_net.relu(convolution(NetBuilder::input, "conv32_down", 2, 0));
        layer = m_net.pooling(layer, "max", 3, 2, false); // leaves 35 x 35
        for (const char *name : {"conv32_1", "conv32_2", "conv32_3"}) {
            layer = residual(layer, name);
        }
        layer = residualDown(layer, "conv64_down", 32, 0);
        for (const char *name : {"conv64_1", "conv64_2", "conv64_3"}) {
            layer = residual(layer, name);
        }
        layer = residualDown(layer, "conv128_down", 64, 0);
        for (const char *name : {"conv128_1", "conv128_2"}) {
            layer = residual(layer, name);
        }
        layer = residualDown(layer, "conv256_down", 128, 1);
        for (const char *name : {"conv256_1", "conv256_2"}) {
            layer = residual(layer, name);
        }
        layer = residualDown(layer, "conv256_down_out", 0, 1);
        m_net.fullyConnected(m_net.globalAverage(layer), m_weights.matrix("fc"), {});
        return m_net.net();
    }

private:
    int convolution(int from, const std::string &name, int stride, int pad)
    {
        const cv::Mat scale = m_weights.vector(name + "/scale/weights");
        cv::Mat filters = m_weights.filters(name + "/conv/filters");
        for (int channel = 0; channel < scale.cols; ++channel) {
            cv::Mat(1, int(filters.total()) / scale.cols, CV_32F, filters.ptr(channel)) *=
                scale.at<float>(channel);
        }
        const cv::Mat bias = m_weights.vector(name + "/conv/bias").mul(scale)
            + m_weights.vector(name + "/scale/biases");
        return m_net.convolution(from, filters, bias, stride, pad);
    }

    int residual(int from, const std::string &name)
    {
        const int first = m_net.relu(convolution(from, name + "/conv1", 1, 1));
        return m_net.relu(m_net.sum({convolution(first, name + "/conv2", 1, 1), from}));
    }

    /**
     * Residual block that halves width and height.
     * \param channels  number of channels it adds
     * \param pixels    by how much the convolution's output is smaller than the pooled input
     */
    int residualDown(int from, const std::string &name, int channels, int pixels)
    {
        int layer = m_net.relu(convolution(from, name + "/conv1", 2, 0));
        layer = convolution(layer, name + "/conv2", 1, 1);
        int pooled = m_net.pooling(from, "ave", 2, 2, false);
        layer = pixels > 0 ? m_net.padding(layer, 0, pixels) : layer;
        pooled = channels > 0 ? m_net.padding(pooled, channels, 0) : pooled;
        return m_net.relu(m_net.sum({layer, pooled}));
    }

    const ModelWeights &m_weights;
    NetBuilder m_net;
};

float sigmoid(float value)
{
    return 1 / (1 + std::exp(-value));
}

/// Network input: RGB, mean subtracted, about -0.5 to 0.5.
cv::Mat networkInput(const cv::Mat &picture, int size, const cv::Scalar &mean)
{
    return cv::dnn::blobFromImage(picture, toUnit, {size, size}, mean, true);
}

float overlap(const cv::Rect2f &a, const cv::Rect2f &b)
{
    const float both = (a & b).area();
    return both / (a.area() + b.area() - both);
}

/// Non-maximum suppression: keeps the most confident of overlapping boxes, in order.
std::vector<FaceBox> withoutOverlaps(std::vector<FaceBox> boxes)
{
    std::sort(boxes.begin(), boxes.end(),
              [](const FaceBox &a, const FaceBox &b) { return a.confidence > b.confidence; });
    std::vector<FaceBox> result;
    for (const FaceBox &box : boxes) {
        if (std::none_of(result.begin(), result.end(), [&box](const FaceBox &surer) {
                return overlap(surer.box, box.box) > maxOverlap;
            })) {
            result.push_back(box);
        }
    }
    return result;
}

/// The similarity transform that brings the face upright into a chip, by least squares.
cv::Matx23f chipTransform(const FacePoints &points)
{
    using Number = std::complex<float>; // rotation and scale are one product
    Number meanFrom;
    Number meanTo;
    std::array<Number, chipPoints.size()> from;
    std::array<Number, chipPoints.size()> to;
    for (size_t i = 0; i < chipPoints.size(); ++i) {
        const cv::Point2f &point = points[chipPoints[i].number];
        from[i] = {point.x, point.y};
        to[i] = Number(chipPoints[i].x + chipPadding, chipPoints[i].y + chipPadding)
            * (float(chipSize) / (1 + 2 * chipPadding));
        meanFrom += from[i] / float(chipPoints.size());
        meanTo += to[i] / float(chipPoints.size());
    }
    Number product;
    float spread = 0;
    for (size_t i = 0; i < chipPoints.size(); ++i) {
        product += (to[i] - meanTo) * std::conj(from[i] - meanFrom);
        spread += std::norm(from[i] - meanFrom);
    }
    const Number rotation = product / std::max(spread, 1e-6F);
    const Number shift = meanTo - rotation * meanFrom;
    return {rotation.real(), -rotation.imag(), shift.real(),
            rotation.imag(), rotation.real(),  shift.imag()};
}

} // namespace

DnnFaceNets::DnnFaceNets(const FaceWeights &weights)
    : m_detector(buildDetector(weights.detector))
    , m_points(buildPoints(weights.points))
    , m_descriptor(DescriptorBuilder(weights.descriptor).build())
{
}

std::unique_ptr<FaceNets> DnnFaceNets::create(const FaceWeights &weights)
{
    return std::unique_ptr<FaceNets>(new DnnFaceNets(weights));
}

std::vector<FaceBox> DnnFaceNets::detect(const cv::Mat &picture, int size)
{
    // A square with the picture in its top left corner.
    const int side = std::max(picture.cols, picture.rows);
    const double scale = double(size) / side;
    cv::Mat square(size, size, CV_8UC3, cv::Scalar::all(0));
    const cv::Size used(std::max(1, cvRound(picture.cols * scale)),
                        std::max(1, cvRound(picture.rows * scale)));
    cv::Mat corner = square(cv::Rect({}, used));
    cv::resize(picture, corner, used, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);

    m_detector.setInput(networkInput(square, size, detectorMean));
    const cv::Mat output = m_detector.forward(); // [1, 25, cells, cells]
    const int cells = output.size[2];
    CV_Assert(output.size[1] == int(anchors.size()) * valuesPerAnchor && cells == size / cellSize);
    const auto pixelsPerCell = float(double(side) / cells);
    std::vector<FaceBox> boxes;
    for (int anchor = 0; anchor < int(anchors.size()); ++anchor) {
        for (int row = 0; row < cells; ++row) {
            for (int column = 0; column < cells; ++column) {
                const auto value = [&](int which) {
                    return output.ptr<float>(0, anchor * valuesPerAnchor + which, row)[column];
                };
                const float confidence = sigmoid(value(4));
                if (confidence < minConfidence) {
                    continue;
                }
                const cv::Size2f extent(
                    std::exp(value(2)) * anchors[size_t(anchor)][0] * pixelsPerCell,
                    std::exp(value(3)) * anchors[size_t(anchor)][1] * pixelsPerCell);
                const cv::Point2f center((float(column) + sigmoid(value(0))) * pixelsPerCell,
                                         (float(row) + sigmoid(value(1))) * pixelsPerCell);
                boxes.push_back({{center - cv::Point2f(extent.width, extent.height) * 0.5F, extent},
                                 confidence});
            }
        }
    }
    return withoutOverlaps(std::move(boxes));
}

FacePoints DnnFaceNets::points(const cv::Mat &picture, const FaceBox &face)
{
    const cv::Rect box = cv::Rect(face.box) & cv::Rect({}, picture.size());
    const int side = std::max({box.width, box.height, 1});
    const cv::Rect square(box.x - (side - box.width) / 2, box.y - (side - box.height) / 2, side,
                          side);
    // Black beside the box, as in training.
    cv::Mat cut(square.size(), picture.type(), cv::Scalar::all(0));
    picture(box).copyTo(cut(box - square.tl()));
    m_points.setInput(networkInput(cut, pointsSize, faceMean));
    const cv::Mat output = m_points.forward();
    FacePoints points;
    CV_Assert(output.total() == 2 * points.size());
    const auto *values = output.ptr<float>();
    for (cv::Point2f &point : points) {
        point = cv::Point2f(square.tl()) + cv::Point2f(values[0], values[1]) * float(side);
        values += 2;
    }
    return points;
}

FaceDescriptor DnnFaceNets::describe(const cv::Mat &picture, const FacePoints &points)
{
    // Averaging with the mirrored face makes light and pose matter less. A vector, because OpenCV
    // 4.10 takes no array here.
    std::vector<cv::Mat> chips(2);
    cv::warpAffine(picture, chips[0], chipTransform(points), {chipSize, chipSize});
    cv::flip(chips[0], chips[1], 1);
    m_descriptor.setInput(
        cv::dnn::blobFromImages(chips, toUnit, {chipSize, chipSize}, faceMean, true));
    const cv::Mat output = m_descriptor.forward();
    FaceDescriptor descriptor;
    CV_Assert(output.total() == chips.size() * descriptor.size());
    for (int i = 0; i < int(descriptor.size()); ++i) {
        descriptor[size_t(i)] = (output.ptr<float>(0)[i] + output.ptr<float>(1)[i]) / 2;
    }
    return descriptor;
}

} // namespace portable
