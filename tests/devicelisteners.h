// SPDX-License-Identifier: MIT
/// \file Calls the listeners that the recording device library was given, as a library does.
#pragma once

#include "tests/recordingdevice.h"

#include <thread>

template <class Function, class... Arguments>
void callListener(const char *function, Arguments... arguments)
{
    if (auto *listener = recording::listener<Function>(function)) {
        std::thread([=] { listener(arguments...); }).join();
    }
}

/// Calls the listeners that a library calls even when it fails.
inline void reportFailures()
{
    callListener<void(int)>("DemoUIShow", 0);
    callListener<void()>("CloseLivingBody");
    callListener<void(QByteArray, QByteArray, int, const char *, void *)>(
        "fingerCaptureRawData", QByteArray(), QByteArray(), -1, static_cast<const char *>(nullptr),
        recording::contextOf("fingerCaptureRawData"));
}

/// Calls all listeners. \param text  what those report that report a text
inline void reportResults(const char *text)
{
    reportFailures();
    void *const none = nullptr;
    callListener<void(int, void *)>("bImageMatchOnline", 80, none);
    callListener<void(const char *, void *)>("bFaceFeatureGetOnline", text, none);
    callListener<void(int, void *)>("bLivingBodyDetectOnline", 1, none);
    callListener<void(const char *, int, int)>("AutoLivingBody", text, 4, 0);
    callListener<void(const char *, int, int)>("AutoLivingBody", text, 4, 1);
    callListener<void(int, int, int, unsigned, int, void *)>("vSetCapturePin", 1, 0, 0, 0U, 0,
                                                             none);
    recording::notifyObserver(1);
}
