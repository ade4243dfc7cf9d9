// SPDX-License-Identifier: MIT
/** \file How a function fails that the portable library doesn't have. */
#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QtDebug>

#include <utility>

namespace portable {

/** Says in the log that a function is missing: one line that names it. */
inline void unsupported(const char *function)
{
    qWarning("portable: %s: not supported by the portable library", function);
}

/**
 * The same, and gives what the function returns then.
 * \param failure  its sign of failure where that is not false, 0 or null
 */
template <class Result> Result unsupported(const char *function, Result failure = Result())
{
    unsupported(function);
    return failure;
}

/**
 * Calls a listener that must be called even so: queued on the main thread, after the function that
 * was given it has returned. No thread is left behind, and none is called while the process exits.
 */
template <class Call> void answerLater(Call call)
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(call), Qt::QueuedConnection);
}

} // namespace portable
