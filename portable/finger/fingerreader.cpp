// SPDX-License-Identifier: MIT
#include "portable/finger/fingerreader.h"

#include "base/clock.h"
#include "portable/base/helperprogram.h"

#include <QStringList>
#include <fcntl.h>
#include <opencv2/imgproc.hpp>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace portable {

namespace {

constexpr int longestAnswer = 4 * 1024 * 1024;
constexpr int longestSide = 2000;
constexpr int usualDpi = 500; // of sensors, and what readFingerprint() expects
constexpr int lookPause = 50; // milliseconds

/// Both ends of a pipe, closed with the object.
struct Pipe
{
    Pipe()
    {
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    ~Pipe()
    {
        ::close(ends[0]);
        closeWriting();
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    void closeWriting()
    {
        if (ends[1] >= 0) {
            ::close(ends[1]);
        }
        ends[1] = -1;
    }

    int ends[2];
};

/// What the program writes until it ends. \return false if it was interrupted
bool readAnswer(int file, BackgroundJob::Clock::time_point deadline,
                const BackgroundJob::Stop &stop, QByteArray *answer)
{
    while (answer->size() <= longestAnswer) {
        if (stop.isRequested() || base::Clock::shared().now() >= deadline) {
            return false;
        }
        pollfd line{file, POLLIN, 0};
        if (::poll(&line, 1, lookPause) <= 0) {
            continue;
        }
        char bytes[16 * 1024];
        const ssize_t count = ::read(file, bytes, sizeof bytes);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return true;
        }
        answer->append(bytes, int(std::max<ssize_t>(count, 0)));
    }
    return true;
}

/// The picture of an answer "image WIDTH HEIGHT DPI", with its pixels in the bytes that follow.
cv::Mat pictureOf(const QStringList &words, const QByteArray &pixels)
{
    if (words.size() != 4) {
        return {};
    }
    const int width = words[1].toInt();
    const int height = words[2].toInt();
    const int dpi = words[3].toInt();
    if (width <= 0 || height <= 0 || width > longestSide || height > longestSide
        || pixels.size() != width * height) {
        return {};
    }
    cv::Mat picture = cv::Mat(height, width, CV_8U, const_cast<char *>(pixels.data())).clone();
    if (dpi > usualDpi / 4 && dpi < usualDpi * 4 && dpi != usualDpi) {
        const double scale = double(usualDpi) / dpi;
        cv::resize(picture, picture, {}, scale, scale,
                   scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    }
    return picture;
}

/// A line "waiting SENSOR", if the sensor could be opened, then one of "image ...", "none REASON",
/// "closed REASON" and "unreadable REASON".
SensorPicture parsed(QByteArray answer)
{
    using Outcome = SensorPicture::Outcome;
    const auto takeLine = [&answer] {
        const int end = answer.indexOf('\n');
        QString text = QString::fromUtf8(answer.left(end));
        answer.remove(0, end < 0 ? answer.size() : end + 1);
        return text;
    };
    QString line = takeLine();
    if (line.startsWith(QLatin1String("waiting "))) {
        line = takeLine();
    }
    const QString word = line.section(QLatin1Char(' '), 0, 0);
    const QString rest = line.section(QLatin1Char(' '), 1);
    if (word == QLatin1String("none")) {
        return {Outcome::NoSensor, {}, rest};
    }
    if (word == QLatin1String("unreadable")) {
        return {Outcome::Unreadable, {}, rest};
    }
    if (word == QLatin1String("image")) {
        const cv::Mat picture = pictureOf(line.split(QLatin1Char(' ')), answer);
        return picture.empty()
            ? SensorPicture{Outcome::Failed, {}, QStringLiteral("fingerworker's picture is broken")}
            : SensorPicture{Outcome::Picture, picture, {}};
    }
    return {Outcome::Failed,
            {},
            word == QLatin1String("closed")
                ? rest
                : QStringLiteral("fingerworker ended without an answer")};
}

} // namespace

SensorPicture readSensor(BackgroundJob::Clock::time_point deadline, const BackgroundJob::Stop &stop)
{
    try {
        Pipe pipe;
        HelperProgram worker("fingerworker", -1, pipe.ends[1]);
        pipe.closeWriting();
        QByteArray answer;
        if (readAnswer(pipe.ends[0], deadline, stop, &answer)) {
            return parsed(answer);
        }
        if (!answer.startsWith("waiting ")) {
            return {SensorPicture::Outcome::NoSensor, {}, QStringLiteral("none was found in time")};
        }
        return {SensorPicture::Outcome::NoFinger, {}, QStringLiteral("no finger came")};
    } catch (const std::runtime_error &error) { // the program isn't there
        return {SensorPicture::Outcome::NoSensor, {}, QString::fromLocal8Bit(error.what())};
    }
}

} // namespace portable
