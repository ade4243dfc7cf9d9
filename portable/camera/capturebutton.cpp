// SPDX-License-Identifier: MIT
#include "portable/camera/capturebutton.h"

#include "portable/base/deviceini.h"

#include <QDir>
#include <QFile>
#include <QtDebug>
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace portable {

namespace {

using Keys = std::array<std::uint8_t, KEY_MAX / 8 + 1>;

bool has(const Keys &keys, int code)
{
    return (keys[std::size_t(code / 8)] >> (code % 8) & 1) != 0;
}

bool isButton(int descriptor, const ButtonSettings &settings)
{
    Keys keys{};
    if (ioctl(descriptor, EVIOCGBIT(EV_KEY, keys.size()), keys.data()) < 0) {
        return false;
    }
    // A keyboard that has the key as well is not listened to unless it is named.
    const bool isKeyboard = has(keys, KEY_A) && settings.device.isEmpty();
    return has(keys, settings.key) && !isKeyboard;
}

} // namespace

ButtonSettings ButtonSettings::configured()
{
    ButtonSettings settings;
    settings.device = deviceSetting(QStringLiteral("button/device"));
    settings.control = deviceSetting(QStringLiteral("button/control"));
    settings.key = deviceSetting(QStringLiteral("button/key")).toInt();
    if (settings.key <= 0 || settings.key > KEY_MAX) {
        settings.key = KEY_CAMERA;
    }
    return settings;
}

CaptureButton::CaptureButton(std::function<void()> pressed, ButtonSettings settings, QString folder,
                             QString cameras)
    : m_pressed(std::move(pressed))
    , m_settings(std::move(settings))
    , m_folder(std::move(folder))
    , m_cameraFolder(std::move(cameras))
    , m_changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    , m_stop(eventfd(0, EFD_CLOEXEC))
{
    for (const QString &each : {m_folder, m_cameraFolder}) {
        // A new node gets its permissions a moment after it has been made.
        if (inotify_add_watch(m_changes, QFile::encodeName(each).constData(),
                              IN_CREATE | IN_ATTRIB | IN_MOVED_TO)
            < 0) {
            qWarning("portable: capture buttons that are plugged in later are not noticed: %s",
                     std::strerror(errno));
        }
    }
    lookAround();
    if (m_open.empty() && m_cameras.empty()) {
        qInfo("portable: no input device or control of a camera is a capture button; %d may not be "
              "read (that takes the groups \"input\" and \"video\", or a udev rule)",
              m_forbidden);
    }
    if (m_stop < 0) {
        qWarning("portable: capture buttons can't be watched: %s", std::strerror(errno));
        return;
    }
    m_thread = std::thread(&CaptureButton::run, this);
}

CaptureButton::~CaptureButton()
{
    if (m_thread.joinable()) {
        eventfd_write(m_stop, 1);
        m_thread.join();
        close(m_stop);
    }
    for (const auto &device : m_open) {
        close(device.second);
    }
    close(m_changes);
}

/// Opens the buttons that aren't open yet.
void CaptureButton::lookAround()
{
    m_forbidden = 0;
    if (!m_settings.device.isEmpty()) {
        add(m_settings.device);
        return;
    }
    addAll(m_folder, QStringLiteral("event*"));
    addAll(m_cameraFolder, QStringLiteral("video*"));
}

void CaptureButton::addAll(const QString &folder, const QString &names)
{
    const QDir nodes(folder);
    const QStringList found = nodes.entryList({names}, QDir::System);
    for (const QString &name : found) {
        add(nodes.filePath(name));
    }
}

void CaptureButton::add(const QString &path)
{
    if (m_open.count(path) > 0 || m_cameras.count(path) > 0) {
        return;
    }
    const int descriptor =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        m_forbidden += errno == EACCES || errno == EPERM ? 1 : 0;
        return;
    }
    if (isButton(descriptor, m_settings)) {
        m_open[path] = descriptor;
    } else {
        close(descriptor);
        auto buttons = std::make_unique<V4l2Buttons>(path, m_settings.control);
        if (buttons->isEmpty()) {
            return;
        }
        m_cameras[path] = std::move(buttons);
    }
    qInfo().noquote() << "portable: capture button:" << path;
}

void CaptureButton::run()
{
    for (;;) {
        std::vector<pollfd> waits{{m_stop, POLLIN, 0}, {m_changes, POLLIN, 0}};
        std::vector<QString> paths;
        for (const auto &device : m_open) {
            waits.push_back({device.second, POLLIN, 0});
            paths.push_back(device.first);
        }
        for (const auto &camera : m_cameras) {
            waits.push_back({camera.second->descriptor(), POLLPRI, 0});
            paths.push_back(camera.first);
        }
        if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) {
            qWarning("portable: capture buttons are not watched any more: %s",
                     std::strerror(errno));
            return;
        }
        if (waits[0].revents != 0) {
            return;
        }
        for (std::size_t i = 0; i < paths.size(); ++i) {
            if (waits[i + 2].revents != 0) {
                takePresses(paths[i], waits[i + 2].revents);
            }
        }
        if (waits[1].revents != 0 && takeChanges()) {
            lookAround();
        }
    }
}

/// \return whether a node has changed that may be a button's
bool CaptureButton::takeChanges()
{
    bool isOurs = !m_settings.device.isEmpty();
    alignas(inotify_event) std::array<char, 4096> changes;
    for (ssize_t bytes; (bytes = read(m_changes, changes.data(), changes.size())) > 0;) {
        for (ssize_t at = 0; at < bytes;) {
            const auto *change =
                reinterpret_cast<const inotify_event *>(changes.data() + std::size_t(at));
            const QByteArray name = change->len > 0 ? QByteArray(change->name) : QByteArray();
            isOurs = isOurs || name.startsWith("event") || name.startsWith("video");
            at += ssize_t(sizeof *change + change->len);
        }
    }
    return isOurs;
}

/// Takes what poll() has found at a device; forgets it when it has gone.
void CaptureButton::takePresses(const QString &path, int found)
{
    const auto camera = m_cameras.find(path);
    bool isGone;
    if (camera != m_cameras.end()) {
        const std::optional<int> presses = camera->second->takePresses();
        for (int i = 0; i < presses.value_or(0); ++i) {
            m_pressed();
        }
        isGone = !presses || (found & (POLLERR | POLLHUP)) != 0;
    } else {
        isGone = !takeEvents(m_open[path]);
    }
    if (!isGone) {
        return;
    }
    qInfo().noquote() << "portable: capture button:" << path << "has gone";
    if (camera != m_cameras.end()) {
        m_cameras.erase(camera);
    } else {
        close(m_open[path]);
        m_open.erase(path);
    }
}

/// Of an input device. \return false when it has gone
bool CaptureButton::takeEvents(int descriptor)
{
    std::array<input_event, 64> events;
    const ssize_t bytes = read(descriptor, events.data(), sizeof events);
    if (bytes <= 0) {
        return bytes < 0 && errno == EAGAIN;
    }
    for (std::size_t i = 0; i < std::size_t(bytes) / sizeof(input_event); ++i) {
        const input_event &event = events[i];
        if (event.type == EV_KEY && event.code == m_settings.key && event.value == 1) {
            m_pressed();
        }
    }
    return true;
}

} // namespace portable
