// SPDX-License-Identifier: MIT
/// \file A camera for tests of the portable library.
#pragma once

#include "portable/camera/framesource.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

/// The hardware behind a FakeSource: a test plugs it in and out and releases its frames.
class FakeDevice
{
public:
    /// From now on frames come only by deliver(), until deliverFreely().
    void holdFrames()
    {
        change([this] { m_free = 0; });
    }
    void deliver(int frames)
    {
        change([=] { m_free += frames; });
    }
    void deliverFreely()
    {
        change([this] { m_free = -1; });
    }

    /// Fails with this reason from now on; with an empty one it works again.
    void fail(const QString &reason)
    {
        change([=] { m_failure = reason; });
    }

    /// The next read fails with this reason.
    void failOnce(const QString &reason)
    {
        change([=] { m_failureOnce = reason; });
    }

    /// Whether its frames can be left out, and how many have been.
    std::atomic<bool> canSkip{false};
    std::atomic<int> skipped{0};

    /// How old its frames are.
    std::atomic<std::chrono::milliseconds> age{std::chrono::milliseconds(0)};

    /// How many frames have been taken.
    int number() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_number;
    }

    std::vector<cv::Size> opened() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_opened;
    }

    bool open(const cv::Size &size, QString *error)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        *error = m_failure;
        if (!m_failure.isEmpty()) {
            return false;
        }
        m_opened.push_back(size);
        return true;
    }

    /// Number of the next frame, from 1; 0 on failure or when the test delivers none for 10 s.
    int next(QString *error)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(10), [this] {
            return m_free != 0 || !m_failure.isEmpty() || !m_failureOnce.isEmpty();
        });
        *error = m_failureOnce.isEmpty() ? m_failure : m_failureOnce;
        m_failureOnce.clear();
        if (m_free == 0 || !error->isEmpty()) {
            return 0;
        }
        if (m_free > 0) {
            --m_free;
        } else {
            m_changed.wait_for(lock, std::chrono::milliseconds(1)); // hardware takes time
        }
        return ++m_number;
    }

private:
    template <class Change> void change(Change apply)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            apply();
        }
        m_changed.notify_all();
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_free = -1; // frames that may come; -1: any number. Guarded by m_mutex, like all below
    int m_number = 0;
    QString m_failure;
    QString m_failureOnce;
    std::vector<cv::Size> m_opened; // size of each successful open
};

/// Frames of 40 x 30 (or the requested size) whose pixels are all their number modulo 256.
class FakeSource : public portable::FrameSource
{
public:
    explicit FakeSource(std::shared_ptr<FakeDevice> device, double framesPerSecond = 0)
        : m_device(std::move(device))
        , m_framesPerSecond(framesPerSecond)
    {
    }

    QString name() const override { return QStringLiteral("/dev/fake (Fake)"); }
    bool open(const cv::Size &wanted, QString *error) override
    {
        if (m_isOpen) {
            *error = QStringLiteral("it was not closed");
            return false;
        }
        m_size = sizeFor(wanted);
        m_isOpen = m_device->open(m_size, error);
        return m_isOpen;
    }
    void close() override { m_isOpen = false; }
    bool read(cv::Mat &frame, QString *error) override
    {
        const int number = m_isOpen ? m_device->next(error) : 0;
        frame = cv::Mat(m_size, CV_8UC3, cv::Scalar::all(number % 256));
        return number > 0;
    }
    base::Clock::Duration age() const override { return m_device->age.load(); }
    bool canSkip() const override { return m_device->canSkip; }
    bool skip(QString *error) override
    {
        const bool isThere = m_isOpen && m_device->next(error) > 0;
        m_device->skipped += isThere;
        return isThere;
    }
    double framesPerSecond() const override { return m_framesPerSecond; }
    std::vector<cv::Size> sizes() const override { return {{80, 60}, {40, 30}}; }
    cv::Size sizeFor(const cv::Size &wanted) const override
    {
        return wanted.empty() ? cv::Size(40, 30) : portable::chooseSize(sizes(), wanted);
    }

private:
    const std::shared_ptr<FakeDevice> m_device;
    const double m_framesPerSecond;
    cv::Size m_size;
    bool m_isOpen = false;
};
