// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <termios.h>

#include <chrono>
#include <memory>

namespace portable {

/**
 * A serial line at 8 data bits, no parity, one stop bit, no flow control; open, and ours alone,
 * while the object lives. No call waits beyond its deadline. Used by one thread at a time.
 */
class SerialPort
{
public:
    using Clock = std::chrono::steady_clock;

    /**
     * \param path  of the device, such as /dev/ttyUSB0; its name may come from a page
     * \return null if it can't be opened, with the reason in `error`
     */
    static std::unique_ptr<SerialPort> open(const QString &path, QString *error);

    ~SerialPort(); ///< Leaves the line as it was.
    Q_DISABLE_COPY(SerialPort)

    /// \param bitsPerSecond  one of 9600, 19200, 38400, 57600 and 115200
    bool setSpeed(int bitsPerSecond, QString *error);

    /// Sends all bytes, after throwing away what arrived before.
    bool send(const QByteArray &bytes, Clock::time_point deadline, QString *error);

    /// Bytes that have arrived, at most 4096; empty at the deadline, and on failure, with the
    /// reason in `error`.
    QByteArray receive(Clock::time_point deadline, QString *error);

private:
    SerialPort(int file, const termios &before);

    const int m_file;
    const termios m_before;
};

} // namespace portable
