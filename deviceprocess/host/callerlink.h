// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/wire.h"

#include <cstdint>

namespace deviceprocess {

class Library;
class Pictures;

/// The host's end of the connection of one of the server's threads. Used by one thread.
class CallerLink
{
public:
    /// \param socket  becomes this object's; library and pictures outlive it
    CallerLink(int socket, Library &library, Pictures &pictures);
    ~CallerLink();
    CallerLink(const CallerLink &) = delete;
    CallerLink &operator=(const CallerLink &) = delete;

    int socket() const { return m_socket; }

    /// Waits for a call, carries it out and answers. \return false when the server's end is closed
    bool serveOne();

    /**
     * Sends a listener's call to the server: during a call of the server, and on its thread, on the
     * same connection, so that it comes before the reply; else on the connection for events.
     */
    static void sendEvent(std::uint32_t function, const Writer &event);

    /// Sends on the connection for events. Any thread.
    static void sendApart(MessageKind kind, std::uint32_t function, const Writer &content);

private:
    int m_socket;
    Library &m_library;
    Pictures &m_pictures;
};

} // namespace deviceprocess
