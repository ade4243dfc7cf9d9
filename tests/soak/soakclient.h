// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// A message from the server: its length and as much of both ends as a reply's frame needs.
struct Message
{
    std::string head; ///< At most the first 256 bytes.
    std::uint64_t length = 0;
    bool isFrame = false; ///< A preview frame, base64 JPEG.
};

/**
 * A WebSocket client that costs next to nothing, so that hundreds fit beside the server on one
 * machine: one non-blocking socket, payloads are thrown away unread where nobody looks at them.
 * Knows of RFC 6455 what the server sends: unmasked, unfragmented text and close frames, pings.
 */
class SoakClient
{
public:
    /// Connects to the server on this machine and upgrades; waits up to 20 s for it.
    explicit SoakClient(std::uint16_t port);
    ~SoakClient();
    SoakClient(const SoakClient &) = delete;
    SoakClient &operator=(const SoakClient &) = delete;

    bool isOpen() const { return m_socket >= 0; }
    int socket() const { return m_socket; }

    /// Sends a text of at most 64 KiB; one that doesn't fit into the socket's buffer closes it.
    void send(const std::string &text);

    /// Reads what there is. \param take  gets each whole message
    void read(const std::function<void(const Message &)> &take);

    /// \param politely  with a close frame; otherwise by a reset
    void close(bool politely);

private:
    bool upgrade(std::uint16_t port);
    void consume(const char *data, std::size_t size,
                 const std::function<void(const Message &)> &take);
    bool takeHeader();

    int m_socket = -1;
    std::string m_header; ///< Of the frame that is arriving; empty once it is understood.
    bool m_inPayload = false;
    std::uint64_t m_left = 0; ///< Of its payload, in bytes.
    int m_opcode = 0;
    Message m_message;
};
