// SPDX-License-Identifier: MIT
#include "devicectl/services.h"

#include <QFile>
#include <QFileInfo>
#include <QTcpSocket>
#include <cups/cups.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>
#include <winscard.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <thread>

namespace {

/// What a function returns within that time; otherwise nullopt, and its thread ends with the
/// program: libraries that wait for a frozen service can't be interrupted.
template <class Result> std::optional<Result> within(int milliseconds, std::function<Result()> ask)
{
    const auto promise = std::make_shared<std::promise<Result>>();
    auto answer = promise->get_future();
    std::thread([promise, ask = std::move(ask)] { promise->set_value(ask()); }).detach();
    return answer.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready
        ? std::make_optional(answer.get())
        : std::nullopt;
}

/// See unix(7): the name of an abstract socket begins with a zero byte and has no end.
bool acceptsLocally(const QByteArray &name)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (name.isEmpty() || std::size_t(name.size()) >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, name.constData(), std::size_t(name.size()));
    std::size_t length = sizeof address;
    if (name.startsWith('@')) {
        address.sun_path[0] = '\0';
        length = offsetof(sockaddr_un, sun_path) + std::size_t(name.size());
    }
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        return false;
    }
    const bool isAccepted =
        ::connect(socket, reinterpret_cast<const sockaddr *>(&address), socklen_t(length)) == 0;
    const bool isFull = !isAccepted && errno == EAGAIN; // somebody listens, and is busy
    ::close(socket);
    return isAccepted || isFull;
}

QByteArray firstLine(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readLine().trimmed() : QByteArray();
}

/// Whether a node that this user can't open seems to be a camera: as udev has noted, or else if it
/// is the first one of its device, which captures.
bool seemsToCapture(const QString &node)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(node).constData(), &status) != 0) {
        return false;
    }
    QFile notes(QStringLiteral("/run/udev/data/c%1:%2")
                    .arg(major(status.st_rdev))
                    .arg(minor(status.st_rdev)));
    const QByteArray mark = "E:ID_V4L_CAPABILITIES=";
    const QByteArray all = notes.open(QIODevice::ReadOnly) ? notes.readAll() : QByteArray();
    const int start = all.indexOf(mark);
    if (start >= 0) {
        return all.mid(start, all.indexOf('\n', start) - start).contains(":capture:");
    }
    const QByteArray index = firstLine(
        QStringLiteral("/sys/class/video4linux/%1/index").arg(QFileInfo(node).fileName()));
    return index.isEmpty() || index == "0";
}

std::optional<QStringList> readersOfService()
{
    SCARDCONTEXT context = 0;
    if (SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context) != SCARD_S_SUCCESS) {
        return {};
    }
    DWORD size = 0;
    LONG code = SCardListReaders(context, nullptr, nullptr, &size);
    QByteArray names(int(size), '\0');
    if (code == SCARD_S_SUCCESS) {
        code = SCardListReaders(context, nullptr, names.data(), &size);
    }
    SCardReleaseContext(context);
    QStringList readers;
    const auto parts = names.left(int(size)).split('\0'); // two zeros end the list
    for (const QByteArray &part : parts) {
        if (!part.isEmpty()) {
            readers << QString::fromUtf8(part);
        }
    }
    return code == SCARD_S_SUCCESS || code == LONG(SCARD_E_NO_READERS_AVAILABLE)
        ? std::make_optional(readers)
        : std::nullopt;
}

Environment::Printer printerOfService(const QByteArray &name, int milliseconds)
{
    Environment::Printer printer;
    // Otherwise CUPS asks for passwords on the terminal.
    cupsSetPasswordCB2([](const char *, http_t *, const char *, const char *,
                          void *) -> const char * { return nullptr; },
                       nullptr);
    const std::unique_ptr<http_t, decltype(&httpClose)> service(
        httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1, milliseconds,
                     nullptr),
        httpClose);
    printer.isAnswered = service != nullptr;
    cups_dest_t *found = service
        ? cupsGetNamedDest(service.get(), name.isEmpty() ? nullptr : name.constData(), nullptr)
        : nullptr;
    if (!found) {
        return printer;
    }
    const auto option = [found](const char *key) {
        return QString::fromUtf8(cupsGetOption(key, found->num_options, found->options));
    };
    printer.name = QString::fromUtf8(found->name);
    printer.isStopped = option("printer-state").toInt() == IPP_PSTATE_STOPPED;
    printer.isAccepting = option("printer-is-accepting-jobs") != QLatin1String("false");
    printer.reasons = option("printer-state-reasons");
    cupsFreeDests(1, found);
    return printer;
}

} // namespace

bool acceptsConnections(const QString &address, int milliseconds)
{
    if (address.startsWith(QLatin1Char('/')) || address.startsWith(QLatin1Char('@'))) {
        return acceptsLocally(QFile::encodeName(address));
    }
    QTcpSocket socket;
    socket.connectToHost(address.section(QLatin1Char(':'), 0, -2),
                         address.section(QLatin1Char(':'), -1).toUShort());
    return socket.waitForConnected(milliseconds);
}

std::optional<QStringList> cardReaderNames(int milliseconds)
{
    const auto answer = within<std::optional<QStringList>>(milliseconds, readersOfService);
    return answer.value_or(std::nullopt);
}

Environment::Printer printerState(const QString &name, int milliseconds)
{
    const auto ask = [name = name.toUtf8(), milliseconds] {
        return printerOfService(name, milliseconds);
    };
    return within<Environment::Printer>(milliseconds, ask).value_or(Environment::Printer());
}

bool isCaptureNode(const QString &node)
{
    const int file = ::open(QFile::encodeName(node).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return seemsToCapture(node);
    }
    v4l2_capability capability = {};
    // Not `capabilities`, which are those of all nodes of the device.
    const bool isCapturing = ::ioctl(file, VIDIOC_QUERYCAP, &capability) == 0
        ? (capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) != 0
        : errno == EBUSY;
    ::close(file);
    return isCapturing;
}
