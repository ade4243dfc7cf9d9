// SPDX-License-Identifier: MIT
#include "base/datafolder.h"
#include "devicelib/biometrics.h"
#include "devicelib/cardreader.h"
#include "devicelib/doccamera.h"
#include "deviceprocess/stub/forward.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QtDebug>
#include <dlfcn.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace deviceprocess {

namespace {

/// What follows a NUL may belong to a raw feature; no maker's is longer.
constexpr std::size_t maxRawBytes = std::size_t(64) * 1024;

/// The folder of this library, where the program lies too.
QString ownFolder()
{
    Dl_info info{};
    dladdr(reinterpret_cast<void *>(&ownFolder), &info);
    return QFileInfo(QFile::decodeName(info.dli_fname)).absolutePath();
}

/// [library] of devices.ini.
QString setting(const char *key)
{
    const QSettings ini(base::findData(QStringLiteral("devices.ini")), QSettings::IniFormat);
    return ini.value(QStringLiteral("library/") + QLatin1String(key)).toString();
}

/// The libraries when they are loaded into the server itself: [library] process=inside.
class InsideLibraries
{
public:
    InsideLibraries()
    {
        m_isInside = setting("process") == QLatin1String("inside");
        if (m_isInside) {
            m_camera = load(setting("camera"), "libportabledoccamera.so");
            m_cards = load(setting("cards"), "libportablecardreader.so");
        }
    }

    void *find(FunctionId function)
    {
        if (!m_isInside) {
            return nullptr;
        }
        const char *name = functionName(std::uint32_t(function));
        void *found = m_camera ? dlsym(m_camera, name) : nullptr;
        return found || !m_cards ? found : dlsym(m_cards, name);
    }

private:
    static void *load(const QString &configured, const char *usual)
    {
        const QString path = configured.isEmpty()
            ? ownFolder() + QLatin1Char('/') + QLatin1String(usual)
            : configured;
        void *library = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
        if (!library) {
            qWarning("device library: %s", dlerror());
        }
        return library;
    }

    bool m_isInside = false;
    void *m_camera = nullptr;
    void *m_cards = nullptr;
};

} // namespace

DeviceHost &DeviceHost::instance()
{
    static DeviceHost &host = *new DeviceHost(ownFolder() + QStringLiteral("/devicehost"));
    // It goes with the application, before what listeners use; calls fail from then on.
    static const struct Ending
    {
        Ending()
        {
            bool isNumber = false;
            const double factor = setting("timeFactor").toDouble(&isNumber);
            if (isNumber && factor > 0) {
                TimeLimits limits{factor, factor};
                limits.start = std::chrono::milliseconds(
                    qint64(double(limits.start.count()) * std::max(1.0, factor)));
                host.setTimeLimits(limits);
            }
            // Not on its command line, which may not hold the server's name.
            host.setEnvironment({"DEVICEHOST_CAMERA=" + QFile::encodeName(setting("camera")),
                                 "DEVICEHOST_CARDS=" + QFile::encodeName(setting("cards")),
                                 "DEVICEHOST_MEMORY=" + setting("memory").toLatin1()});
            qAddPostRoutine([] { host.stop(); });
        }
        ~Ending() { host.stop(); }
    } ending;
    return host;
}

} // namespace deviceprocess

/**
 * For the server, which looks for it at run time: a maker's library in its place doesn't have it.
 * \param folders  see DeviceHost::setFolders()
 * \return false if the library is in the server itself, where nothing can be restricted
 */
extern "C" bool restrictDeviceProcess(const char *folders)
{
    if (deviceprocess::setting("process") == QLatin1String("inside")) {
        return false;
    }
    deviceprocess::DeviceHost::instance().setFolders(folders);
    return true;
}

/// Starts the device process before its first call: it loads its libraries meanwhile. As above.
extern "C" void startDeviceProcess()
{
    if (deviceprocess::setting("process") != QLatin1String("inside")) {
        deviceprocess::DeviceHost::instance().begin();
    }
}

/**
 * For the server, which looks for it at run time, as the functions above.
 * \param json    receives one object, terminated by NUL: pid, restarts, ... or "inside" or "busy"
 * \return its length; 0 if it takes more than `size` bytes
 */
extern "C" int deviceProcessStatus(char *json, int size)
{
    using deviceprocess::setting;
    static const QString library = setting("camera"); // one process has one
    static const bool isInside = setting("process") == QLatin1String("inside");
    QJsonObject object{{QStringLiteral("library"),
                        library.isEmpty() ? QStringLiteral("libportabledoccamera.so") : library}};
    if (isInside) {
        object.insert(QStringLiteral("inside"), true);
    } else if (const auto status = deviceprocess::DeviceHost::instance().status()) {
        object.insert(QStringLiteral("pid"), int(status->pid));
        object.insert(QStringLiteral("restarts"), status->restarts);
        object.insert(QStringLiteral("lastReason"), QString::fromUtf8(status->lastReason));
        object.insert(QStringLiteral("libraryError"), QString::fromUtf8(status->libraryError));
        if (status->missing) {
            object.insert(QStringLiteral("missing"), QString::fromUtf8(*status->missing));
        }
        object.insert(QStringLiteral("runningSeconds"), double(status->running.count()) / 1000);
        QJsonArray calls;
        for (const auto &call : status->calls) {
            calls.append(QJsonObject{{QStringLiteral("function"), QLatin1String(call.function)},
                                     {QStringLiteral("forMs"), double(call.since.count())}});
        }
        object.insert(QStringLiteral("calls"), calls);
    } else {
        object.insert(QStringLiteral("busy"), true);
    }
    const QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
    if (text.size() >= size) {
        return 0;
    }
    std::memcpy(json, text.constData(), std::size_t(text.size()) + 1);
    return text.size();
}

namespace deviceprocess {

void *insideFunction(FunctionId function)
{
    static InsideLibraries &libraries = *new InsideLibraries;
    static std::array<void *, functionCount> &functions = *[] {
        auto *table = new std::array<void *, functionCount>;
        for (std::size_t i = 0; i < functionCount; ++i) {
            (*table)[i] = libraries.find(FunctionId(i));
        }
        return table;
    }();
    return functions[std::size_t(function)];
}

QByteArray bytesBehind(const char *data)
{
    if (!data) {
        return {};
    }
    // The kernel copies, so that the end of the mapped memory is no fault but the end.
    QByteArray bytes(int(std::max(std::strlen(data) + 1, maxRawBytes)), Qt::Uninitialized);
    const iovec to{bytes.data(), std::size_t(bytes.size())};
    const iovec from{const_cast<char *>(data), std::size_t(bytes.size())};
    const ssize_t copied = process_vm_readv(getpid(), &to, 1, &from, 1, 0);
    const auto text = ssize_t(std::strlen(data)) + 1;
    if (copied < text) { // not allowed here, or a page's end in between: the text alone
        return QByteArray(data, int(text));
    }
    bytes.truncate(int(copied));
    return bytes;
}

std::function<ReleasePixels(std::uint64_t)> releaseOfThread()
{
    const quint64 generation = DeviceHost::generationOfThread();
    return [generation](std::uint64_t held) {
        return [generation, held] { DeviceHost::instance().release(generation, held); };
    };
}

const std::array<Deliver, functionCount> deliverers = {
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    DeliveryOf<FunctionId::name, result parameters>::deliver,
#include "devicelib/functions.h"
};

} // namespace deviceprocess
