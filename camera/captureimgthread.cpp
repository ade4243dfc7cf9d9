// SPDX-License-Identifier: MIT
#include "camera/captureimgthread.h"

#include "base/shortturns.h"
#include "camera/frameencoder.h"
#include "devicelib/doccamera.h"
#include "dispatch/deviceguard.h"
#include "dispatch/messagerun.h"

#include <QDebug>
#include <QImage>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <limits>
#include <list>
#include <mutex>

using namespace std::chrono_literals;

namespace {

constexpr auto passWait = 20ms; // for an operation, at the start of each pass
constexpr auto secondTryWait = 500ms;
constexpr auto thirdTryWait = 1000ms;
constexpr auto failedFrameWait = 1000ms;
constexpr auto restartWait = 3000ms; // between stop and start

constexpr QSize originalPreviewSize{800, 600};
constexpr QSize minPreviewSize{400, 300};
constexpr double originalZoomFactor = 0.1;
constexpr int noCamera = -1;
constexpr int failuresBeforeRestart = 5; // the next one restarts the camera
constexpr int maxQueuedFrames = 2;
constexpr int maxScale = 10; // frames are not enlarged beyond this
constexpr auto longestInterval = 2s; // between frames of a preview that runs

enum class Rotation { None, AsSet };

/**
 * How each camera is started. Pages rely on the irregular entries: camera 5 is stored as 3, the
 * third try of cameras 5 and above ignores the rotation, and the reply for a dual camera that is
 * already open has another name.
 */
struct Start
{
    int code; // of openCamera
    enumCameraOPeration operation;
    int camera; // already open when this one is current
    int stored; // what becomes current
    bool (*start)(short rotation);
    Rotation firstTries;
    Rotation lastTry;
    const char *name;
    const char *nameWhenOpen;
};

bool startDualCamera(short)
{
    return bStartPlayOpen();
}

// clang-format off
constexpr Start starts[] = {
    // code  operation      camera stored start          tries 1, 2       try 3            reply name          already open
    { 1, OpStartPlay,        1,  1, bStartPlay,      Rotation::AsSet, Rotation::AsSet, "bStartPlay",       "bStartPlay"},
    {11, OpStartPlayRotate,  1,  1, bStartPlay,      Rotation::AsSet, Rotation::AsSet, "bStartPlayRotate", "bStartPlayRotate"},
    { 2, OpStartPlay2,       2,  2, bStartPlay2,     Rotation::None,  Rotation::None,  "bStartPlay2",      "bStartPlay2"},
    { 3, OpStartPlay3,       3,  3, bStartPlay3,     Rotation::None,  Rotation::None,  "bStartPlay3",      "bStartPlay3"},
    { 5, OpStartPlay5,       5,  3, bStartPlay5,     Rotation::AsSet, Rotation::None,  "bStartPlay5",      "bStartPlay5"},
    { 6, OpStartPlay6,       6,  6, bStartPlay6,     Rotation::AsSet, Rotation::None,  "bStartPlay6",      "bStartPlay6"},
    { 8, OpStartPlay8,       8,  8, bStartPlay8,     Rotation::AsSet, Rotation::None,  "bStartPlay8",      "bStartPlay8"},
    { 9, OpStartPlay9,       9,  9, bStartPlay9,     Rotation::AsSet, Rotation::None,  "bStartPlay9",      "bStartPlay9"},
    {25, OpStartPlayOpen,   25, 25, startDualCamera, Rotation::None,  Rotation::None,  "bStartPlayOpen",   "bDualCameraOpen"},
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

bool stopPlay()
{
    return guarded(QStringLiteral("bStopPlay"), false, [] { return ::bStopPlay(); });
}

int truncated(double value)
{
    using Limits = std::numeric_limits<int>;
    return int(std::clamp<double>(value, Limits::min(), Limits::max()));
}

/// A running mean, written by one thread and read by any.
class Mean
{
public:
    void add(base::Clock::Duration duration)
    {
        const qint64 before = m_nanoseconds.load(std::memory_order_relaxed);
        const qint64 now = std::chrono::nanoseconds(duration).count();
        m_nanoseconds.store(before == 0 ? now : before + (now - before) / 16,
                            std::memory_order_relaxed);
    }
    void forget() { m_nanoseconds.store(0, std::memory_order_relaxed); }
    std::chrono::nanoseconds value() const
    {
        return std::chrono::nanoseconds(m_nanoseconds.load(std::memory_order_relaxed));
    }

private:
    std::atomic<qint64> m_nanoseconds{0};
};

void count(std::atomic<quint64> &counter)
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

struct CaptureImgThread::Record
{
    explicit Record(base::Clock &someClock)
        : clock(someClock)
    {
    }

    QSize previewSizeChangedBy(double factor) const
    {
        const int width = previewWidth;
        const int height = previewHeight;
        return {truncated(width + width * factor), truncated(height + height * factor)};
    }

    /// In ns of the clock.
    qint64 now() const { return std::chrono::nanoseconds(clock.now().time_since_epoch()).count(); }

    base::Clock &clock;

    std::mutex mutex;
    std::condition_variable wake;
    bool running = true; // guarded by mutex
    std::atomic<int> currentCamera{noCamera}; // written under mutex only
    std::list<enumCameraOPeration> queue; // guarded by mutex

    // The pause has its own lock: setPause() must not wait for a pass to end.
    std::mutex pauseMutex;
    std::condition_variable pauseWake;
    bool paused = false; // guarded by pauseMutex
    bool ending = false; // guarded by pauseMutex

    std::atomic<double> zoomFactor{originalZoomFactor};
    std::atomic<int> previewWidth{originalPreviewSize.width()};
    std::atomic<int> previewHeight{originalPreviewSize.height()};
    std::atomic<bool> previewEnabled{true};

    std::atomic<int> queuedFrames{0};
    std::mutex timesMutex;
    std::deque<base::Clock::TimePoint> fetchTimes; // of the queued frames

    // For figures() alone; relaxed, since nothing depends on their order.
    std::atomic<quint64> fetched{0};
    std::atomic<quint64> pushed{0};
    std::atomic<quint64> dropped{0};
    std::atomic<quint64> failed{0};
    Mean fetching;
    Mean encoding;
    Mean interval; // between frames of the device
    std::atomic<qint64> lastFrame{0}; // ns of the clock; 0: none yet
    std::atomic<qint64> waitingSince{0}; // ns of the clock; for the next frame
};

/// The thread's loop and the state that only the thread uses.
class CaptureImgThread::Loop
{
public:
    explicit Loop(CaptureImgThread &thread)
        : m_thread(thread)
        , d(*thread.d)
    {
    }

    /// Runs one pass. \return false when the thread is to end
    bool pass();

private:
    void waitWhilePaused();
    void perform(enumCameraOPeration operation);
    void close();
    void open(const Start &start);
    bool tryThreeTimes(const Start &start);
    void fetchFrame();
    void noteFetched(base::Clock::TimePoint started);
    void push(const QImage &frame, base::Clock::TimePoint fetched);
    void recoverFromFailure();
    void emitResult(const char *name, bool result);

    CaptureImgThread &m_thread;
    Record &d;
    FrameEncoder m_encoder;
    int m_failures = 0; // frames in a row
    QSize m_refusedSize; // already logged
};

CaptureImgThread *CaptureImgThread::instance()
{
    static CaptureImgThread thread;
    return &thread;
}

CaptureImgThread::CaptureImgThread(base::Clock &clock)
    : d(new Record(clock))
{
    setObjectName(QStringLiteral("capture"));
    connect(
        this, &CaptureImgThread::frameEmitted, this,
        [this] {
            const std::lock_guard<std::mutex> lock(d->timesMutex);
            d->fetchTimes.pop_front();
            --d->queuedFrames;
        },
        Qt::QueuedConnection);
    start();
}

CaptureImgThread::~CaptureImgThread()
{
    destory();
    wait();
    // Shows the thread sanitizer, which does not know QThread::wait, that the thread has ended.
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
        qWarning() << "capture: no camera has code" << code;
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
    if (d->paused && !pause) {
        d->waitingSince = d->now();
    }
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
    d->previewWidth = qMax(width, minPreviewSize.width());
    d->previewHeight = qMax(height, minPreviewSize.height());
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

CaptureImgThread::Figures CaptureImgThread::figures() const
{
    Figures figures;
    figures.camera = std::max(0, d->currentCamera.load());
    {
        const std::lock_guard<std::mutex> lock(d->pauseMutex);
        figures.isPaused = d->paused;
    }
    figures.fetched = d->fetched;
    figures.pushed = d->pushed;
    figures.dropped = d->dropped;
    figures.failed = d->failed;
    figures.queued = d->queuedFrames;
    figures.fetching = d->fetching.value();
    figures.encoding = d->encoding.value();
    const std::chrono::nanoseconds now = d->clock.now().time_since_epoch();
    const auto interval = d->interval.value().count();
    const std::chrono::nanoseconds last(d->lastFrame);
    if (interval > 0 && now - last < longestInterval) {
        figures.framesPerSecond = 1e9 / double(interval);
    }
    if (figures.camera > 0 && !figures.isPaused) {
        figures.waiting = now - std::chrono::nanoseconds(d->waitingSince);
    }
    return figures;
}

base::Clock::TimePoint CaptureImgThread::fetchTimeOfFrame() const
{
    const std::lock_guard<std::mutex> lock(d->timesMutex);
    return d->fetchTimes.empty() ? base::Clock::TimePoint() : d->fetchTimes.front();
}

void CaptureImgThread::pushFrame(const QByteArray &text, base::Clock::TimePoint fetched)
{
    if (d->queuedFrames >= maxQueuedFrames) {
        count(d->dropped);
        return;
    }
    count(d->pushed);
    {
        const std::lock_guard<std::mutex> lock(d->timesMutex);
        d->fetchTimes.push_back(fetched);
    }
    ++d->queuedFrames;
    Q_EMIT sig_frame(text);
    Q_EMIT frameEmitted(QPrivateSignal());
}

void CaptureImgThread::run()
{
    base::takeShortTurns(base::ShortTurns::OfThisThread); // others wait during a compression
    Loop loop(*this);
    while (loop.pass()) { }
}

bool CaptureImgThread::Loop::pass()
{
    waitWhilePaused();
    std::unique_lock<std::mutex> lock(d.mutex);
    if (d.running && d.currentCamera > 0) {
        d.clock.waitFor(d.wake, lock, passWait);
    } else {
        // Until there is an operation: a terminal at rest is not woken for nothing.
        d.wake.wait(lock, [this] { return !d.running || !d.queue.empty(); });
        lock.unlock();
        waitWhilePaused(); // it may have been paused meanwhile
        lock.lock();
    }
    if (!d.running) {
        return false;
    }
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
    emitResult("bStopPlay", stopPlay());
}

void CaptureImgThread::Loop::open(const Start &start)
{
    if (d.currentCamera == start.camera) {
        emitResult(start.nameWhenOpen, true);
        return;
    }
    if (d.currentCamera > 0) {
        stopPlay();
    }
    const bool started = tryThreeTimes(start);
    if (started) {
        d.waitingSince = d.now();
        d.currentCamera = start.stored;
    }
    emitResult(start.name, started);
}

bool CaptureImgThread::Loop::tryThreeTimes(const Start &start)
{
    const auto attempt = [&start](Rotation rotation) {
        return guarded(QLatin1String(start.name), false, [&start, rotation] {
            return start.start(rotation == Rotation::AsSet ? iGetRotate() : short{0});
        });
    };
    if (attempt(start.firstTries)) {
        return true;
    }
    stopPlay();
    d.clock.sleepFor(secondTryWait);
    if (attempt(start.firstTries)) {
        return true;
    }
    stopPlay();
    d.clock.sleepFor(thirdTryWait);
    return attempt(start.lastTry);
}

void CaptureImgThread::Loop::fetchFrame()
{
    QImage frame;
    const auto started = d.clock.now();
    const bool isFetched =
        guarded(QStringLiteral("getVideoFrame"), false, [&frame] { return getVideoFrame(frame); });
    if (isFetched && !frame.isNull()) {
        noteFetched(started);
    }
    if (!isFetched || frame.isNull()) {
        ++m_failures;
        count(d.failed);
        recoverFromFailure();
    } else if (d.previewEnabled) {
        const auto fetched = d.clock.now();
        guarded(QStringLiteral("getVideoFrame"), false, [this, &frame, fetched] {
            push(frame, fetched); // out of memory, at worst
            return true;
        });
        m_failures = 0;
    } else if (m_failures > 0) {
        // A frame that is not pushed does not end a row of failures.
        recoverFromFailure();
    }
}

void CaptureImgThread::Loop::noteFetched(base::Clock::TimePoint started)
{
    const auto now = d.clock.now();
    count(d.fetched);
    d.fetching.add(now - started);
    const std::chrono::nanoseconds time = now.time_since_epoch();
    const std::chrono::nanoseconds last(d.lastFrame.load(std::memory_order_relaxed));
    if (last.count() == 0 || time - last > longestInterval) {
        d.interval.forget(); // another preview has begun
    } else {
        d.interval.add(std::chrono::duration_cast<base::Clock::Duration>(time - last));
    }
    d.lastFrame.store(time.count(), std::memory_order_relaxed);
    d.waitingSince.store(time.count(), std::memory_order_relaxed);
}

void CaptureImgThread::Loop::push(const QImage &frame, base::Clock::TimePoint fetched)
{
    // The main thread is busy: don't encode a frame that would be dropped.
    if (d.queuedFrames >= maxQueuedFrames) {
        count(d.dropped);
        return;
    }

    QSize size = m_thread.previewSize();
    const QSize maxSize = frame.size() * maxScale;
    if (size.width() >= maxSize.width() || size.height() >= maxSize.height()) {
        size = maxSize;
    }
    const auto started = d.clock.now();
    const QByteArray text = m_encoder.encode(frame, size);
    d.encoding.add(d.clock.now() - started);
    if (text.isEmpty()) {
        if (m_refusedSize != size) {
            qWarning() << "capture: no preview frames: cannot encode a JPEG of size" << size;
        }
        m_refusedSize = size;
        return;
    }
    m_refusedSize = QSize();
    m_thread.pushFrame(text, fetched);
}

void CaptureImgThread::Loop::recoverFromFailure()
{
    d.clock.sleepFor(failedFrameWait);
    if (m_failures <= failuresBeforeRestart) {
        return;
    }
    qDebug() << "capture error";
    stopPlay();
    d.clock.sleepFor(restartWait);
    if (const Start *start = findStart(&Start::camera, d.currentCamera.load())) {
        guarded(QLatin1String(start->name), false, [start] { return start->start(0); });
    }
    m_failures = 0;
}

void CaptureImgThread::Loop::emitResult(const char *name, bool result)
{
    Q_EMIT m_thread.sig_msg(resultText(name, result));
}
