// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/arguments.h"
#include "deviceprocess/wire.h"

#include <QByteArray>

#include <list>
#include <mutex>

namespace deviceprocess {

/**
 * The calls that a new device process gets before any other, so that it is as the one before was:
 * the last call of each setter, and those that opened a preview. Callable from any thread.
 */
class KeptSettings
{
public:
    struct Setting
    {
        FunctionId function;
        QByteArray key; ///< A later call with the same one takes its place.
        QByteArray arguments;
    };

    /// Before a call: keeps a setting; one that opens or closes a preview ends the one before.
    void noteCall(FunctionId function, FunctionKind kind, const QByteArray &arguments);

    /// After a call that was answered: keeps a preview that is open now.
    void noteReply(FunctionId function, FunctionKind kind, const QByteArray &arguments,
                   const Message &reply);

    void forget(const Setting &setting);

    /// In the order of their last calls.
    std::list<Setting> all() const;

private:
    void replace(const Setting &setting);

    mutable std::mutex m_mutex;
    std::list<Setting> m_settings;
};

} // namespace deviceprocess
