// SPDX-License-Identifier: MIT
#include "portable/card/moduleframe.h"

#include <algorithm>
#include <cstring>

namespace portable {

namespace {

constexpr char head[] = "\xAA\xAA\xAA\x96\x69";
constexpr int headSize = 5;
constexpr int contentStart = headSize + 2;
constexpr int shortest = 3 + 1; // status and check byte
constexpr int longest = 4096; // the longest that the protocol has are 2314

quint8 checkByte(const QByteArray &bytes)
{
    quint8 result = 0;
    for (const char byte : bytes) {
        result ^= quint8(byte);
    }
    return result;
}

int lengthIn(const QByteArray &frame)
{
    return quint8(frame[headSize]) << 8 | quint8(frame[headSize + 1]);
}

} // namespace

QByteArray moduleRequest(quint8 command, quint8 parameter)
{
    QByteArray checked(2, '\0');
    checked[1] = 3; // command, parameter, check byte
    checked += char(command);
    checked += char(parameter);
    return QByteArray(head, headSize) + checked + char(checkByte(checked));
}

FrameCollector::State FrameCollector::add(const QByteArray &bytes)
{
    m_bytes += bytes;
    while (skipToHead() == headSize && m_bytes.size() >= contentStart) {
        const int length = lengthIn(m_bytes);
        if (length < shortest || length > longest) { // not the head of a frame after all
            skip(1);
            continue;
        }
        if (m_bytes.size() < contentStart + length) {
            return State::Incomplete;
        }
        const QByteArray checked = m_bytes.mid(headSize, 2 + length - 1);
        const quint8 check = quint8(m_bytes[contentStart + length - 1]);
        m_bytes.clear(); // there is one answer to a request: what follows it is no part of it
        if (check != checkByte(checked)) {
            return State::WrongCheckByte;
        }
        const auto byte = [&checked](int place) { return quint8(checked[place]); };
        m_answer = {byte(2) << 16 | byte(3) << 8 | byte(4), checked.mid(5)};
        return State::Complete;
    }
    return State::Incomplete;
}

bool FrameCollector::hasBegun() const
{
    return m_bytes.size() >= headSize;
}

void FrameCollector::skip(int count)
{
    m_bytes.remove(0, count);
    m_skipped += count;
}

/// Skips what can't be the head of a frame. \return how many bytes of a head are there
int FrameCollector::skipToHead()
{
    int start = 0;
    const auto present = [&] { return std::min(m_bytes.size() - start, headSize); };
    while (std::memcmp(m_bytes.constData() + start, head, size_t(present())) != 0) {
        ++start;
    }
    skip(start);
    return std::min(m_bytes.size(), headSize);
}

} // namespace portable
