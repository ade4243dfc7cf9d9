// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <functional>
#include <map>
#include <thread>

namespace portable {

/// Which input device and which key of it is the capture button.
struct ButtonSettings
{
    QString device; ///< Path of its node; empty: any that has the key and isn't a keyboard.
    int key = 212; ///< KEY_... of linux/input-event-codes.h; KEY_CAMERA, as UVC cameras have it.

    /// [button] of devices.ini.
    static ButtonSettings configured();
};

/**
 * Watches the capture buttons of this machine, which the kernel shows as input devices (evdev, see
 * Documentation/input/input.rst), also those that come later. Costs nothing while none is pressed.
 */
class CaptureButton
{
public:
    /**
     * \param pressed  called for each press, on a thread of this object
     * \param folder   of the input devices
     */
    explicit CaptureButton(std::function<void()> pressed,
                           ButtonSettings settings = ButtonSettings::configured(),
                           QString folder = QStringLiteral("/dev/input"));
    ~CaptureButton();
    CaptureButton(const CaptureButton &) = delete;
    CaptureButton &operator=(const CaptureButton &) = delete;

private:
    void run();
    void lookAround();
    void add(const QString &path);
    void takeEvents(const QString &path);
    void takeChanges();

    const std::function<void()> m_pressed;
    const ButtonSettings m_settings;
    const QString m_folder;
    int m_changes = -1; // inotify of the folder
    int m_stop = -1; // eventfd
    int m_forbidden = 0; // devices that may not be read, at the last look
    std::map<QString, int> m_open; // descriptors by path
    std::thread m_thread; // the last: it uses all of the above
};

} // namespace portable
