// SPDX-License-Identifier: MIT
#include "portable/camera/filesources.h"

#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/picture/picturereader.h"

#include <QDir>
#include <QFile>
#include <QImageReader>

#include <limits>

namespace portable {

namespace {

/// The picture at `path`, or all pictures of that folder sorted by name.
QStringList pictures(const QString &path)
{
    const QDir folder(path);
    if (!folder.exists()) {
        return {path};
    }
    QStringList patterns;
    const QList<QByteArray> formats = QImageReader::supportedImageFormats();
    for (const QByteArray &format : formats) {
        patterns << QStringLiteral("*.") + QString::fromLatin1(format);
    }
    QStringList paths;
    const QStringList names = folder.entryList(patterns, QDir::Files, QDir::Name);
    for (const QString &name : names) {
        paths << folder.filePath(name);
    }
    return paths;
}

/// Why the file can't be read; empty when it can.
QString fileObstacle(const QString &path)
{
    QString error;
    RegularFile file;
    file.open(path, std::numeric_limits<qint64>::max(), &error);
    return error;
}

/// With FFmpeg only: OpenCV's other backends take file names for patterns and pipelines.
bool openVideo(cv::VideoCapture &video, const QString &path)
{
    return video.open(QFile::encodeName(path).toStdString(), cv::CAP_FFMPEG);
}

} // namespace

PictureSource::PictureSource(const QString &path, const PlaybackSettings &playback,
                             const base::Clock &clock)
    : m_path(path)
    , m_playback(playback)
    , m_clock(clock)
{
}

bool PictureSource::open(const cv::Size & /*wanted*/, QString *error)
{
    close();
    m_isFolder = QDir(m_path).exists();
    return showNext(error);
}

void PictureSource::close()
{
    m_pending.clear();
    m_picture.release();
}

/// Loads the next readable picture; the log names the others.
bool PictureSource::showNext(QString *error)
{
    if (m_pending.isEmpty()) {
        m_pending = pictures(m_path);
    }
    *error = QStringLiteral("it contains no picture");
    while (!m_pending.isEmpty()) {
        const QString file = m_pending.takeFirst();
        m_picture = readPicture(file, error);
        if (!m_picture.empty()) {
            m_nextDue = m_clock.now()
                + std::chrono::milliseconds(qint64(1000 * m_playback.secondsPerPicture));
            return true;
        }
        if (m_isFolder) {
            logFailure(QStringLiteral("skipped ") + file, *error);
        }
    }
    return false;
}

bool PictureSource::read(cv::Mat &frame, QString *error)
{
    if (m_isFolder && m_clock.now() >= m_nextDue && !showNext(error)) {
        return false;
    }
    frame = m_picture;
    return true;
}

std::vector<cv::Size> PictureSource::sizes() const
{
    const QStringList paths = pictures(m_path);
    const cv::Size size = paths.isEmpty() ? cv::Size() : pictureSize(paths.first());
    return size.empty() ? std::vector<cv::Size>() : std::vector<cv::Size>{size};
}

VideoSource::VideoSource(const QString &path)
    : m_path(path)
{
}

bool VideoSource::open(const cv::Size & /*wanted*/, QString *error)
{
    *error = fileObstacle(m_path);
    if (!error->isEmpty()) {
        return false;
    }
    if (!openVideo(m_video, m_path)) {
        *error = QStringLiteral("not a video that can be read here");
        return false;
    }
    const double rate = m_video.get(cv::CAP_PROP_FPS);
    m_framesPerSecond = rate >= 1 && rate <= 120 ? rate : 25; // some files have none
    return true;
}

void VideoSource::close()
{
    m_video.release();
    m_pool.clear();
}

bool VideoSource::read(cv::Mat &frame, QString *error)
{
    const cv::Size size(int(m_video.get(cv::CAP_PROP_FRAME_WIDTH)),
                        int(m_video.get(cv::CAP_PROP_FRAME_HEIGHT)));
    frame = m_pool.take(size);
    if (m_video.read(frame)) {
        return true;
    }
    // At the end. Reopening works with every container, seeking doesn't.
    if (!open({}, error)) {
        return false;
    }
    if (m_video.read(frame)) {
        return true;
    }
    *error = QStringLiteral("no frame of the video can be decoded here");
    return false;
}

std::vector<cv::Size> VideoSource::sizes() const
{
    cv::VideoCapture video;
    openVideo(video, m_path);
    const cv::Size size(int(video.get(cv::CAP_PROP_FRAME_WIDTH)),
                        int(video.get(cv::CAP_PROP_FRAME_HEIGHT)));
    return size.empty() ? std::vector<cv::Size>() : std::vector<cv::Size>{size};
}

} // namespace portable
