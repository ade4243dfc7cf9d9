// SPDX-License-Identifier: MIT
/// \file Defines the functions of the device interface; for doccamera.cpp and cardreader.cpp alone.
#pragma once

#include "devicelib/biometrics.h"
#include "devicelib/cardreader.h"
#include "devicelib/doccamera.h"
#include "deviceprocess/stub/forward.h"

using deviceprocess::SizeList;

#define EXPORTED(kind, result, name, parameters, names)                                            \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        return deviceprocess::Forward<deviceprocess::FunctionId::name,                             \
                                      deviceprocess::FunctionKind::kind, result parameters>::call  \
            names;                                                                                 \
    }
