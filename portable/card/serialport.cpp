// SPDX-License-Identifier: MIT
#include "portable/card/serialport.h"

#include "portable/base/failure.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace portable {

namespace {

struct Speed
{
    int bitsPerSecond;
    speed_t code;
};

constexpr Speed speeds[] = {
    {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

bool isConsole(const QString &path)
{
    static const QRegularExpression name(QStringLiteral("^/dev/(console|tty[0-9]*)$"));
    return name.match(path).hasMatch();
}

/// Waits for poll events. \return false at the deadline, or on failure with the reason in `error`
bool waitFor(int file, short events, SerialPort::Clock::time_point deadline, QString *error)
{
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - SerialPort::Clock::now());
        pollfd line{file, events, 0};
        const int ready = ::poll(&line, 1, int(std::max<qint64>(left.count(), 0)));
        if (ready > 0) { // also with an error or a hang-up, which read() and write() report
            return true;
        }
        if (ready == 0) {
            return false;
        }
        if (errno != EINTR) {
            return setError(qt_error_string(), error);
        }
    }
}

} // namespace

std::unique_ptr<SerialPort> SerialPort::open(const QString &name, QString *error)
{
    const auto fail = [error](const QString &why) {
        setError(why, error);
        return std::unique_ptr<SerialPort>();
    };
    const QString path = QFileInfo(name).canonicalFilePath();
    if (path.isEmpty()) {
        return fail(QStringLiteral("no such device"));
    }
    if (!path.startsWith(QLatin1String("/dev/"))) {
        return fail(QStringLiteral("not a device"));
    }
    if (isConsole(path)) {
        return fail(QStringLiteral("it is a console of this machine"));
    }
    // Doesn't wait for a modem's carrier.
    const int file =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return fail(qt_error_string());
    }
    termios before = {};
    if (::tcgetattr(file, &before) != 0) {
        ::close(file);
        return fail(QStringLiteral("not a serial port"));
    }
    if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        ::close(file);
        return fail(QStringLiteral("another program is using it"));
    }
    ::ioctl(file, TIOCEXCL); // for programs that don't lock
    return std::unique_ptr<SerialPort>(new SerialPort(file, before));
}

SerialPort::SerialPort(int file, const termios &before)
    : m_file(file)
    , m_before(before)
{
}

SerialPort::~SerialPort()
{
    ::tcflush(m_file, TCIOFLUSH); // close() would wait for what a dead device doesn't take
    ::tcsetattr(m_file, TCSANOW, &m_before);
    ::ioctl(m_file, TIOCNXCL);
    ::close(m_file);
}

bool SerialPort::setSpeed(int bitsPerSecond, QString *error)
{
    const auto *const speed =
        std::find_if(std::begin(speeds), std::end(speeds),
                     [=](const Speed &entry) { return entry.bitsPerSecond == bitsPerSecond; });
    if (speed == std::end(speeds)) {
        return setError(QStringLiteral("no serial port has this speed"), error);
    }
    termios settings = m_before;
    ::cfmakeraw(&settings);
    settings.c_cflag &= ~tcflag_t(CSTOPB | CRTSCTS | HUPCL); // closing doesn't reset the device
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    ::cfsetispeed(&settings, speed->code);
    ::cfsetospeed(&settings, speed->code);
    return ::tcsetattr(m_file, TCSANOW, &settings) == 0 || setError(qt_error_string(), error);
}

bool SerialPort::send(const QByteArray &bytes, Clock::time_point deadline, QString *error)
{
    ::tcflush(m_file, TCIFLUSH);
    for (int sent = 0; sent < bytes.size();) {
        const ssize_t count =
            ::write(m_file, bytes.constData() + sent, size_t(bytes.size() - sent));
        if (count > 0) {
            sent += int(count);
        } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return setError(qt_error_string(), error);
        } else if (!waitFor(m_file, POLLOUT, deadline, error)) {
            return error->isEmpty() ? setError(QStringLiteral("it takes no data"), error) : false;
        }
    }
    return true;
}

QByteArray SerialPort::receive(Clock::time_point deadline, QString *error)
{
    if (!waitFor(m_file, POLLIN, deadline, error)) {
        return {};
    }
    QByteArray bytes(4096, '\0');
    const ssize_t count = ::read(m_file, bytes.data(), size_t(bytes.size()));
    if (count > 0) {
        return bytes.left(int(count));
    }
    const bool isLater = count < 0 && (errno == EAGAIN || errno == EINTR);
    if (!isLater) { // 0 and EIO: a USB adapter was unplugged
        setError(count == 0 ? QStringLiteral("it was disconnected") : qt_error_string(), error);
    }
    return {};
}

} // namespace portable
