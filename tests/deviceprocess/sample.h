// SPDX-License-Identifier: MIT
/// \file What travels in the tests of the device process: library and test make the same of a type.
#pragma once

#include "deviceprocess/arguments.h"

#include <QByteArray>
#include <QImage>
#include <QString>
#include <opencv2/core.hpp>

#include <type_traits>

namespace sample {

using deviceprocess::Role;

/// Longer than the library's buffer has room for, in the server.
constexpr char version[] = "a long version";

/// The bytes of a raw feature that matter, a NUL among them.
inline QByteArray feature(std::size_t index)
{
    return QByteArray("ra\0w", 4) + char('0' + index);
}

/// As long as a number behind it says.
inline QByteArray text(std::size_t index)
{
    return QByteArray(int(index) + 3, char('a' + index));
}

template <class Type> Type number(std::size_t index)
{
    if constexpr (std::is_same_v<Type, bool>) {
        return true;
    } else if constexpr (std::is_floating_point_v<Type>) {
        return Type(index) + Type(0.5);
    } else {
        return sizeof(Type) == 8 ? Type((qint64(1) << 40) + qint64(index)) : Type(index + 2);
    }
}

/// Pictures that go different ways.
enum Picture {
    Empty,
    Small,
    Large,
    PartOfSmall,
    PartOfLarge,
    WithPalette,
    GreyPalette,
    Cube,
    PictureCount
};

/// \param shade  of its first pixel
inline cv::Mat matrix(int picture, int shade)
{
    const bool isLarge = picture == Large || picture == PartOfLarge;
    cv::Mat whole(isLarge ? 400 : 20, isLarge ? 600 : 30, CV_8UC3);
    for (int y = 0; y < whole.rows; ++y) {
        for (int x = 0; x < whole.cols; ++x) {
            whole.at<cv::Vec3b>(y, x) = {uchar(shade + x + y), uchar(x), uchar(y)};
        }
    }
    switch (picture) {
    case Empty:
        return {};
    case PartOfSmall:
    case PartOfLarge:
        return whole(cv::Rect(3, 5, whole.cols / 2, 10));
    case Cube: {
        const int sizes[] = {3, 3, 3};
        return cv::Mat(3, sizes, CV_8U, cv::Scalar(1));
    }
    default:
        return whole;
    }
}

inline QImage image(int picture, int shade)
{
    if (picture == WithPalette || picture == GreyPalette) {
        QImage indexed(7, 5, QImage::Format_Indexed8);
        indexed.setColorTable({qRgb(1, 2, 3), qRgb(4, 5, 6)});
        indexed.setDotsPerMeterY(4000);
        if (picture == GreyPalette) {
            indexed.setColorTable({qRgb(1, 1, 1), qRgb(5, 5, 5)});
        } else {
            indexed.setDotsPerMeterX(3000);
        }
        indexed.fill(1);
        return indexed;
    }
    const cv::Mat pixels = matrix(picture == Cube ? Small : picture, shade);
    if (pixels.empty()) {
        return {};
    }
    auto *owner = new cv::Mat(pixels); // so that large ones are in shared memory
    return QImage(
        owner->data, owner->cols, owner->rows, int(owner->step[0]), QImage::Format_RGB888,
        [](void *held) { delete static_cast<cv::Mat *>(held); }, owner);
}

/// \param number  for pictures: which, and ten times its shade
inline void fill(cv::Mat *output, std::size_t, int number)
{
    *output = matrix(number % 10, number / 10);
}
inline void fill(QImage *output, std::size_t, int number)
{
    *output = image(number % 10, number / 10);
}
inline void fill(QString *output, std::size_t index, int)
{
    *output = QStringLiteral("柜%1").arg(index);
}
inline void fill(int *output, std::size_t index, int)
{
    *output = int(index) + 2;
}
inline void fill(deviceprocess::SizeList *output, std::size_t, int)
{
    *output = {{1.5, 2.5}, {640, 480}};
}

template <class Type> QByteArray described(const Type &value)
{
    if constexpr (std::is_arithmetic_v<Type>) {
        return QByteArray::number(double(value), 'f', 1);
    } else if constexpr (std::is_same_v<Type, QByteArray>) {
        return value;
    } else {
        return value ? QByteArray(value) : QByteArray("null");
    }
}

} // namespace sample
