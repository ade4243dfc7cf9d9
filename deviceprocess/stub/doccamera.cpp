// SPDX-License-Identifier: MIT
//
// The library `doccamera` that the server finds beside itself: each function goes to the device
// process.

#include "deviceprocess/stub/exports.h"

#define DEVICE_doccamera(...) __VA_ARGS__
#define DEVICE_cardreader(...)
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    DEVICE_##library(EXPORTED(kind, result, name, parameters, names))
#include "deviceprocess/functions.h"
