// SPDX-License-Identifier: MIT
#include "tests/soak/soakclient.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t headKept = 256;
constexpr int connectTimeoutMs = 20000;

bool waitFor(int socket, short events)
{
    pollfd waiting{socket, events, 0};
    return poll(&waiting, 1, connectTimeoutMs) == 1;
}

std::uint64_t bigEndian(const std::string &bytes, std::size_t from, std::size_t count)
{
    std::uint64_t value = 0;
    for (std::size_t i = from; i < from + count; ++i) {
        value = value << 8 | std::uint8_t(bytes[i]);
    }
    return value;
}

} // namespace

SoakClient::SoakClient(std::uint16_t port)
{
    m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_socket >= 0 && !upgrade(port)) {
        close(false);
    }
}

SoakClient::~SoakClient()
{
    close(false);
}

bool SoakClient::upgrade(std::uint16_t port)
{
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(m_socket, reinterpret_cast<sockaddr *>(&server), sizeof server) != 0
        && (errno != EINPROGRESS || !waitFor(m_socket, POLLOUT))) {
        return false;
    }
    const std::string request = "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port)
        + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
    if (::send(m_socket, request.data(), request.size(), MSG_NOSIGNAL) != ssize_t(request.size())) {
        return false;
    }
    std::string answer;
    while (answer.size() < 4 || answer.compare(answer.size() - 4, 4, "\r\n\r\n") != 0) {
        char byte = 0; // one by one: frames may follow at once
        const ssize_t got = recv(m_socket, &byte, 1, 0);
        if (got == 1) {
            answer += byte;
        } else if (got == 0 || errno != EAGAIN || !waitFor(m_socket, POLLIN)) {
            return false;
        }
    }
    return answer.compare(0, 12, "HTTP/1.1 101") == 0;
}

void SoakClient::send(const std::string &text)
{
    if (!isOpen()) {
        return;
    }
    const std::uint32_t mask = 0; // allowed, and saves the work
    std::string frame(1, char(0x81));
    if (text.size() < 126) {
        frame += char(0x80 | text.size());
    } else {
        frame += char(0x80 | 126);
        frame += char(text.size() >> 8);
        frame += char(text.size() & 0xFF);
    }
    frame.append(reinterpret_cast<const char *>(&mask), sizeof mask);
    frame += text;
    if (::send(m_socket, frame.data(), frame.size(), MSG_NOSIGNAL) != ssize_t(frame.size())) {
        close(false);
    }
}

void SoakClient::read(const std::function<void(const Message &)> &take)
{
    static std::vector<char> buffer(1 << 20);
    while (isOpen()) {
        const ssize_t got = recv(m_socket, buffer.data(), buffer.size(), 0);
        if (got > 0) {
            consume(buffer.data(), std::size_t(got), take);
        } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
            close(false);
        } else {
            return;
        }
    }
}

bool SoakClient::takeHeader()
{
    if (m_header.size() < 2) {
        return false;
    }
    const int shortLength = m_header[1] & 0x7F;
    const std::size_t more = shortLength == 126 ? 2 : shortLength == 127 ? 8 : 0;
    if (m_header.size() < 2 + more) {
        return false;
    }
    m_opcode = m_header[0] & 0x0F;
    m_left = more > 0 ? bigEndian(m_header, 2, more) : std::uint64_t(shortLength);
    m_message = Message();
    m_message.length = m_left;
    m_header.clear();
    m_inPayload = true;
    return true;
}

void SoakClient::consume(const char *data, std::size_t size,
                         const std::function<void(const Message &)> &take)
{
    const char *const end = data + size;
    while (data != end || (m_inPayload && m_left == 0)) {
        if (!m_inPayload) {
            m_header += *data++;
            if (!takeHeader()) {
                continue;
            }
        }
        const auto part = std::size_t(std::min<std::uint64_t>(m_left, std::uint64_t(end - data)));
        const std::size_t room = headKept - m_message.head.size();
        m_message.head.append(data, std::min(part, room));
        data += part;
        m_left -= part;
        if (m_left > 0) {
            return;
        }
        m_inPayload = false;
        if (m_opcode == 1) {
            m_message.isFrame = m_message.head.compare(0, 4, "/9j/") == 0;
            take(m_message);
        }
    }
}

void SoakClient::close(bool politely)
{
    if (m_socket < 0) {
        return;
    }
    if (politely) {
        const unsigned char goodbye[] = {0x88, 0x82, 0, 0, 0, 0, 0x03, 0xE8}; // 1000
        ::send(m_socket, goodbye, sizeof goodbye, MSG_NOSIGNAL);
    } else {
        const linger reset{1, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    ::close(m_socket);
    m_socket = -1;
}
