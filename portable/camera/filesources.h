// SPDX-License-Identifier: MIT
/// \file Sources that play picture and video files.
#pragma once

#include "base/clock.h"
#include "portable/camera/framesource.h"
#include "portable/video/videoreader.h"

#include <QStringList>

#include <memory>

namespace portable {

/// How picture files are played.
struct PlaybackSettings
{
    double framesPerSecond = 30; ///< Videos have their own.
    double secondsPerPicture = 5; ///< For folders.
};

/// A picture, or all pictures of a folder in the order of their names, repeated.
class PictureSource : public FrameSource
{
public:
    PictureSource(const QString &path, const PlaybackSettings &playback,
                  const base::Clock &clock = base::Clock::shared());

    QString name() const override { return m_path; }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    double framesPerSecond() const override { return m_playback.framesPerSecond; }
    std::vector<cv::Size> sizes() const override;

private:
    bool showNext(QString *error);

    const QString m_path;
    const PlaybackSettings m_playback;
    const base::Clock &m_clock;
    bool m_isFolder = false;
    QStringList m_pending; // not shown yet; when empty, the folder is listed again
    cv::Mat m_picture;
    base::Clock::TimePoint m_nextDue; // when the next picture is to be shown
};

/// A video file, played at its own rate in a loop.
class VideoSource : public FrameSource
{
public:
    explicit VideoSource(const QString &path);

    QString name() const override { return m_path; }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    double framesPerSecond() const override { return m_framesPerSecond; }
    std::vector<cv::Size> sizes() const override;

private:
    const QString m_path;
    std::unique_ptr<VideoReader> m_video; // while open
    double m_framesPerSecond = 25;
};

} // namespace portable
