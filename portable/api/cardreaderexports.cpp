// SPDX-License-Identifier: MIT
//
// What the library `portablecardreader` exports.

#include "devicelib/cardreader.h"
#include "portable/api/exports.h"

#define DEVICE_cardreader(...) __VA_ARGS__
#define DEVICE_doccamera(...)
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    DEVICE_##library(EXPORTED(result, name, parameters, names))
#include "devicelib/functions.h"
