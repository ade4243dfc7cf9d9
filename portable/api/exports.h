// SPDX-License-Identifier: MIT
/// \file Exports the functions of the device interface; for the two sources that do so alone.
#pragma once

#include "portable/base/failure.h"

/**
 * A function of devicelib/functions.h, carried out by the one of the same name in portable::api.
 * The one place where exceptions end: none may leave the library.
 */
#define EXPORTED(result, name, parameters, names)                                                  \
    namespace portable::api {                                                                      \
    result name parameters;                                                                        \
    }                                                                                              \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        return portable::guarded(#name, [&] { return portable::api::name names; });                \
    }
