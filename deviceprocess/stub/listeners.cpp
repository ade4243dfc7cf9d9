// SPDX-License-Identifier: MIT
#include "deviceprocess/stub/listeners.h"

#include <QMetaObject>

#include <algorithm>
#include <iterator>

namespace deviceprocess {

Listeners &Listeners::instance()
{
    static Listeners &listeners = *new Listeners; // events may come until the very end
    return listeners;
}

void Listeners::setListener(FunctionId function, Function called)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_listeners[function] = called;
}

Listeners::Function Listeners::listener(FunctionId function) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_listeners.find(function);
    return found == m_listeners.end() ? nullptr : found->second;
}

std::uint64_t Listeners::numberOf(void *context)
{
    if (!context) {
        return 0;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto known = std::find(m_contexts.begin(), m_contexts.end(), context);
    if (known == m_contexts.end()) {
        known = m_contexts.insert(known, context);
    }
    return std::uint64_t(std::distance(m_contexts.begin(), known)) + 1;
}

bool Listeners::contextOf(std::uint64_t number, void **context) const
{
    *context = nullptr;
    if (number == 0) {
        return true;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (number > m_contexts.size()) {
        return false;
    }
    *context = m_contexts[number - 1];
    return true;
}

void Listeners::setReceiver(QObject *receiver, const char *slot)
{
    const QByteArray method = QByteArray(slot).mid(1); // the first character is SLOT()'s mark
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_receiver = receiver;
    m_slot = method.left(method.indexOf('('));
}

void Listeners::callReceiver(int number) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_receiver) {
        QMetaObject::invokeMethod(m_receiver, m_slot.constData(), Qt::QueuedConnection,
                                  Q_ARG(int, number));
    }
}

} // namespace deviceprocess
