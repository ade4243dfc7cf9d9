// SPDX-License-Identifier: MIT
#include "portable/camera/filesources.h"

#include "portable/base/failure.h"
#include "portable/picture/picturereader.h"

#include <QDir>
#include <QImageReader>

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
    m_video = VideoReader::open(m_path, error);
    if (!m_video) {
        return false;
    }
    const double rate = m_video->framesPerSecond();
    m_framesPerSecond = rate >= 1 && rate <= 120 ? rate : 25; // some files have none
    return true;
}

void VideoSource::close()
{
    m_video.reset();
}

bool VideoSource::read(cv::Mat &frame, QString *error)
{
    if (m_video && m_video->read(frame)) {
        return true;
    }
    // At the end. Reopening works with every container, seeking doesn't.
    if (!open({}, error)) {
        return false;
    }
    return m_video->read(frame)
        || setError(QStringLiteral("no frame of the video can be decoded here"), error);
}

std::vector<cv::Size> VideoSource::sizes() const
{
    QString unused;
    const auto video = VideoReader::open(m_path, &unused);
    const cv::Size size = video ? video->size() : cv::Size();
    return size.empty() ? std::vector<cv::Size>() : std::vector<cv::Size>{size};
}

} // namespace portable
