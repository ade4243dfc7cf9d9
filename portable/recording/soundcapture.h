// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/microphone.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace portable {

/// Between attempts to open a lost microphone.
constexpr std::chrono::milliseconds microphoneRetry{500};

/// How much sound is kept for a reader who comes late.
constexpr std::chrono::seconds soundKept{10};

/**
 * The sound of a microphone, for any number of readers. A thread of its own reads it; a microphone
 * that is lost is looked for until it is back. All functions may be called from any thread.
 */
class SoundCapture
{
public:
    /**
     * The capture of the microphone that devices.ini or chooseMicrophone() names. It is shared by
     * all who have it, and ends with the last.
     * \return null, with a reason for the log, when there is no microphone
     */
    static std::shared_ptr<SoundCapture> shared(QString *error);

    /// \return null, with a reason for the log, when the microphone can't be opened
    static std::shared_ptr<SoundCapture> start(MicrophoneOpener open, base::Clock &clock,
                                               QString *error);
    ~SoundCapture();
    SoundCapture(const SoundCapture &) = delete;
    SoundCapture &operator=(const SoundCapture &) = delete;

    QString name() const { return m_name; }

    /// Where a reader begins that wants what is captured from now on.
    quint64 end() const;

    /// What was captured since the reader's last call. \param position  set to the new end
    std::vector<Sound> take(quint64 &position) const;

    /// The loudest of the last block, 0 to 1.
    double level() const { return m_level; }

private:
    SoundCapture(MicrophoneOpener open, std::unique_ptr<Microphone> microphone, base::Clock &clock);
    void run();
    void listen();
    bool reopen();
    void add(Sound sound);
    bool isStopped() const;

    const MicrophoneOpener m_open;
    base::Clock &m_clock;
    std::unique_ptr<Microphone> m_microphone; // used by the thread
    const QString m_name;
    std::atomic<double> m_level{0};

    mutable std::mutex m_mutex;
    std::condition_variable m_stopped;
    std::deque<Sound> m_sounds; // guarded by m_mutex, like all below
    quint64 m_end = 0; // number of the sound after the last one
    bool m_stop = false;
    std::thread m_thread;
};

/// The sound of the microphone in force; null, with a reason for the log, when there is none.
using SoundOpener = std::function<std::shared_ptr<SoundCapture>(QString *error)>;

/// Which microphone SoundCapture::shared() opens; 0: that of devices.ini, else its number.
void chooseMicrophone(int number);

} // namespace portable
