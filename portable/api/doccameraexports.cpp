// SPDX-License-Identifier: MIT
//
// What the library `portabledoccamera` exports.

#include "devicelib/biometrics.h"
#include "devicelib/doccamera.h"
#include "portable/api/exports.h"

#define DEVICE_doccamera(...) __VA_ARGS__
#define DEVICE_cardreader(...)
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    DEVICE_##library(EXPORTED(result, name, parameters, names))
#include "devicelib/functions.h"
