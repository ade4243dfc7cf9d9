// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <QByteArray>
#include <QSize>
#include <QThread>

#include <chrono>
#include <memory>

/// Operations on the capture thread's queue; openCamera() maps its codes to these.
enum enumCameraOPeration {
    OpClose = 0,
    OpStartPlay = 1,
    OpStartPlayRotate = 2,
    OpStartPlay2 = 3,
    OpStartPlay3 = 4,
    OpStartPlay5 = 5,
    OpStartPlay6 = 6,
    OpStartPlay8 = 7,
    OpStartPlay9 = 8,
    OpStartPlayOpen = 9,
};

/**
 * The thread that owns the live video. Commands queue operations and return; the thread performs
 * them one at a time and reports each result. While a camera is open it fetches frames and pushes
 * each as the base64 text of a JPEG file.
 *
 * The thread holds its mutex for a whole pass, device calls and waits included, so openCamera(),
 * closeCamera() and silenceClose() block for as long as a start or a failed frame takes. The
 * settings (size, zoom, enabled, pause) never block. Every public function may be called from any
 * thread.
 *
 * Memory stays bounded while the main thread is busy: at most two frames are queued for it, and
 * further ones are dropped before they are encoded. Results are never dropped.
 */
class CaptureImgThread : public QThread
{
    Q_OBJECT

public:
    /// The server's capture thread, created and started by the first call.
    static CaptureImgThread *instance();

    /// Starts the thread. \param clock  must outlive it
    explicit CaptureImgThread(base::Clock &clock = base::Clock::shared());
    ~CaptureImgThread() override;

    /**
     * Queues the start of a camera: 1, 2, 3, 5, 6, 8, 9; 11 is the main camera for
     * bStartPlayRotate, 25 the dual camera. Any other code queues nothing.
     */
    void openCamera(int code);

    /// Queues the stop.
    void closeCamera();

    /**
     * Clears the queue and forgets the camera without a device call or a reply: another component
     * takes the camera over.
     */
    void silenceClose();

    /// Ends the thread at its next pass.
    void destory();

    /// A paused thread sleeps: it performs no operation and fetches no frame.
    void setPause(bool pause);

    /// Whether frames are pushed. They are fetched either way.
    void vSetPreviewEnable(bool enable);
    bool bGetPreviewEnable() const;

    /// Sets the size of the pushed frames in pixels; width is at least 400, height at least 300.
    void vSetPreViewSize(int width, int height);

    /// Sets the zoom step, in percent of the current size.
    void vSetZoomFactor(int percent);

    /// Makes the pushed frame larger by one step. The name is the protocol's.
    void vZoomOut();

    /// Makes the pushed frame smaller by one step, down to 400 x 300.
    void vZoomIn();

    /// Resets the size to 800 x 600 and the zoom step to 10 %.
    void vZoomOriginal();

    /**
     * Pushes a frame: the thread's own, or one of the liveness check, which has the camera to
     * itself.
     * \param text  base64 of a JPEG; dropped while the main thread is busy
     * \param fetched  when the picture came from the device library; zero: unknown
     */
    void pushFrame(const QByteArray &text, base::Clock::TimePoint fetched = {});

    /// The time given to pushFrame() for the frame whose sig_frame is being received. Main thread
    /// only; zero if it is unknown.
    base::Clock::TimePoint fetchTimeOfFrame() const;

    /// The size of the pushed frames in pixels, as set.
    QSize previewSize() const;

    /// The preview in figures; times are running means over some 16 frames.
    struct Figures
    {
        int camera = 0; ///< that is open, by its number of the start commands; 0: none
        bool isPaused = false;
        double framesPerSecond = 0; ///< that the device delivers; 0 if none came for 2 s
        std::chrono::nanoseconds waiting{}; ///< for the next frame; 0 if closed or paused
        quint64 fetched = 0; ///< frames since the start of the program, as below
        quint64 pushed = 0;
        quint64 dropped = 0; ///< because the main thread was busy
        quint64 failed = 0; ///< not delivered by the device
        int queued = 0; ///< frames on their way to the main thread
        std::chrono::nanoseconds fetching{}; ///< time of a frame in the device library
        std::chrono::nanoseconds encoding{};
    };

    /// Never waits, not even for a pass in progress.
    Figures figures() const;

Q_SIGNALS:
    /// A framed result. Emitted by this thread, and by the device library's for liveness.
    void sig_msg(QByteArray text);

    /// A preview frame: the base64 text of a JPEG file. Emitted by the same threads as sig_msg.
    void sig_frame(QByteArray text);

    /// Follows each sig_frame, so that the main thread counts the frame as delivered.
    void frameEmitted(QPrivateSignal);

protected:
    void run() override;

private:
    struct Record;
    class Loop;

    void enqueue(enumCameraOPeration operation);

    const std::unique_ptr<Record> d;
};
