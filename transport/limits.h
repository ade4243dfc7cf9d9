// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <chrono>

/**
 * What one page, and all pages together, may take of the server. Every limit that bites is logged;
 * docs/protocol-intro.md lists them. Tests use smaller ones.
 */
struct Limits
{
    static constexpr qint64 MiB = qint64(1024) * 1024;

    /// A handshake takes a fraction of a second; browsers open spare connections and leave them.
    std::chrono::milliseconds handshake = std::chrono::seconds(10);
    /// Request headers with every cookie of the machine: browsers send 16 KiB at most.
    qint64 handshakeBytes = qint64(64) * 1024;

    /// One text, all its fragments: an A4 page at 600 dpi as base64 of a bitmap.
    quint64 message = 128 * MiB;
    /// Received bytes of messages that have not ended, of all pages: four of the longest.
    qint64 unfinished = 512 * MiB;
    /// A page whose own unfinished message is not longer is served though the total is used up.
    qint64 unfinishedAlways = qint64(64) * 1024;
    /// Silence within a message: a browser sends a message in one go.
    std::chrono::milliseconds stalledMessage = std::chrono::seconds(10);

    /// How long one page's commands may run before the other pages have their turn.
    std::chrono::milliseconds turn{50};
    /// How long the last commands of a page that leaves may run; what is left then is dropped.
    std::chrono::milliseconds farewell = std::chrono::seconds(1);
    /// Texts of one page that wait to be carried out; beyond it nothing is read from the page.
    int waitingTexts = 10000;
    qint64 waitingBytes = 64 * MiB; ///< the same in bytes of memory
    qint64 waitingBytesOfAll = 256 * MiB; ///< the same for all pages together
    /// Bytes that are read from a page before its earlier ones are dealt with; the rest of a
    /// message that has begun comes on top.
    qint64 readAhead = qint64(64) * 1024;

    /// Unread bytes from which a page's next command waits: a few pictures.
    qint64 unreadWait = 16 * MiB;
    /// Unread bytes from which a page is disconnected once it has read nothing for unreadStall.
    qint64 unreadStalled = 64 * MiB;
    std::chrono::milliseconds unreadStall = std::chrono::seconds(10);
    /// Unread bytes from which the next message disconnects a page, even one that reads.
    qint64 unreadMost = 256 * MiB;
    /// Unread bytes of all pages, from which the stalled one with the most unread has to go.
    qint64 unreadOfAll = 512 * MiB;
    /// ... if it has read nothing for this long: a page on this machine takes 1 MiB in a few ms.
    std::chrono::milliseconds unreadOfAllStall = std::chrono::seconds(2);

    /// Connections, pages or not yet: 30 kB each, and all are polled whenever anything happens.
    int connections = 4096;
    /// File descriptors of the process; 0: its soft limit.
    quint64 descriptors = 0;
    /// Of these, kept free for files, cameras, card readers, the companions and the log.
    quint64 descriptorReserve = 32;
    /// Connections that the kernel accepts while the main thread is busy.
    int backlog = 511;

    /// How long a refused page may take to read why before its connection is cut.
    std::chrono::milliseconds linger = std::chrono::seconds(2);
    /// How often what depends on time is looked at.
    std::chrono::milliseconds tick = std::chrono::seconds(1);
    int logLinesPerSecond = 5; ///< about refused pages
};
