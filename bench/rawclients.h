// SPDX-License-Identifier: MIT
/// \file Pages that cost next to nothing, for measuring servers: plain blocking sockets.
#pragma once

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// One page. Its functions return false when the server doesn't answer within 10 s, or is gone.
class RawClient
{
public:
    static constexpr const char *handshake =
        "GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";

    RawClient() = default;
    ~RawClient() { disconnect(); }
    RawClient(RawClient &&other) noexcept
        : m_socket(std::exchange(other.m_socket, -1))
        , m_buffer(std::move(other.m_buffer))
    {
    }
    RawClient &operator=(RawClient &&) = delete;
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    /// Connects, and says nothing.
    bool connectTo(std::uint16_t port)
    {
        m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval patience{10, 0};
        const int on = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            disconnect();
            return false;
        }
        return true;
    }

    /// Connects as a page does.
    bool open(std::uint16_t port)
    {
        if (!connectTo(port) || !write(handshake)) {
            return false;
        }
        std::size_t end = 0;
        while ((end = m_buffer.find("\r\n\r\n")) == std::string::npos) {
            if (!readMore()) {
                return false;
            }
        }
        m_buffer.erase(0, end + 4);
        return true;
    }

    /// Sends a text of less than 126 bytes, with the mask 0.
    bool send(const std::string &text)
    {
        return write(std::string{char(0x81), char(0x80U | text.size()), 0, 0, 0, 0} + text);
    }

    /// Reads the next text. A longer one than `most` is skipped to its end and returned as empty.
    bool next(std::string &text, std::size_t most)
    {
        std::size_t headerSize = 2;
        std::uint64_t size = 0;
        for (;;) {
            size = m_buffer.size() < 2 ? 0 : std::uint8_t(m_buffer[1]);
            headerSize = size < 126 ? 2 : size == 126 ? 4 : 10;
            if (m_buffer.size() >= 2 && m_buffer.size() >= headerSize) {
                break;
            }
            if (!readMore()) {
                return false;
            }
        }
        if (headerSize > 2) {
            size = 0;
            for (std::size_t i = 2; i < headerSize; ++i) {
                size = size << 8U | std::uint8_t(m_buffer[i]);
            }
        }
        m_buffer.erase(0, headerSize);
        const bool isSkipped = size > most;
        for (std::uint64_t rest = size;;) {
            if (isSkipped) {
                const auto part = std::min<std::uint64_t>(rest, m_buffer.size());
                m_buffer.erase(0, part);
                rest -= part;
            }
            if (isSkipped ? rest == 0 : m_buffer.size() >= size) {
                break;
            }
            if (!readMore()) {
                return false;
            }
        }
        text = isSkipped ? std::string() : m_buffer.substr(0, size);
        m_buffer.erase(0, text.size());
        return true;
    }

    /// Sends a command and reads up to its reply.
    bool call(const std::string &command, const std::string &begin)
    {
        std::string text;
        bool isRead = send(command);
        while (isRead && text.compare(0, begin.size(), begin) != 0) {
            isRead = next(text, 4096);
        }
        return isRead;
    }

    bool write(const std::string &bytes)
    {
        return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
    }

    int descriptor() const { return m_socket; }

    void disconnect()
    {
        if (m_socket >= 0) {
            ::close(m_socket);
        }
        m_socket = -1;
        m_buffer.clear();
    }

private:
    bool readMore()
    {
        static thread_local std::array<char, 1 << 18> part;
        const ssize_t size = recv(m_socket, part.data(), part.size(), 0);
        m_buffer.append(part.data(), size > 0 ? std::size_t(size) : 0);
        return size > 0;
    }

    int m_socket = -1;
    std::string m_buffer;
};

/// Pages that only read: all served by one thread.
class Readers
{
public:
    explicit Readers(std::vector<RawClient> clients)
        : m_clients(std::move(clients))
        , m_thread([this] { read(); })
    {
    }
    ~Readers()
    {
        m_end = true;
        m_thread.join();
    }
    Readers(const Readers &) = delete;
    Readers &operator=(const Readers &) = delete;

private:
    void read()
    {
        std::vector<pollfd> polled;
        for (const RawClient &client : m_clients) {
            polled.push_back({client.descriptor(), POLLIN, 0});
        }
        std::vector<char> buffer(1 << 20);
        while (!m_end) {
            poll(polled.data(), polled.size(), 20);
            for (const pollfd &one : polled) {
                if (one.revents != 0) {
                    recv(one.fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
                }
            }
        }
    }

    std::vector<RawClient> m_clients;
    std::atomic<bool> m_end{false};
    std::thread m_thread;
};
