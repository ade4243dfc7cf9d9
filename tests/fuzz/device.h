// SPDX-License-Identifier: MIT
/// \file The server's surroundings in fuzz targets: the recording device library, a clock on which
/// no wait takes long, and no other programs.
#pragma once

#include <QByteArray>

namespace fuzz {

/// Replaces the clock, for good.
void useOwnClock();

/// Has device functions succeed, fail, throw or return this text, as the bits of `way` say.
void orderDevice(int way, const QByteArray &text);

/// Calls the listeners that the device has been given, if `way` says so.
void callListeners(int way, const QByteArray &text);

/// Closes the windows that commands have opened.
void closeWindows();

} // namespace fuzz
