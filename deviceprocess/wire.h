// SPDX-License-Identifier: MIT
/// \file Messages between the server and the device process, and the sockets that carry them.
#pragma once

#include <QByteArray>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace deviceprocess {

/// Longest body of a message, in bytes. Texts of hundreds of megabytes are legitimate results.
constexpr std::uint64_t maxBody = 1ULL << 30;

/// What a message is.
enum class MessageKind : std::uint32_t {
    Call = 1, ///< Server to host: arguments of a function.
    Reply = 2, ///< Host to server: result and outputs.
    Failed = 3, ///< Host to server instead of a reply: an exception; the body is its text.
    Event = 4, ///< Host to server: a listener of a function is called with these arguments.
    Log = 5, ///< Host to server: a line for the log.
    Release = 6, ///< Server to host: a picture isn't looked at any more.
    Ping = 7, ///< Server to host: are you there?
    Pong = 8, ///< Host to server: yes. The first: it is ready; what its library lacks, two texts.
};

struct Message
{
    MessageKind kind = MessageKind::Call;
    std::uint32_t function = 0; ///< Index in functions.h.
    QByteArray body;
    int descriptor = -1; ///< Travels along; owned by whoever took the message. -1: none.
    std::uint64_t released = 0; ///< In a call: a picture that isn't looked at any more; 0: none.
};

/// Puts values into the body of a message. Same byte order and sizes on both sides: one machine.
class Writer
{
public:
    template <class Value> void value(Value value)
    {
        static_assert(std::is_trivially_copyable<Value>::value, "plain values only");
        m_bytes.append(reinterpret_cast<const char *>(&value), int(sizeof value));
    }

    /// Bytes with their length; null is kept apart from empty.
    void bytes(const char *data, std::int64_t size)
    {
        value<std::int64_t>(data ? size : -1);
        if (data) {
            m_bytes.append(data, int(size));
        }
    }
    void bytes(const QByteArray &data)
    {
        bytes(data.isNull() ? nullptr : data.constData(), data.size());
    }

    /// A body that was made before.
    void raw(const QByteArray &body) { m_bytes = body; }

    /// A descriptor to travel along, one a message; the writer doesn't own it.
    void setDescriptor(int descriptor) { m_descriptor = descriptor; }

    const QByteArray &body() const { return m_bytes; }
    int descriptor() const { return m_descriptor; }

private:
    QByteArray m_bytes;
    int m_descriptor = -1;
};

/// Takes values out of a body; what doesn't fit is zero or null, and isOk() false from then on.
class Reader
{
public:
    explicit Reader(const Message &message)
        : m_body(message.body)
        , m_descriptor(message.descriptor)
    {
    }

    template <class Value> Value value()
    {
        static_assert(std::is_trivially_copyable<Value>::value, "plain values only");
        if constexpr (std::is_same<Value, bool>::value) {
            const auto byte = value<std::uint8_t>(); // a bool of another value is undefined
            m_isOk = m_isOk && byte <= 1;
            return m_isOk && byte == 1;
        }
        Value result{};
        if (const char *from = take(sizeof result)) {
            std::memcpy(&result, from, sizeof result);
        }
        return result;
    }

    /// A copy, NUL-terminated as every QByteArray; null where null was written, or on failure.
    QByteArray bytes()
    {
        const auto size = value<std::int64_t>();
        const char *from = size < 0 ? nullptr : take(std::uint64_t(size));
        return from ? QByteArray(from, int(size)) : QByteArray();
    }

    int descriptor() const { return m_descriptor; }
    bool isOk() const { return m_isOk; }
    void fail() { m_isOk = false; }

private:
    const char *take(std::uint64_t size)
    {
        if (!m_isOk || size > std::uint64_t(m_body.size() - m_at)) {
            m_isOk = false;
            return nullptr;
        }
        const char *from = m_body.constData() + m_at;
        m_at += int(size);
        return from;
    }

    const QByteArray &m_body;
    int m_at = 0;
    int m_descriptor;
    bool m_isOk = true;
};

enum class Received { Message, Closed, TimedOut, Invalid };

/**
 * Sends a whole message; waits while the other end doesn't read.
 * \param until     moment by which it has to be sent
 * \param released  see Message
 * \return false when the other end is gone or too slow; the connection is of no use then
 */
bool sendMessage(
    int socket, MessageKind kind, std::uint32_t function, const Writer &content,
    std::chrono::steady_clock::time_point until = std::chrono::steady_clock::time_point::max(),
    std::uint64_t released = 0);

/**
 * Waits for a whole message.
 * \param until  moment by which it has to be there; the largest time_point waits without end
 */
Received receiveMessage(int socket, Message *message, std::chrono::steady_clock::time_point until);

/// Waits for something to read, or the end of the connection. \return false when the time is over
bool waitReadable(int socket, std::chrono::steady_clock::time_point until);

/// A pair of connected stream sockets, closed on exec. \return false, with errno, on failure
bool makeSocketPair(int sockets[2]);

/// Closes a descriptor and forgets it; nothing for -1.
void closeDescriptor(int *descriptor);

} // namespace deviceprocess
