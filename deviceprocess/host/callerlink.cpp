// SPDX-License-Identifier: MIT
#include "deviceprocess/host/callerlink.h"

#include "deviceprocess/host/library.h"
#include "deviceprocess/host/pictures.h"

#include <unistd.h>

#include <exception>
#include <mutex>

namespace deviceprocess {

namespace {

constexpr int eventSocket = 4; // as the server starts us

thread_local int socketOfCall = -1; // while this thread carries out a call of the server

/// Marks this thread as one that carries out a call.
class DuringCall
{
public:
    explicit DuringCall(int socket)
        : m_former(socketOfCall)
    {
        socketOfCall = socket;
    }
    ~DuringCall() { socketOfCall = m_former; }
    DuringCall(const DuringCall &) = delete;
    DuringCall &operator=(const DuringCall &) = delete;

private:
    const int m_former;
};

} // namespace

CallerLink::CallerLink(int socket, Library &library, Pictures &pictures)
    : m_socket(socket)
    , m_library(library)
    , m_pictures(pictures)
{
}

CallerLink::~CallerLink()
{
    closeDescriptor(&m_socket);
}

bool CallerLink::serveOne()
{
    Message call;
    const Received received =
        receiveMessage(m_socket, &call, std::chrono::steady_clock::time_point::max());
    closeDescriptor(&call.descriptor);
    if (received != Received::Message || call.kind != MessageKind::Call) {
        return false;
    }
    m_pictures.release(call.released);
    Writer reply;
    MessageKind kind = MessageKind::Reply;
    try {
        const DuringCall during(m_socket);
        Reader arguments(call);
        m_library.execute(call.function, arguments, reply, m_pictures);
    } catch (const std::exception &failure) {
        reply = Writer();
        reply.raw(failure.what());
        kind = MessageKind::Failed;
    } catch (...) {
        reply = Writer();
        reply.raw("something that is no std::exception");
        kind = MessageKind::Failed;
    }
    return sendMessage(m_socket, kind, call.function, reply);
}

void CallerLink::sendEvent(std::uint32_t function, const Writer &event)
{
    if (socketOfCall >= 0) {
        sendMessage(socketOfCall, MessageKind::Event, function, event);
    } else {
        sendApart(MessageKind::Event, function, event);
    }
}

void CallerLink::sendApart(MessageKind kind, std::uint32_t function, const Writer &content)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    sendMessage(eventSocket, kind, function, content);
}

} // namespace deviceprocess
