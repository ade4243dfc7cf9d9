// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/arguments.h"

#include <functional>
#include <list>
#include <mutex>

namespace deviceprocess {

/**
 * Results that the device process has yet to deliver to listeners which are called once. The server
 * waits for them, with its preview paused at times: when the process ends first, each listener is
 * called with a failure, from the main thread's event loop. Callable from any thread.
 */
class OwedResults
{
public:
    using Fail = std::function<void()>; ///< Calls the listener with a failure.

    static OwedResults &instance();

    /// Before the call, as the result may come before it returns. \return a number for this call
    quint64 expect(FunctionId function, Fail fail);

    /// The call has returned: there will be a result. \param generation  of the process it is owed
    /// by
    void promise(quint64 call, quint64 generation);
    /// The call has returned: there will be no result.
    void forget(quint64 call);
    /// The call has failed: its listener hears of that, unless the result has come.
    void fail(quint64 call);

    /// A result has come.
    void settle(FunctionId function);

    /// Fails what the process of this generation and those before it owe.
    void failAll(quint64 generation);

private:
    struct Owed
    {
        quint64 call;
        FunctionId function;
        quint64 generation; ///< 0 until the call has returned.
        Fail fail;
    };

    std::list<Owed>::iterator find(quint64 call);
    void failNow(std::list<Owed>::iterator owed);

    std::mutex m_mutex;
    std::list<Owed> m_owed; // guarded by m_mutex, as all below; in the order of the calls
    quint64 m_calls = 0;
    quint64 m_ended = 0; ///< The last generation that has ended.
};

} // namespace deviceprocess
