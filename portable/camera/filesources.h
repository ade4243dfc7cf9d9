// SPDX-License-Identifier: MIT
/// \file Sources that show files: pictures and videos.
#pragma once

#include "portable/camera/framesource.h"
#include "portable/picture/framepool.h"

#include <QStringList>
#include <opencv2/videoio.hpp>

#include <chrono>

namespace portable {

/// How files are shown.
struct Playback
{
    double framesPerSecond = 30; ///< Of pictures; a video has its own.
    double secondsPerPicture = 5; ///< Of a folder.
};

/// One picture, or those of a folder one after the other in the order of their names.
class PictureSource : public FrameSource
{
public:
    PictureSource(const QString &path, const Playback &playback);

    QString name() const override { return m_path; }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    double framesPerSecond() const override { return m_playback.framesPerSecond; }
    std::vector<cv::Size> sizes() const override;

private:
    bool showNext(QString *error);

    const QString m_path;
    const Playback m_playback;
    bool m_isFolder = false;
    QStringList m_waiting; // pictures not shown yet; the folder is read again when there are none
    cv::Mat m_picture;
    std::chrono::steady_clock::time_point m_until; // when the next picture is due
};

/// A video file, shown at its own rate and again from its start when it ends.
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
    cv::VideoCapture m_video;
    double m_framesPerSecond = 25;
    FramePool m_pool;
};

} // namespace portable
