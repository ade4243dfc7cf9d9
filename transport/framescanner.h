// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * Checks the headers of a client's WebSocket frames (RFC 6455, section 5.2) before anything is done
 * with their payload. Knows nothing of sockets. What it accepts still has to be checked for the
 * order of fragments and for UTF-8, which QWebSocket does.
 */
class FrameScanner
{
public:
    static constexpr int longestHeader = 14;

    struct Frame
    {
        bool complete = false; ///< whether the header is; nothing below is known otherwise
        quint64 size = 0; ///< bytes of the whole frame, its header included
        quint64 message = 0; ///< payload bytes of its message up to and including this frame
        bool endsMessage = false; ///< no data of this message follows (always for control frames)
        bool control = false;
        bool closes = false; ///< a close frame: the goodbye
        quint16 refusal = 0; ///< close code for a frame that must be refused, 0 for a good one
        const char *reason = ""; ///< of the refusal
    };

    /// \param longestMessage  payload bytes of one message, all its fragments
    explicit FrameScanner(quint64 longestMessage)
        : m_longest(longestMessage)
    {
    }

    /**
     * Looks at the next frame.
     * \param bytes  its beginning, as far as it has arrived; more than the header is not looked at
     */
    Frame look(const uchar *bytes, qint64 count) const;

    /// Replaces the limit, for messages of which nothing has come yet.
    void setLongestMessage(quint64 bytes) { m_longest = bytes; }

    /// Goes on behind a complete, good frame.
    void advance(const Frame &frame);

    /// Payload bytes of the fragments behind us whose message has not ended.
    quint64 unfinished() const { return m_unfinished; }

private:
    quint64 m_longest;
    quint64 m_unfinished = 0;
};
