// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/v4l2buttons.h"

#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <thread>

namespace portable {

/// Which key of which input device, or which control of which camera, is the capture button.
struct ButtonSettings
{
    QString device; ///< Path of its node; empty: any camera, and any that isn't a keyboard.
    int key = 212; ///< KEY_... of linux/input-event-codes.h; KEY_CAMERA, as UVC cameras have it.
    QString control; ///< As V4l2Buttons takes it.

    /// [button] of devices.ini.
    static ButtonSettings configured();
};

/**
 * Watches the capture buttons of this machine, also those that come later, whether or not a camera
 * runs. The kernel shows them as input devices (evdev, see Documentation/input/input.rst) or as
 * controls of a camera (V4l2Buttons). Costs nothing while none is pressed.
 */
class CaptureButton
{
public:
    /**
     * \param pressed  called for each press, on a thread of this object
     * \param folder   of the input devices
     * \param cameras  the folder of the cameras' nodes
     */
    explicit CaptureButton(std::function<void()> pressed,
                           ButtonSettings settings = ButtonSettings::configured(),
                           QString folder = QStringLiteral("/dev/input"),
                           QString cameras = QStringLiteral("/dev"));
    ~CaptureButton();
    CaptureButton(const CaptureButton &) = delete;
    CaptureButton &operator=(const CaptureButton &) = delete;

private:
    void run();
    void lookAround();
    void addAll(const QString &folder, const QString &names);
    void add(const QString &path);
    bool takeEvents(int descriptor);
    bool takeChanges();
    void takePresses(const QString &path, int found);

    const std::function<void()> m_pressed;
    const ButtonSettings m_settings;
    const QString m_folder;
    const QString m_cameraFolder;
    int m_changes = -1; // inotify of the folders
    int m_stop = -1; // eventfd
    int m_forbidden = 0; // devices that may not be read, at the last look
    std::map<QString, int> m_open; // descriptors of input devices by path
    std::map<QString, std::unique_ptr<V4l2Buttons>> m_cameras; // by path
    std::thread m_thread; // the last: it uses all of the above
};

} // namespace portable
