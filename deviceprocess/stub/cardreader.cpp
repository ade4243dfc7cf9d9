// SPDX-License-Identifier: MIT
//
// The library `cardreader` that the server finds beside itself: each function goes to the device
// process.

#include "deviceprocess/stub/exports.h"

#define DEVICE_doccamera(...)
#define DEVICE_cardreader(...) __VA_ARGS__
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    DEVICE_##library(EXPORTED(kind, result, name, parameters, names))
#include "deviceprocess/functions.h"
