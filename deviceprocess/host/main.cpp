// SPDX-License-Identifier: MIT
//
// The device process: loads the device library and carries out what the server asks for. The server
// starts it, with a socket for new callers as descriptor 3 and one for events as 4, and it ends
// with the server.

#include "base/display.h"
#include "base/freememory.h"
#include "base/mainthread.h"
#include "base/memorylimit.h"
#include "base/shortturns.h"
#include "deviceprocess/host/callerlink.h"
#include "deviceprocess/host/landlock.h"
#include "deviceprocess/host/library.h"
#include "deviceprocess/host/pictures.h"
#include "deviceprocess/host/relay.h"
#include "deviceprocess/host/sharedmemory.h"

#include <QApplication>
#include <QFile>
#include <QSocketNotifier>
#include <QtDebug>
#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>

using namespace deviceprocess;

namespace {

constexpr int controlSocket = 3;
constexpr int lowestForeign = 5; ///< Descriptors from here on are none of ours at the start.
constexpr int usualMemoryMiB = 2048;

/// Whatever the server has open and didn't mark is none of our business.
void closeForeignDescriptors()
{
    DIR *folder = opendir("/proc/self/fd");
    if (!folder) {
        return;
    }
    const int own = dirfd(folder);
    while (const dirent *entry = readdir(folder)) {
        const int descriptor = std::atoi(entry->d_name);
        if (descriptor >= lowestForeign && descriptor != own) {
            close(descriptor);
        }
    }
    closedir(folder);
}

void limitResources(int memoryMiB)
{
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    limitMemory(rlim_t(memoryMiB) << 20);
}

/// Lines go to the server's log, with the text that they have there today.
void sendLogLine(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (qstrcmp(context.category, "qt.core.logging") == 0) {
        return; // about the server's logging rules, which we have inherited
    }
    Writer line;
    line.value(std::int32_t(type));
    line.bytes(text.toUtf8());
    CallerLink::sendApart(MessageKind::Log, 0, line);
    if (type == QtFatalMsg) {
        std::abort();
    }
}

/// At once, and with our children.
[[noreturn]] void endAtOnce()
{
    kill(0, SIGKILL); // the process group, which is ours alone
    _exit(0);
}

/// Calls of the server's main thread are carried out on ours: windows want that.
void serveOnMainThread(const std::shared_ptr<CallerLink> &link)
{
    auto *notifier = new QSocketNotifier(link->socket(), QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [notifier, link] {
        if (!link->serveOne()) {
            notifier->setEnabled(false);
            notifier->deleteLater();
        }
    });
}

/**
 * Carries out the calls of one of the server's other threads on a thread of its own. Without memory
 * for one, this process ends: the next has some.
 */
void serveOnOwnThread(const std::shared_ptr<CallerLink> &link)
{
    for (int tries = 0;; ++tries) {
        try {
            std::thread([link] {
                while (link->serveOne()) { }
            }).detach();
            return;
        } catch (const std::system_error &failure) {
            if (tries == 30) {
                qWarning("device process: no thread for another caller: %s", failure.what());
                endAtOnce();
            }
            // On a busy machine those of former callers go late.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
}

/// Takes what comes on the control socket, until the server goes.
void takeControl(Library &library, Pictures &pictures)
{
    Message message;
    while (receiveMessage(controlSocket, &message, std::chrono::steady_clock::time_point::max())
           == Received::Message) {
        Reader reader(message);
        if (message.kind == MessageKind::Release) {
            pictures.release(reader.value<std::uint64_t>());
            continue;
        }
        if (message.kind == MessageKind::Ping) {
            CallerLink::sendApart(MessageKind::Pong, 0, Writer());
            continue;
        }
        const bool isMainThread = reader.value<std::uint8_t>() != 0;
        // A shared pointer, for functors are copied on their way.
        const auto link =
            std::make_shared<CallerLink>(std::exchange(message.descriptor, -1), library, pictures);
        if (isMainThread) {
            base::postToMainThread([link] { serveOnMainThread(link); });
        } else {
            serveOnOwnThread(link);
        }
    }
    endAtOnce();
}

} // namespace

int main(int argc, char **argv)
{
    closeForeignDescriptors();
    if (fcntl(controlSocket, F_GETFD) < 0) {
        std::fputs("devicehost is started by the server, not by hand\n", stderr);
        return 2;
    }
    fcntl(controlSocket, F_SETFD, FD_CLOEXEC);
    fcntl(controlSocket + 1, F_SETFD, FD_CLOEXEC);
    qInstallMessageHandler(sendLogLine);
    if (qEnvironmentVariableIsSet("DEVICEHOST_FOLDERS")) {
        restrictFolders(qgetenv("DEVICEHOST_FOLDERS")); // before there is any other thread
    }

    base::takeShortTurns(base::ShortTurns::AlsoOfItsChildren); // calls, beside frames
    static SharedMemory memory;
    cv::Mat::setDefaultAllocator(&memory);
    base::allowNoDisplay();
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    base::returnFreeMemory([] { memory.dropUnused(); });

    // [library] of devices.ini, as the server read it.
    const auto path = [](const char *variable, const char *usual) {
        const QByteArray text = qgetenv(variable);
        return QFile::decodeName(text.isEmpty() ? usual : text);
    };
    const int memoryMiB = qEnvironmentVariableIntValue("DEVICEHOST_MEMORY");
    limitResources(memoryMiB > 0 ? memoryMiB : usualMemoryMiB);

    static Library library;
    const Shortcomings lacking = library.load(path("DEVICEHOST_CAMERA", "libportabledoccamera.so"),
                                              path("DEVICEHOST_CARDS", "libportablecardreader.so"));
    static Pictures pictures(memory);
    makeRelay();
    Writer ready;
    ready.bytes(lacking.error);
    ready.bytes(lacking.missing);
    CallerLink::sendApart(MessageKind::Pong, 0, ready);
    std::thread(takeControl, std::ref(library), std::ref(pictures)).detach();
    return QApplication::exec();
}
