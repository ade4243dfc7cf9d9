// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstdlib>
#include <memory>

/// A text that the device library allocated with malloc and gave away; freed with its owner.
struct FreeText
{
    void operator()(char *text) const { std::free(text); }
};
using DeviceText = std::unique_ptr<char, FreeText>;

/// A device text as it is meant where nothing else is said: UTF-8; null is empty.
inline QString utf8Of(const DeviceText &text)
{
    return QString::fromUtf8(text.get());
}

/// A device text byte for byte, one character each; null is empty.
inline QString latin1Of(const DeviceText &text)
{
    return QString::fromLatin1(text.get());
}
