// SPDX-License-Identifier: MIT
/// \file Failure of functions that the portable library does not implement.
#pragma once

#include <QtDebug>

namespace portable {

/// Logs that a function is not supported.
inline void unsupported(const char *function)
{
    qWarning("portable: %s: not supported by the portable library", function);
}

/**
 * The same, and returns the function's failure result.
 * \param failure  that result, where it is not false, 0 or null
 */
template <class Result> Result unsupported(const char *function, Result failure = Result())
{
    unsupported(function);
    return failure;
}

} // namespace portable
