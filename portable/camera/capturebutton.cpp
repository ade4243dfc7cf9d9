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
    settings.key = deviceSetting(QStringLiteral("button/key")).toInt();
    if (settings.key <= 0 || settings.key > KEY_MAX) {
        settings.key = KEY_CAMERA;
    }
    return settings;
}

CaptureButton::CaptureButton(std::function<void()> pressed, ButtonSettings settings, QString folder)
    : m_pressed(std::move(pressed))
    , m_settings(std::move(settings))
    , m_folder(std::move(folder))
    , m_changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    , m_stop(eventfd(0, EFD_CLOEXEC))
{
    // A new node gets its permissions a moment after it has been made.
    if (inotify_add_watch(m_changes, QFile::encodeName(m_folder).constData(),
                          IN_CREATE | IN_ATTRIB | IN_MOVED_TO)
        < 0) {
        qWarning("portable: capture buttons that are plugged in later are not noticed: %s",
                 std::strerror(errno));
    }
    lookAround();
    if (m_open.empty()) {
        qInfo("portable: no input device is a capture button; %d may not be read (that takes the "
              "group \"input\", or a udev rule)",
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
    const QDir folder(m_folder);
    const QStringList names = folder.entryList({QStringLiteral("event*")}, QDir::System);
    for (const QString &name : names) {
        add(folder.filePath(name));
    }
}

void CaptureButton::add(const QString &path)
{
    if (m_open.count(path) > 0) {
        return;
    }
    const int descriptor =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        m_forbidden += errno == EACCES || errno == EPERM ? 1 : 0;
        return;
    }
    if (!isButton(descriptor, m_settings)) {
        close(descriptor);
        return;
    }
    qInfo().noquote() << "portable: capture button:" << path;
    m_open[path] = descriptor;
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
        if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) {
            qWarning("portable: capture buttons are not watched any more: %s",
                     std::strerror(errno));
            return;
        }
        if (waits[0].revents != 0) {
            return;
        }
        if (waits[1].revents != 0) {
            takeChanges();
        }
        for (std::size_t i = 0; i < paths.size(); ++i) {
            if (waits[i + 2].revents != 0) {
                takeEvents(paths[i]);
            }
        }
    }
}

void CaptureButton::takeChanges()
{
    std::array<char, 4096> changes;
    while (read(m_changes, changes.data(), changes.size()) > 0) { }
    lookAround();
}

void CaptureButton::takeEvents(const QString &path)
{
    const int descriptor = m_open[path];
    std::array<input_event, 64> events;
    const ssize_t bytes = read(descriptor, events.data(), sizeof events);
    if (bytes <= 0) {
        if (bytes == 0 || errno != EAGAIN) {
            qInfo().noquote() << "portable: capture button:" << path << "has gone";
            close(descriptor);
            m_open.erase(path);
        }
        return;
    }
    for (std::size_t i = 0; i < std::size_t(bytes) / sizeof(input_event); ++i) {
        const input_event &event = events[i];
        if (event.type == EV_KEY && event.code == m_settings.key && event.value == 1) {
            m_pressed();
        }
    }
}

} // namespace portable
