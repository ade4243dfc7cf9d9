// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/camera/previewwatch.h"
#include "portable/camera/shot.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace portable {

/// How often a scanner checks the preview.
constexpr std::chrono::milliseconds scanInterval{100};

/// How long nothing may move before an automatic or book scan takes a shot.
constexpr std::chrono::milliseconds stillPeriod{700};

/// Reports shots to the observer; being a Qt connection, it allows for its destruction at any time.
class ShotSignal : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void shot(int number);
};

/// File names of a scan's shots: <directory>/<prefix>001.jpg and so on.
struct ScanFiles
{
    QString directory; ///< Created when missing.
    QString prefix; ///< May be empty.
    QString extension = QStringLiteral("jpg"); ///< Or "png" or "tif" (with a JPEG inside).

    QString path(int number) const;
};

/**
 * Takes shots of the main preview automatically, on a thread of its own. One scan runs at a time:
 * starting another ends it. A switch of cameras doesn't interrupt it; the end of the preview ends
 * it. A failed shot is logged, and its number is used for the next one. Everything may be called
 * from any thread.
 *
 * Starts return false, with one line in the log and no scan running, without a preview or when the
 * files can't be created.
 */
class Scanner
{
public:
    /// Takes one picture; empty, with a line in the log, when it can't.
    using Shoot = std::function<Shot()>;

    /// The library's scanner. A scan ends when Qt's application ends.
    static Scanner &instance();

    /// \param cameras  must outlive the scanner, like the clock
    Scanner(const CameraSet &cameras, Shoot shoot, base::Clock &clock = base::Clock::shared());
    ~Scanner(); ///< Calls stop().
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    /**
     * Sets the receiver of automatic-scan events, replacing the previous one.
     * \param receiver  null for none; may be destroyed at any time, in its thread
     * \param slot      as written by the macro SLOT; called in the receiver's thread with the
     * number of each shot \return false, with a line in the log, when there is no such slot; then
     * there is no receiver
     */
    bool observe(const QObject *receiver, const char *slot);

    /// A shot whenever something has moved and then lain still; the receiver gets its number.
    bool startAutomatic(const ScanFiles &files);

    /**
     * A shot after each interval.
     * \param shots  number after which the scan ends; 0: none
     */
    bool startTimed(const ScanFiles &files, std::chrono::seconds interval, int shots);

    /// Like startAutomatic(), but without events, and with one or two files per shot (see
    /// BookMode).
    bool startBook(const ScanFiles &files, BookMode mode);

    /// Ends the scan, if any, after finishing a shot in progress.
    void stop();

private:
    struct Scan;

    Scan motionScan(const QString &name, const ScanFiles &files) const;
    bool start(Scan scan);
    void run(const Scan &scan);
    bool save(const Scan &scan, int number);
    bool sleep();
    void end();

    const CameraSet &m_cameras;
    const Shoot m_shoot;
    base::Clock &m_clock;
    ShotSignal m_signal; // its connection is guarded by m_mutex, emitting by Qt

    std::mutex m_changing; // held throughout a start or stop
    std::thread m_thread; // guarded by m_changing
    std::mutex m_mutex; // never held while waiting
    std::condition_variable m_stopped; // wakes the thread
    bool m_stop = false; // guarded by m_mutex
};

} // namespace portable
