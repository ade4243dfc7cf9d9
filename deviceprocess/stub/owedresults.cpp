// SPDX-License-Identifier: MIT
#include "deviceprocess/stub/owedresults.h"

#include "base/mainthread.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace deviceprocess {

OwedResults &OwedResults::instance()
{
    static OwedResults &results = *new OwedResults; // the process may end at the very end
    return results;
}

quint64 OwedResults::expect(FunctionId function, Fail fail)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_owed.push_back({++m_calls, function, 0, std::move(fail)});
    return m_calls;
}

std::list<OwedResults::Owed>::iterator OwedResults::find(quint64 call)
{
    return std::find_if(m_owed.begin(), m_owed.end(),
                        [=](const Owed &owed) { return owed.call == call; });
}

/// Under m_mutex. Not on this thread: a listener may not be called within a call.
void OwedResults::failNow(std::list<Owed>::iterator owed)
{
    base::postToMainThread(std::move(owed->fail));
    m_owed.erase(owed);
}

void OwedResults::promise(quint64 call, quint64 generation)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto owed = find(call);
    if (owed == m_owed.end()) {
        return;
    }
    if (generation <= m_ended) { // the promise was its last word
        failNow(owed);
    } else {
        owed->generation = generation;
    }
}

void OwedResults::forget(quint64 call)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_owed.remove_if([=](const Owed &owed) { return owed.call == call; });
}

void OwedResults::fail(quint64 call)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto owed = find(call);
    if (owed != m_owed.end()) {
        failNow(owed);
    }
}

void OwedResults::settle(FunctionId function)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto oldest = std::find_if(m_owed.begin(), m_owed.end(),
                                     [=](const Owed &owed) { return owed.function == function; });
    if (oldest != m_owed.end()) {
        m_owed.erase(oldest);
    }
}

void OwedResults::failAll(quint64 generation)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = generation;
    for (auto owed = m_owed.begin(); owed != m_owed.end();) {
        const auto next = std::next(owed);
        if (owed->generation > 0 && owed->generation <= generation) {
            failNow(owed);
        }
        owed = next;
    }
}

} // namespace deviceprocess
