// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QSize>
#include <QThread>

#include <chrono>
#include <memory>

/**
 * What the capture thread does next; pages' commands put these on its queue. The numbers are what
 * openCamera maps its codes to.
 */
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
 * The thread that owns the live video. Commands queue operations and return; the thread carries
 * them out one at a time, reports each, and while a camera is open fetches frames and pushes
 * each as base64 JPEG text.
 *
 * It holds its mutex for a whole pass, device calls and pauses included, so openCamera and
 * closeCamera may block their caller for as long as a start or a failed frame takes. The settings
 * (size, zoom, enabled, pause) never block. Every public function may be called from any thread.
 *
 * Memory stays bounded while the main thread is busy: at most two frames are under way to it,
 * further ones are dropped before anything is spent on them. Results are never dropped.
 */
class CaptureImgThread : public QThread
{
    Q_OBJECT

public:
    /// How long the thread waits; tests shorten these.
    struct Waits
    {
        std::chrono::milliseconds pass{20}; ///< for an operation, at the start of each pass
        std::chrono::milliseconds secondTry{500}; ///< after the first failed start
        std::chrono::milliseconds thirdTry{1000}; ///< after the second
        std::chrono::milliseconds failedFrame{1000}; ///< after a frame that could not be had
        std::chrono::milliseconds restart{3000}; ///< between stop and start after six of those
    };

    /// The server's one capture thread; made, and started, at the first call.
    static CaptureImgThread *instance();

    explicit CaptureImgThread(const Waits &waits);
    ~CaptureImgThread() override;

    /**
     * Queues the start of a camera: 1, 2, 3, 5, 6, 8, 9; 11 the main camera for bStartPlayRotate;
     * 25 the dual camera. Another code queues nothing.
     */
    void openCamera(int code);

    /// Queues the stop.
    void closeCamera();

    /// Forgets queue and camera without a word to anybody: another component takes the camera.
    void silenceClose();

    /// Ends the thread at its next pass.
    void destory();

    /// While paused the thread sleeps: no operation is carried out, no frame fetched.
    void setPause(bool pause);

    /// Whether frames are pushed. While they are not, they are fetched all the same.
    void vSetPreviewEnable(bool enable);
    bool bGetPreviewEnable() const;

    /// Size of the pushed frames in pixels; at least 400 x 300, each on its own.
    void vSetPreViewSize(int width, int height);

    /// The step of zooming, in percent of the present size.
    void vSetZoomFactor(int percent);

    /// Makes the pushed frame larger by a step. Pages know it by this name.
    void vZoomOut();

    /// Makes the pushed frame smaller by a step, down to 400 x 300.
    void vZoomIn();

    /// Back to 800 x 600 and steps of a tenth.
    void vZoomOriginal();

    /**
     * Pushes a ready frame of another component that has the camera (liveness): base64 of a JPEG.
     * Dropped like one of its own while the main thread is busy.
     */
    void pushFrame(const QByteArray &text);

    /// The size of the pushed frames as set, in pixels.
    QSize previewSize() const;

Q_SIGNALS:
    /**
     * A framed reply, or a frame: the bare base64 text of a JPEG file. Emitted by this thread
     * (and by the device library's, for liveness).
     */
    void sig_msg(QByteArray text);

    /// A frame has been emitted: comes back to the main thread behind it.
    void frameEmitted(QPrivateSignal);

protected:
    void run() override;

private:
    struct Record;
    class Loop;

    void enqueue(enumCameraOPeration operation);

    const std::unique_ptr<Record> d;
};
