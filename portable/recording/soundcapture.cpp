// SPDX-License-Identifier: MIT
#include "portable/recording/soundcapture.h"

#include "portable/base/deviceini.h"
#include "portable/base/failure.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace portable {

namespace {

std::atomic<int> chosenNumber{0};

std::unique_ptr<Microphone> openConfigured(QString *error)
{
    const int number = chosenNumber;
    const QString choice = number > 0 ? QString::number(number)
                                      : deviceSetting(QStringLiteral("recording/microphone"));
    if (choice == QLatin1String("none")) {
        setError(QStringLiteral("devices.ini says microphone=none"), error);
        return nullptr;
    }
    return Microphone::open(choice, error);
}

} // namespace

void chooseMicrophone(int number)
{
    chosenNumber = number;
}

std::shared_ptr<SoundCapture> SoundCapture::shared(QString *error)
{
    static std::mutex mutex;
    static std::weak_ptr<SoundCapture> current;
    const std::lock_guard<std::mutex> lock(mutex);
    auto capture = current.lock();
    if (!capture) {
        capture = start(openConfigured, base::Clock::shared(), error);
        current = capture;
    }
    return capture;
}

std::shared_ptr<SoundCapture> SoundCapture::start(MicrophoneOpener open, base::Clock &clock,
                                                  QString *error)
{
    auto microphone = open(error);
    if (!microphone) {
        return nullptr;
    }
    // The constructor is private.
    return std::shared_ptr<SoundCapture>(
        new SoundCapture(std::move(open), std::move(microphone), clock));
}

SoundCapture::SoundCapture(MicrophoneOpener open, std::unique_ptr<Microphone> microphone,
                           base::Clock &clock)
    : m_open(std::move(open))
    , m_clock(clock)
    , m_microphone(std::move(microphone))
    , m_name(m_microphone->name())
    , m_thread(&SoundCapture::run, this)
{
}

SoundCapture::~SoundCapture()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_stopped.notify_all();
    m_thread.join();
}

quint64 SoundCapture::end() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_end;
}

std::vector<Sound> SoundCapture::take(quint64 &position) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto count = std::min<quint64>(m_end - position, m_sounds.size());
    position = m_end;
    return {m_sounds.end() - std::ptrdiff_t(count), m_sounds.end()};
}

bool SoundCapture::isStopped() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stop;
}

void SoundCapture::run()
{
    try {
        listen();
    } catch (const std::exception &failure) { // no memory: silence from now on
        logWarning() << "microphone lost:" << m_name + QLatin1Char(':') << failure.what();
        m_level = 0;
    }
}

/// Until it is stopped.
void SoundCapture::listen()
{
    while (!isStopped()) {
        Sound sound;
        QString error;
        if (m_microphone->read(sound, &error)) {
            add(std::move(sound));
            continue;
        }
        logWarning() << "microphone lost:" << m_name + QLatin1Char(':') << error;
        m_level = 0;
        m_microphone.reset();
        if (!reopen()) {
            return;
        }
        logInfo() << "microphone is back:" << m_microphone->name();
    }
}

/// \return false when stopped
bool SoundCapture::reopen()
{
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (m_clock.waitFor(m_stopped, lock, microphoneRetry, [this] { return m_stop; })) {
                return false;
            }
        }
        QString ignored;
        m_microphone = m_open(&ignored);
        if (m_microphone) {
            return true;
        }
    }
}

void SoundCapture::add(Sound sound)
{
    if (sound.samples.empty()) {
        return;
    }
    int peak = 0;
    for (const qint16 sample : sound.samples) {
        peak = std::max(peak, std::abs(int(sample)));
    }
    m_level = double(peak) / 32768;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sounds.push_back(std::move(sound));
    ++m_end;
    while (m_sounds.front().capturedAt + soundKept < m_sounds.back().capturedAt) {
        m_sounds.pop_front();
    }
}

} // namespace portable
