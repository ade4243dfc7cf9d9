// SPDX-License-Identifier: MIT
#pragma once

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

/// How a scanner waits; tests wait less.
struct ScannerTimes
{
    std::chrono::milliseconds look{100}; ///< Between two looks at the preview.
    std::chrono::milliseconds still{700}; ///< How long a page must lie still.
    std::chrono::milliseconds cameraChange = usualCameraChange;
};

/// Carries the numbers of shots to the observer; Qt takes care that it may die at any time.
class ShotSignal : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void shot(int number);
};

/// Where a scan puts its shots: <directory>/<prefix>001.jpg and so on.
struct ScanFiles
{
    QString directory; ///< Made when it is missing.
    QString prefix; ///< May be empty.
    QString extension = QStringLiteral("jpg"); ///< Or "png" or "tif" (with a JPEG inside).

    QString path(int number) const;
};

/**
 * Takes shots of the main preview by itself, from a thread of its own. One scan runs at a time: a
 * start ends the one before. It ends with the preview, but not for a change of cameras. A shot that
 * fails is told in the log, and its number goes to the next one. Everything is callable from any
 * thread.
 *
 * Starts return false, with one line in the log and no scan running, without a preview and when
 * the files can't be made.
 */
class Scanner
{
public:
    /// Takes one picture; empty, with a line in the log, when it can't.
    using Shoot = std::function<Shot()>;

    /// That of the library. Ends when Qt's app ends.
    static Scanner &instance();

    /// \param cameras  outlive the scanner
    Scanner(const CameraSet &cameras, Shoot shoot, ScannerTimes times = {});
    ~Scanner(); ///< As stop().
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    /**
     * Who hears of the shots of automatic scans, in place of the one before.
     * \param receiver  may be null: nobody. May be destroyed at any time, in its thread.
     * \param slot      as the macro SLOT writes it; called in the receiver's thread
     * \return false, with a line in the log, when there is no such slot; then nobody hears of them
     */
    bool observe(const QObject *receiver, const char *slot);

    /// A shot whenever something has moved and then lies still; the observer hears its number.
    bool startAutomatic(const ScanFiles &files);

    /**
     * A shot after each interval.
     * \param shots  after so many it ends; 0: never
     */
    bool startTimed(const ScanFiles &files, std::chrono::seconds interval, int shots);

    /// As startAutomatic, but nobody hears of it and a shot has as many files as the mode says.
    bool startBook(const ScanFiles &files, BookMode mode);

    /// Ends the scan, if there is one; a shot under way is finished before.
    void stop();

private:
    using Clock = std::chrono::steady_clock;
    struct Scan;

    Scan pageScan(const QString &name, const ScanFiles &files) const;
    bool start(Scan scan);
    void run(const Scan &scan);
    bool save(const Scan &scan, int number);
    bool sleep();
    void end();

    const CameraSet &m_cameras;
    const Shoot m_shoot;
    const ScannerTimes m_times;
    ShotSignal m_signal; // its connection is guarded by m_mutex, what it sends by Qt

    std::mutex m_changing; // held for a whole start or stop
    std::thread m_thread; // guarded by m_changing
    std::mutex m_mutex; // never held while something waits
    std::condition_variable m_stopped; // wakes the thread
    bool m_stop = false; // guarded by m_mutex
};

} // namespace portable
