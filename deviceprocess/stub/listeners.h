// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/arguments.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace deviceprocess {

/**
 * What of the server's process the host knows by number alone: listeners, their contexts, and the
 * receiver of iAutoScan_observr. A host that invents numbers reaches nothing. Callable from any
 * thread.
 */
class Listeners
{
public:
    using Function = void (*)(); ///< Any listener, cast back by who knows its type.

    static Listeners &instance();

    /// The listener of a function, in place of the former one.
    void setListener(FunctionId function, Function called);
    Function listener(FunctionId function) const;

    /// A number for a context, 0 for null; the same for the same one.
    std::uint64_t numberOf(void *context);
    /// \return false for a number that was never given
    bool contextOf(std::uint64_t number, void **context) const;

    /// \param slot  as SLOT() makes it: "1name(int)"
    void setReceiver(QObject *receiver, const char *slot);
    /// Calls the receiver's slot on the main thread, if it is still there.
    void callReceiver(int number) const;

private:
    mutable std::mutex m_mutex;
    std::map<FunctionId, Function> m_listeners; // guarded by m_mutex, as all below
    std::vector<void *> m_contexts; ///< By number, from 1.
    QPointer<QObject> m_receiver;
    QByteArray m_slot; ///< Its bare name.
};

} // namespace deviceprocess
