// SPDX-License-Identifier: MIT
#include "deviceprocess/arguments.h"

namespace deviceprocess {

const char *functionName(std::uint32_t function)
{
    static constexpr const char *names[] = {
#define DEVICE(library, kind, seconds, result, name, parameters, names) #name,
#include "deviceprocess/functions.h"
    };
    return function < functionCount ? names[function] : "?";
}

int functionSeconds(std::uint32_t function)
{
    static constexpr int seconds[] = {
#define DEVICE(library, kind, seconds, result, name, parameters, names) seconds,
#include "deviceprocess/functions.h"
    };
    return function < functionCount ? seconds[function] : 0;
}

} // namespace deviceprocess
