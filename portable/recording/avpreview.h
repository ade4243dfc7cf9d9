// SPDX-License-Identifier: MIT
/// \file The preview in a window of the library's own, with what the microphone hears.
#pragma once

#include "portable/camera/pagewindow.h"
#include "portable/camera/previewwatch.h"
#include "portable/recording/soundcapture.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace portable {

/// What the window shows.
struct AvPicture
{
    QImage main; ///< 8-bit RGB, like the other; null while there is none.
    QImage inset; ///< Camera 4's, in a corner; null while that isn't open.
    bool hasMicrophone = false;
    double level = 0; ///< Of the microphone, 0 to 1.
};

QImage paintAvPreview(const QSize &size, const AvPicture &picture);

/// The window. Everything may be called from any thread.
class AvPreview
{
public:
    /// The library's, for its cameras. Closed when Qt's application ends.
    static AvPreview &instance();

    explicit AvPreview(const CameraSet &cameras, base::Clock &clock = base::Clock::shared(),
                       SoundOpener openSound = SoundCapture::shared);
    ~AvPreview(); ///< Closes.
    AvPreview(const AvPreview &) = delete;
    AvPreview &operator=(const AvPreview &) = delete;

    /**
     * Opens the window, in place of one that is open. It shows the main preview, once there is one,
     * and closes itself when that ends.
     */
    void open();
    void close(); ///< Does nothing when it isn't open.

    bool isOpen() const { return m_isOpen; }

    /// Shows or hides the window, the next one as well.
    void setVisible(bool isVisible);

    /// What it shows.
    AvPicture picture() const;

private:
    struct Content;

    void run(const std::shared_ptr<SoundCapture> &sound);
    void show(const std::shared_ptr<SoundCapture> &sound);
    bool wait();
    void end();

    const CameraSet &m_cameras;
    base::Clock &m_clock;
    const SoundOpener m_openSound;
    const std::shared_ptr<Content> m_content;
    std::atomic<bool> m_isOpen{false};

    std::mutex m_changing; // held throughout open() and close()
    std::thread m_thread; // guarded by m_changing
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_stop = false; // guarded by m_mutex, like all below
    bool m_isVisible = true;
    std::unique_ptr<PageWindow> m_window;
};

} // namespace portable
