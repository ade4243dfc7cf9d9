// SPDX-License-Identifier: MIT
/// \file An ID-card module for tests, at the other end of a pseudo terminal.
#pragma once

#include "tests/files.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

/// A frame of a module with this content, in hexadecimal digits.
inline QByteArray moduleFrame(const QByteArray &content)
{
    const QByteArray bytes = QByteArray::fromHex(content);
    QByteArray frame(1, char((bytes.size() + 1) >> 8));
    frame += char(bytes.size() + 1);
    frame += bytes;
    char check = 0;
    for (const char byte : frame) {
        check = char(check ^ byte);
    }
    return QByteArray::fromHex("AAAAAA9669") + frame + check;
}

/// A field of a card's text block.
inline QByteArray cardField(const char *text, int bytes)
{
    QByteArray field;
    for (const QChar c : QString::fromUtf8(text).leftJustified(bytes / 2)) {
        field += char(c.unicode() & 0xFF);
        field += char(c.unicode() >> 8);
    }
    return field;
}

/// The text of 张三's card, with this name.
inline QByteArray cardOfZhangSan(const QByteArray &name = cardField("张三", 30))
{
    return name + cardField("1", 2) + cardField("02", 4) + cardField("19900101", 16)
        + cardField("样例市样例路1号", 70) + cardField("000000199001010018", 36)
        + cardField("样例市公安局", 30) + cardField("20200101", 16) + cardField("长期", 16)
        + cardField("", 36);
}

/// The module's answer to "read the card".
inline QByteArray cardFrame(const QByteArray &text, const QByteArray &photo = QByteArray(1024, 'p'))
{
    const auto length = [](const QByteArray &block) {
        return QByteArray::number(block.size(), 16).rightJustified(4, '0');
    };
    return moduleFrame("000090" + length(text) + length(photo) + text.toHex() + photo.toHex());
}

/// A module while the object lives; answers on a thread of its own, in order unless a script says
/// otherwise.
class ModuleOnPty
{
public:
    /// Bytes sent for a command (0x2001: find a card); "hang up" unplugs the module.
    using Script = std::function<QByteArray(int command, const QByteArray &usual)>;

    explicit ModuleOnPty(Script script = {}, speed_t speed = B0)
        : m_script(std::move(script))
        , m_speed(speed)
        , m_file(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
    {
        if (m_file >= 0 && ::grantpt(m_file) == 0 && ::unlockpt(m_file) == 0) {
            m_port = QString::fromLatin1(::ptsname(m_file));
            // Held open: without a user, the end of the module reports a hang-up.
            m_user = ::open(qPrintable(m_port), O_RDWR | O_NOCTTY | O_CLOEXEC);
            termios raw = {};
            ::tcgetattr(m_user, &raw);
            ::cfmakeraw(&raw); // else late answers come back as requests
            ::tcsetattr(m_user, TCSANOW, &raw);
            m_thread = std::thread([this] { run(); });
        }
    }
    ~ModuleOnPty()
    {
        m_isUnplugged = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        ::close(m_user);
        ::close(m_file);
    }
    Q_DISABLE_COPY(ModuleOnPty)

    bool isOpen() const { return !m_port.isEmpty(); }
    QString port() const { return m_port; }
    int requests() const { return m_requests; }

    void setScript(Script script)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_script = std::move(script);
    }

private:
    void run()
    {
        while (!m_isUnplugged) {
            pollfd line{m_file, POLLIN, 0};
            char request[10];
            if (::poll(&line, 1, 10) <= 0
                || ::read(m_file, request, sizeof request) != sizeof request) {
                continue;
            }
            ++m_requests;
            if (m_speed == B0 || m_speed == speedOfLine()) {
                answer(quint8(request[7]) << 8 | quint8(request[8]));
            }
        }
    }

    speed_t speedOfLine() const
    {
        termios settings = {};
        ::tcgetattr(m_file, &settings);
        return ::cfgetospeed(&settings);
    }

    void answer(int command)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const QByteArray bytes = m_script ? m_script(command, usual(command)) : usual(command);
        for (int sent = 0; sent < bytes.size() && bytes != "hang up" && !m_isUnplugged;) {
            const auto piece = size_t(qMin(bytes.size() - sent, 97)); // as from a line
            const ssize_t count = ::write(m_file, bytes.constData() + sent, piece);
            sent += int(qMax<ssize_t>(count, 0));
            std::this_thread::sleep_for(std::chrono::microseconds(count < 0 ? 1000 : 100));
        }
        if (bytes == "hang up") {
            ::close(m_user);
            ::close(m_file);
            m_user = m_file = -1;
            m_isUnplugged = true;
        }
    }

    static QByteArray usual(int command)
    {
        switch (command) {
        case 0x11FF:
            return moduleFrame("000090");
        case 0x12FF:
            return moduleFrame("00009005000300A53A34010700000000286BEE");
        case 0x2001:
            return moduleFrame("00009F00000000");
        case 0x2002:
            return moduleFrame("0000900000000000000000");
        case 0x3001:
            return cardFrame(cardOfZhangSan());
        default:
            return moduleFrame("000021");
        }
    }

    Script m_script; // guarded by m_mutex
    std::mutex m_mutex;
    const speed_t m_speed; // the only one at which it answers; B0: any
    QString m_port;
    int m_file;
    int m_user = -1;
    std::atomic<int> m_requests{0};
    std::atomic<bool> m_isUnplugged{false};
    std::thread m_thread;
};
