// SPDX-License-Identifier: MIT
/// \file A microphone for tests of the portable library, and what it captures.
#pragma once

#include "portable/video/microphone.h"

#include <QString>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

/// Silence with a click of 3 ms at each whole second.
inline portable::Samples clicks(double fromSecond, int count,
                                double samplesPerSecond = portable::soundRate)
{
    portable::Samples samples(std::size_t(count), 0);
    for (int i = 0; i < count; ++i) {
        const double time = fromSecond + i / samplesPerSecond;
        if (time - std::floor(time) < 0.003) {
            samples[std::size_t(i)] = i / 12 % 2 == 0 ? 20000 : -20000; // 2 kHz
        }
    }
    return samples;
}

/// The hardware behind a FakeMicrophone.
class FakeMicrophoneDevice
{
public:
    /// Returns when the reader has taken it and waits for more, or after ten seconds.
    void capture(portable::Sound sound)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_sounds.push_back(std::move(sound));
        m_changed.notify_all();
        m_changed.wait_for(lock, std::chrono::seconds(10),
                           [this] { return m_sounds.empty() && m_isRead; });
    }

    /// Opening and reading fail from now on, or work again.
    void plug(bool isThere)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isThere = isThere;
        m_changed.notify_all();
    }

    bool isThere() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_isThere;
    }

    bool next(portable::Sound &sound)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isRead = true;
        m_changed.notify_all();
        m_changed.wait_for(lock, std::chrono::milliseconds(20),
                           [this] { return !m_isThere || !m_sounds.empty(); });
        sound.samples.clear();
        if (m_isThere && !m_sounds.empty()) {
            sound = m_sounds.front();
            m_sounds.pop_front();
            m_isRead = false;
        }
        return m_isThere;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<portable::Sound> m_sounds;
    bool m_isThere = false;
    bool m_isRead = false; // what has been taken is with the reader
};

class FakeMicrophone : public portable::Microphone
{
public:
    static portable::MicrophoneOpener opener(std::shared_ptr<FakeMicrophoneDevice> device)
    {
        return [device](QString *error) -> std::unique_ptr<portable::Microphone> {
            *error = QStringLiteral("there is no microphone");
            return device->isThere() ? std::make_unique<FakeMicrophone>(device) : nullptr;
        };
    }

    explicit FakeMicrophone(std::shared_ptr<FakeMicrophoneDevice> device)
        : m_device(std::move(device))
    {
    }
    QString name() const override { return QStringLiteral("Fake"); }
    bool read(portable::Sound &sound, QString *error) override
    {
        *error = QStringLiteral("unplugged");
        return m_device->next(sound);
    }

private:
    const std::shared_ptr<FakeMicrophoneDevice> m_device;
};
