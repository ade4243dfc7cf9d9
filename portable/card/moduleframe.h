// SPDX-License-Identifier: MIT
/**
 * \file
 * Frames of ID-card modules, the security modules (SAM) that read second-generation ID cards. The
 * protocol is public (GA 450): AA AA AA 96 69, two bytes of length, content, one check byte. The
 * length, most significant byte first, counts content and check byte; the check byte is the XOR of
 * length and content.
 */
#pragma once

#include <QByteArray>

namespace portable {

/// The frame of a request, which is a command and its parameter.
QByteArray moduleRequest(quint8 command, quint8 parameter);

/// Content of a module's frame.
struct ModuleAnswer
{
    int status = 0; ///< The three status bytes, such as 0x00009F.
    QByteArray data;
};

/**
 * Collects a module's answer from bytes that arrive in pieces. They are hostile: anything may come,
 * and no more than one frame is kept.
 */
class FrameCollector
{
public:
    enum class State { Incomplete, Complete, WrongCheckByte };

    /// Takes more bytes, and skips what precedes a frame's head.
    State add(const QByteArray &bytes);

    /// The answer, after Complete.
    const ModuleAnswer &answer() const { return m_answer; }

    bool hasBegun() const; ///< Whether the head of a frame has arrived.
    int skipped() const { return m_skipped; } ///< Bytes that belong to no frame.

private:
    void skip(int count);
    int skipToHead();

    QByteArray m_bytes;
    ModuleAnswer m_answer;
    int m_skipped = 0;
};

} // namespace portable
