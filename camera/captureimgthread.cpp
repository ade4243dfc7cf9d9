// SPDX-License-Identifier: MIT
#include "camera/captureimgthread.h"

#include "camera/frameencoder.h"
#include "devicelib/doccamera.h"
#include "dispatch/messagerun.h"

#include <QDebug>
#include <QImage>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <limits>
#include <list>
#include <mutex>

namespace {

constexpr QSize originalPreviewSize{800, 600};
constexpr QSize smallestPreviewSize{400, 300};
constexpr double originalZoomFactor = 0.1;
constexpr int noCamera = -1;
constexpr int failuresBeforeRestart = 5; // one more, and the camera is restarted
constexpr int framesUnderWayLimit = 2;
constexpr int largestScale = 10; // a frame is enlarged no further

enum class Turn { No, AsSet };

/**
 * How each camera is started. Pages rely on the irregular entries: camera 5 is kept as 3, the
 * cameras from 5 on are not turned at the third try, and the dual camera that is open already
 * answers by another name.
 */
struct Start
{
    int code; // of openCamera
    enumCameraOPeration operation;
    int camera; // open already when this one is current
    int stored; // what becomes current
    bool (*start)(short rotation);
    Turn firstTries;
    Turn lastTry;
    const char *name;
    const char *nameWhenOpen;
};

bool startDualCamera(short)
{
    return bStartPlayOpen();
}

// clang-format off
constexpr Start starts[] = {
    // code  operation      camera stored  start         tries 1, 2   try 3        reply name        open already
    { 1, OpStartPlay,        1,  1, bStartPlay,      Turn::AsSet, Turn::AsSet, "bStartPlay",       "bStartPlay"},
    {11, OpStartPlayRotate,  1,  1, bStartPlay,      Turn::AsSet, Turn::AsSet, "bStartPlayRotate", "bStartPlayRotate"},
    { 2, OpStartPlay2,       2,  2, bStartPlay2,     Turn::No,    Turn::No,    "bStartPlay2",      "bStartPlay2"},
    { 3, OpStartPlay3,       3,  3, bStartPlay3,     Turn::No,    Turn::No,    "bStartPlay3",      "bStartPlay3"},
    { 5, OpStartPlay5,       5,  3, bStartPlay5,     Turn::AsSet, Turn::No,    "bStartPlay5",      "bStartPlay5"},
    { 6, OpStartPlay6,       6,  6, bStartPlay6,     Turn::AsSet, Turn::No,    "bStartPlay6",      "bStartPlay6"},
    { 8, OpStartPlay8,       8,  8, bStartPlay8,     Turn::AsSet, Turn::No,    "bStartPlay8",      "bStartPlay8"},
    { 9, OpStartPlay9,       9,  9, bStartPlay9,     Turn::AsSet, Turn::No,    "bStartPlay9",      "bStartPlay9"},
    {25, OpStartPlayOpen,   25, 25, startDualCamera, Turn::No,    Turn::No,    "bStartPlayOpen",   "bDualCameraOpen"},
};
// clang-format on

template <class Value> const Start *findStart(Value Start::*field, Value value)
{
    const auto found = std::find_if(std::begin(starts), std::end(starts),
                                    [=](const Start &start) { return start.*field == value; });
    return found == std::end(starts) ? nullptr : &*found;
}

QByteArray resultText(const char *name, bool result)
{
    return MessageRun::framed(QLatin1String(name), MessageRun::truth(result)).toLatin1();
}

int truncated(double value)
{
    using Limits = std::numeric_limits<int>;
    return int(std::clamp<double>(value, Limits::min(), Limits::max()));
}

} // namespace

struct CaptureImgThread::Record
{
    explicit Record(const Waits &someWaits)
        : waits(someWaits)
    {
    }

    QSize previewSizeChangedBy(double factor) const
    {
        const int width = previewWidth;
        const int height = previewHeight;
        return {truncated(width + width * factor), truncated(height + height * factor)};
    }

    const Waits waits;

    std::mutex mutex;
    std::condition_variable wake;
    bool running = true; // guarded by mutex
    int currentCamera = noCamera; // guarded by mutex
    std::list<enumCameraOPeration> queue; // guarded by mutex

    // The pause has a lock of its own: setting it must not wait for a pass to end.
    std::mutex pauseMutex;
    std::condition_variable pauseWake;
    bool paused = false; // guarded by pauseMutex
    bool ending = false; // guarded by pauseMutex

    std::atomic<double> zoomFactor{originalZoomFactor};
    std::atomic<int> previewWidth{originalPreviewSize.width()};
    std::atomic<int> previewHeight{originalPreviewSize.height()};
    std::atomic<bool> previewEnabled{true};

    std::atomic<int> framesUnderWay{0};
};

/// What the thread does, and what only the thread knows.
class CaptureImgThread::Loop
{
public:
    explicit Loop(CaptureImgThread &thread)
        : m_thread(thread)
        , d(*thread.d)
    {
    }

    /// One pass; false when the thread is to end.
    bool pass();

private:
    void waitWhilePaused();
    void perform(enumCameraOPeration operation);
    void close();
    void open(const Start &start);
    bool tryThreeTimes(const Start &start);
    void fetchFrame();
    void push(const QImage &frame);
    void recoverFromFailure();
    void emitResult(const char *name, bool result);

    CaptureImgThread &m_thread;
    Record &d;
    FrameEncoder m_encoder;
    int m_failures = 0; // frames in a row
    QSize m_refusedSize; // told in the log already
};

CaptureImgThread *CaptureImgThread::instance()
{
    static CaptureImgThread thread{Waits{}};
    return &thread;
}

CaptureImgThread::CaptureImgThread(const Waits &waits)
    : d(new Record(waits))
{
    setObjectName(QStringLiteral("capture"));
    connect(
        this, &CaptureImgThread::frameEmitted, this, [this] { --d->framesUnderWay; },
        Qt::QueuedConnection);
    start();
}

CaptureImgThread::~CaptureImgThread()
{
    destory();
    wait();
    // The thread is gone; the thread sanitizer, which doesn't know QThread::wait, learns it here.
    const std::lock_guard<std::mutex> lock(d->mutex);
}

void CaptureImgThread::enqueue(enumCameraOPeration operation)
{
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->queue.push_back(operation);
    }
    d->wake.notify_one();
}

void CaptureImgThread::openCamera(int code)
{
    if (const Start *start = findStart(&Start::code, code)) {
        enqueue(start->operation);
    } else {
        qWarning() << "capture: there is no camera of code" << code;
    }
}

void CaptureImgThread::closeCamera()
{
    enqueue(OpClose);
}

void CaptureImgThread::silenceClose()
{
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->queue.clear();
        d->currentCamera = noCamera;
    }
    d->wake.notify_one();
}

void CaptureImgThread::destory()
{
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->running = false;
        d->wake.notify_one();
    }
    const std::lock_guard<std::mutex> lock(d->pauseMutex);
    d->ending = true;
    d->pauseWake.notify_one();
}

void CaptureImgThread::setPause(bool pause)
{
    const std::lock_guard<std::mutex> lock(d->pauseMutex);
    d->paused = pause;
    d->pauseWake.notify_one();
}

void CaptureImgThread::vSetPreviewEnable(bool enable)
{
    d->previewEnabled = enable;
}

bool CaptureImgThread::bGetPreviewEnable() const
{
    return d->previewEnabled;
}

void CaptureImgThread::vSetPreViewSize(int width, int height)
{
    d->previewWidth = qMax(width, smallestPreviewSize.width());
    d->previewHeight = qMax(height, smallestPreviewSize.height());
}

void CaptureImgThread::vSetZoomFactor(int percent)
{
    d->zoomFactor = percent / 100.0;
}

void CaptureImgThread::vZoomOut()
{
    const QSize zoomed = d->previewSizeChangedBy(d->zoomFactor);
    d->previewWidth = zoomed.width();
    d->previewHeight = zoomed.height();
}

void CaptureImgThread::vZoomIn()
{
    const QSize zoomed = d->previewSizeChangedBy(-d->zoomFactor);
    vSetPreViewSize(zoomed.width(), zoomed.height());
}

void CaptureImgThread::vZoomOriginal()
{
    d->previewWidth = originalPreviewSize.width();
    d->previewHeight = originalPreviewSize.height();
    d->zoomFactor = originalZoomFactor;
}

QSize CaptureImgThread::previewSize() const
{
    return {d->previewWidth, d->previewHeight};
}

void CaptureImgThread::pushFrame(const QByteArray &text)
{
    if (d->framesUnderWay >= framesUnderWayLimit) {
        return;
    }
    ++d->framesUnderWay;
    Q_EMIT sig_msg(text);
    Q_EMIT frameEmitted(QPrivateSignal());
}

void CaptureImgThread::run()
{
    Loop loop(*this);
    while (loop.pass()) { }
}

bool CaptureImgThread::Loop::pass()
{
    waitWhilePaused();
    std::unique_lock<std::mutex> lock(d.mutex);
    if (!d.running) {
        return false;
    }
    d.wake.wait_for(lock, d.waits.pass);
    if (!d.queue.empty()) {
        const enumCameraOPeration operation = d.queue.front();
        d.queue.pop_front();
        perform(operation);
    } else if (d.currentCamera > 0) {
        fetchFrame();
    }
    return true;
}

void CaptureImgThread::Loop::waitWhilePaused()
{
    std::unique_lock<std::mutex> lock(d.pauseMutex);
    d.pauseWake.wait(lock, [this] { return !d.paused || d.ending; });
}

void CaptureImgThread::Loop::perform(enumCameraOPeration operation)
{
    if (const Start *start = findStart(&Start::operation, operation)) {
        open(*start);
    } else {
        close();
    }
}

void CaptureImgThread::Loop::close()
{
    d.currentCamera = noCamera;
    emitResult("bStopPlay", bStopPlay());
}

void CaptureImgThread::Loop::open(const Start &start)
{
    if (d.currentCamera == start.camera) {
        emitResult(start.nameWhenOpen, true);
        return;
    }
    if (d.currentCamera > 0) {
        bStopPlay();
    }
    const bool started = tryThreeTimes(start);
    if (started) {
        d.currentCamera = start.stored;
    }
    emitResult(start.name, started);
}

bool CaptureImgThread::Loop::tryThreeTimes(const Start &start)
{
    const auto attempt = [&start](Turn turn) {
        return start.start(turn == Turn::AsSet ? iGetRotate() : short{0});
    };
    if (attempt(start.firstTries)) {
        return true;
    }
    bStopPlay();
    QThread::msleep(ulong(d.waits.secondTry.count()));
    if (attempt(start.firstTries)) {
        return true;
    }
    bStopPlay();
    QThread::msleep(ulong(d.waits.thirdTry.count()));
    return attempt(start.lastTry);
}

void CaptureImgThread::Loop::fetchFrame()
{
    QImage frame;
    if (!getVideoFrame(frame) || frame.isNull()) {
        ++m_failures;
        recoverFromFailure();
    } else if (d.previewEnabled) {
        push(frame);
        m_failures = 0;
    } else if (m_failures > 0) {
        // A frame that nobody gets to see doesn't prove that all is well again.
        recoverFromFailure();
    }
}

void CaptureImgThread::Loop::push(const QImage &frame)
{
    // The main thread is busy: spend nothing on a frame that nobody could see.
    if (d.framesUnderWay >= framesUnderWayLimit) {
        return;
    }

    QSize size = m_thread.previewSize();
    const QSize largest = frame.size() * largestScale;
    if (size.width() >= largest.width() || size.height() >= largest.height()) {
        size = largest;
    }
    const QByteArray text = m_encoder.encode(frame, size);
    if (text.isEmpty()) {
        if (m_refusedSize != size) {
            qWarning() << "capture: no preview frames, a JPEG can't be made of size" << size;
        }
        m_refusedSize = size;
        return;
    }
    m_refusedSize = QSize();
    m_thread.pushFrame(text);
}

void CaptureImgThread::Loop::recoverFromFailure()
{
    QThread::msleep(ulong(d.waits.failedFrame.count()));
    if (m_failures <= failuresBeforeRestart) {
        return;
    }
    qDebug() << "capture error";
    bStopPlay();
    QThread::msleep(ulong(d.waits.restart.count()));
    if (const Start *start = findStart(&Start::camera, d.currentCamera)) {
        start->start(0);
    }
    m_failures = 0;
}

void CaptureImgThread::Loop::emitResult(const char *name, bool result)
{
    Q_EMIT m_thread.sig_msg(resultText(name, result));
}
