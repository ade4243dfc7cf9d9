// SPDX-License-Identifier: MIT
// The portable library's V4L2 code. The devices are FIFOs whose ioctls this program answers.
#include "portable/camera/capturebutton.h"
#include "portable/camera/v4l2controls.h"
#include "portable/camera/v4l2devices.h"
#include "portable/camera/v4l2source.h"
#include "tests/portabletest.h"

#include <QBuffer>
#include <QImageWriter>
#include <QRandomGenerator>
#include <QtTest>
#include <fcntl.h>
#include <linux/input.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <map>
#include <set>

using namespace portable;

namespace {

struct FakeControl
{
    int minimum, maximum, step, defaultValue, value;
    unsigned flags = 0;
    unsigned type = V4L2_CTRL_TYPE_INTEGER;
    const char *name = "";
};

struct FakeFormat
{
    unsigned pixelFormat;
    std::vector<cv::Size> sizes; ///< Of a range: smallest, largest, step.
    bool isRange = false;
};

/// What becomes of one buffer.
struct FakeFrame
{
    QByteArray bytes;
    unsigned flags = 0;
    int surplus = 0; ///< That many bytes more than the buffer has are claimed.
    int error = 0; ///< Of dequeuing it; 0: none.
    unsigned wrongIndex = 0; ///< Is added.
};

constexpr unsigned bufferLength = 65536;

unsigned codeOf(const QString &text) // "YUYV"
{
    const QByteArray bytes = text.toLatin1();
    return v4l2_fourcc(unsigned(bytes[0]), unsigned(bytes[1]), unsigned(bytes[2]),
                       unsigned(bytes[3]));
}

QString textOf(unsigned code)
{
    return QString::fromLatin1(reinterpret_cast<const char *>(&code), 4);
}

/// A V4L2 driver behind one node.
struct FakeDriver
{
    QByteArray name;
    unsigned capabilities = V4L2_CAP_VIDEO_CAPTURE;
    std::vector<FakeFormat> formats;
    std::map<unsigned, FakeControl> controls;
    int streamError = 0; ///< Of setting the format; 0: none.
    QStringList changes; ///< "control=value"
    std::vector<int> keys; ///< Of an input device.

    unsigned answeredCode = 0; ///< To any format asked for; 0: the same.
    cv::Size answeredSize{-1, -1}; ///< So: the one asked for.
    unsigned bytesPerLine = 0;
    unsigned length = bufferLength;
    std::deque<std::vector<FakeFrame>> ready; ///< What each wait finds; nothing: its end.
    std::vector<unsigned> queued;
    bool isGone = false; ///< At the end of what is ready.
    bool streams = false;
    QString path;
    std::set<unsigned> subscribed; ///< Controls.

    int wait(pollfd *wait, int milliseconds)
    {
        changes << line("wait=") + QString::number(qRound(milliseconds / 1000.0));
        if (!isBegun && !ready.empty()) {
            isBegun = true;
        } else if (!ready.empty()) {
            ready.pop_front();
        }
        wait->revents = short(!ready.empty() ? POLLIN : isGone ? POLLERR : 0);
        return wait->revents != 0 ? 1 : 0;
    }

    /// \return 0 or an errno
    int answer(unsigned long request, void *argument)
    {
        switch (request) {
        case EVIOCGBIT(EV_KEY, KEY_MAX / 8 + 1):
            for (const int key : keys) {
                static_cast<uchar *>(argument)[key / 8] |= uchar(1 << key % 8);
            }
            return 0;
        case VIDIOC_QUERYCAP:
            return describe(static_cast<v4l2_capability *>(argument));
        case VIDIOC_ENUM_FMT:
            return enumerate(static_cast<v4l2_fmtdesc *>(argument));
        case VIDIOC_ENUM_FRAMESIZES:
            return enumerate(static_cast<v4l2_frmsizeenum *>(argument));
        case VIDIOC_G_FMT:
        case VIDIOC_S_FMT:
            return access(static_cast<v4l2_format *>(argument), request == VIDIOC_S_FMT);
        case VIDIOC_QUERYCTRL:
            return query(static_cast<v4l2_queryctrl *>(argument));
        case VIDIOC_G_CTRL:
        case VIDIOC_S_CTRL:
            return access(static_cast<v4l2_control *>(argument), request == VIDIOC_S_CTRL);
        case VIDIOC_SUBSCRIBE_EVENT:
            subscribed.insert(static_cast<v4l2_event_subscription *>(argument)->id);
            return 0;
        case VIDIOC_G_PARM:
            static_cast<v4l2_streamparm *>(argument)->parm.capture.capability =
                V4L2_CAP_TIMEPERFRAME;
            return 0;
        case VIDIOC_S_PARM: {
            const auto &time = static_cast<v4l2_streamparm *>(argument)->parm.capture.timeperframe;
            changes << QStringLiteral("rate=%1/%2").arg(time.denominator).arg(time.numerator);
            return 0;
        }
        case VIDIOC_REQBUFS:
            static_cast<v4l2_requestbuffers *>(argument)->count = buffers;
            return 0;
        case VIDIOC_QUERYBUF: {
            auto *buffer = static_cast<v4l2_buffer *>(argument);
            buffer->length = length;
            buffer->m.offset = buffer->index * bufferLength;
            return 0;
        }
        case VIDIOC_QBUF:
            queued.push_back(static_cast<v4l2_buffer *>(argument)->index);
            return 0;
        case VIDIOC_DQBUF:
            return dequeue(static_cast<v4l2_buffer *>(argument));
        case VIDIOC_STREAMON:
        case VIDIOC_STREAMOFF:
            streams = request == VIDIOC_STREAMON;
            return 0;
        default:
            return ENOTTY;
        }
    }

    static constexpr unsigned buffers = 3;

private:
    bool isBegun = false;

    int dequeue(v4l2_buffer *buffer)
    {
        if (ready.empty() || ready.front().empty() || queued.empty()) {
            return EAGAIN;
        }
        const FakeFrame frame = ready.front().front();
        ready.front().erase(ready.front().begin());
        if (frame.error != 0) {
            return frame.error;
        }
        const unsigned index = queued.front();
        queued.erase(queued.begin());
        QFile file(path);
        file.open(QIODevice::ReadWrite);
        file.seek(index * bufferLength);
        file.write(frame.bytes);
        buffer->index = index + frame.wrongIndex;
        buffer->flags = frame.flags;
        buffer->bytesused =
            frame.surplus > 0 ? length + unsigned(frame.surplus) : unsigned(frame.bytes.size());
        return 0;
    }

    int describe(v4l2_capability *capability) const
    {
        std::strcpy(reinterpret_cast<char *>(capability->card), name.constData());
        std::strcpy(reinterpret_cast<char *>(capability->bus_info), "usb-1");
        capability->capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_META_CAPTURE;
        capability->device_caps = capabilities;
        return 0;
    }

    int enumerate(v4l2_fmtdesc *format) const
    {
        if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || format->index >= formats.size()) {
            return EINVAL;
        }
        format->pixelformat = formats[format->index].pixelFormat;
        return 0;
    }

    int enumerate(v4l2_frmsizeenum *size) const
    {
        for (const FakeFormat &format : formats) {
            if (format.pixelFormat != size->pixel_format || size->index >= format.sizes.size()) {
                continue;
            }
            const auto side = [](int value) { return __u32(value); };
            if (format.isRange) {
                const auto &s = format.sizes;
                size->type = V4L2_FRMSIZE_TYPE_STEPWISE;
                size->stepwise = {side(s[0].width),  side(s[1].width),  side(s[2].width),
                                  side(s[0].height), side(s[1].height), side(s[2].height)};
            } else {
                size->type = V4L2_FRMSIZE_TYPE_DISCRETE;
                size->discrete = {side(format.sizes[size->index].width),
                                  side(format.sizes[size->index].height)};
            }
            return 0;
        }
        return EINVAL;
    }

    int query(v4l2_queryctrl *query) const
    {
        const unsigned id = query->id & V4L2_CTRL_ID_MASK;
        const bool isNext = id != query->id;
        const auto found = isNext ? controls.upper_bound(id) : controls.find(id);
        if (found == controls.end()) {
            return EINVAL;
        }
        query->id = found->first;
        query->type = found->second.type;
        std::strcpy(reinterpret_cast<char *>(query->name), found->second.name);
        query->minimum = found->second.minimum;
        query->maximum = found->second.maximum;
        query->step = found->second.step;
        query->default_value = found->second.defaultValue;
        query->flags = found->second.flags;
        return 0;
    }

    int access(v4l2_format *format, bool isSet)
    {
        if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
            return EINVAL;
        }
        if (!isSet || streamError != 0) {
            format->fmt.pix.width = 64;
            format->fmt.pix.height = 48;
            return isSet ? streamError : 0;
        }
        v4l2_pix_format &pix = format->fmt.pix;
        if (streams) {
            return EBUSY;
        }
        if (pix.pixelformat != 0) { // 0: the current one
            changes << QStringLiteral("%1 %2x%3")
                           .arg(textOf(pix.pixelformat))
                           .arg(pix.width)
                           .arg(pix.height);
        }
        pix.pixelformat = answeredCode != 0 ? answeredCode : pix.pixelformat;
        if (answeredSize != cv::Size(-1, -1)) {
            pix.width = unsigned(answeredSize.width);
            pix.height = unsigned(answeredSize.height);
        }
        pix.bytesperline = bytesPerLine;
        return 0;
    }

    int access(v4l2_control *control, bool isSet)
    {
        const auto found = controls.find(control->id);
        if (found == controls.end()) {
            return EINVAL;
        }
        FakeControl &fake = found->second;
        if (!isSet) {
            control->value = fake.value;
            return 0;
        }
        if (control->value < fake.minimum || control->value > fake.maximum) {
            return ERANGE;
        }
        fake.value = control->value;
        changes << shortName(control->id) + QLatin1Char('=') + QString::number(control->value);
        return 0;
    }

    static QString shortName(unsigned id)
    {
        const std::map<unsigned, const char *> names{{V4L2_CID_BRIGHTNESS, "brightness"},
                                                     {V4L2_CID_CONTRAST, "contrast"},
                                                     {V4L2_CID_EXPOSURE, "gain"},
                                                     {V4L2_CID_EXPOSURE_AUTO, "mode"},
                                                     {V4L2_CID_EXPOSURE_ABSOLUTE, "exposure"},
                                                     {V4L2_CID_AUTO_FOCUS_START, "focus"},
                                                     {V4L2_CID_FOCUS_AUTO, "autofocus"}};
        return line(names.at(id));
    }
};

std::map<QString, FakeDriver> drivers; // by path
int interruptions = 0; // that many calls are interrupted by a signal

FakeDriver *driverOf(int file)
{
    const auto driver =
        drivers.find(QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(file)));
    return driver == drivers.end() ? nullptr : &driver->second;
}

constexpr int width = 64;
constexpr int height = 48;

/// A JPEG whose pixels are about this grey.
QByteArray jpegOf(int grey, const QSize &size = {width, height}, bool isProgressive = false)
{
    QImage image(size, QImage::Format_Grayscale8);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            image.scanLine(y)[x] = uchar(grey - 9 + QRandomGenerator::global()->bounded(19));
        }
    }
    QBuffer file;
    QImageWriter writer(&file, "jpg");
    writer.setProgressiveScanWrite(isProgressive);
    writer.write(image.convertToFormat(QImage::Format_RGB32));
    return file.data();
}

/// As cameras send it: without the usual Huffman tables.
QByteArray withoutTables(QByteArray jpeg)
{
    for (int at; (at = jpeg.indexOf("\xff\xc4")) >= 0;) {
        jpeg.remove(at, 2 + uchar(jpeg[at + 2]) * 256 + uchar(jpeg[at + 3]));
    }
    return jpeg;
}

/// "30", a frame of that grey; more letters, what is wrong with it.
FakeFrame frameOf(const QString &text)
{
    const QString fault = QString(text).remove(QRegularExpression(line("[0-9]")));
    const QByteArray whole = jpegOf(text.left(text.size() - fault.size()).toInt());
    const QByteArray part = whole.left(whole.size() * 9 / 10);
    const std::map<QString, FakeFrame> frames{
        {QString(), {whole}},
        {line("tables"), {withoutTables(whole)}},
        {line("padded"), {whole + QByteArray(5000, '\0')}},
        {line("short"), {part}},
        {line("flawed"), {part + "\xff\xd9"}},
        {line("garbage"), {QByteArray(3000, 'x')}},
        {line("progressive"), {jpegOf(90, {width, height}, true)}},
        {line("larger"), {jpegOf(90, {width + 16, height})}},
        {line("empty"), {}},
        {line("error"), {whole, V4L2_BUF_FLAG_ERROR}},
        {line("surplus"), {whole, 0, 1}},
        {line("eio"), {{}, 0, 0, EIO}},
        {line("again"), {{}, 0, 0, EAGAIN}},
        {line("gone"), {{}, 0, 0, ENODEV}},
        {line("index"), {whole, 0, 0, 0, 1000}},
    };
    return frames.at(fault);
}

/// The color of a test picture at a place: a different one in each of its quarters.
cv::Vec3b quarter(int x, int y) // Y, U, V
{
    const cv::Vec3b colors[] = {{60, 100, 180}, {200, 128, 128}, {120, 200, 90}, {90, 60, 140}};
    return colors[(x * 2 / width) + 2 * (y * 2 / height)];
}

cv::Vec3b bgr(const cv::Vec3b &yuv) // BT.601
{
    const double y = 1.164 * (yuv[0] - 16);
    const double u = yuv[1] - 128;
    const double v = yuv[2] - 128;
    return {cv::saturate_cast<uchar>(y + 2.018 * u),
            cv::saturate_cast<uchar>(y - 0.391 * u - 0.813 * v),
            cv::saturate_cast<uchar>(y + 1.596 * v)};
}

/// The test picture, its lines padded with garbage to a length.
QByteArray rawPicture(const QString &format, int bytesPerLine)
{
    QByteArray bytes;
    /// A plane that has, for every `across` pixels of every `down` lines, these channels.
    const auto plane = [&](int across, int down, bool isColor, int length,
                           const std::vector<int> &channels) {
        for (int y = 0; y < height; y += down) {
            const int end = bytes.size() + length;
            for (int x = 0; x < width; x += across) {
                for (const int channel : channels) {
                    bytes += char((isColor ? bgr(quarter(x, y)) : quarter(x, y))[channel]);
                }
            }
            bytes += QByteArray(qMax(0, end - bytes.size()), '\x55');
        }
    };
    const std::map<QString, std::vector<int>> packed{{line("YUYV"), {0, 1, 0, 2}},
                                                     {line("UYVY"), {1, 0, 2, 0}}};
    if (packed.count(format) > 0) {
        plane(2, 1, false, bytesPerLine, packed.at(format));
    } else if (format.endsWith(line("R3")) || format.endsWith(line("B3"))) {
        const bool isBgr = format == line("BGR3");
        plane(1, 1, true, bytesPerLine,
              isBgr ? std::vector<int>{0, 1, 2} : std::vector<int>{2, 1, 0});
    } else {
        plane(1, 1, false, bytesPerLine, {0});
        if (format.startsWith(line("NV"))) {
            const bool isNv12 = format == line("NV12");
            plane(2, 2, false, bytesPerLine,
                  isNv12 ? std::vector<int>{1, 2} : std::vector<int>{2, 1});
        } else if (format != line("GREY")) {
            const bool isYu12 = format == line("YU12");
            plane(2, 2, false, bytesPerLine / 2, {isYu12 ? 1 : 2});
            plane(2, 2, false, bytesPerLine / 2, {isYu12 ? 2 : 1});
        }
    }
    return bytes;
}

} // namespace

/// In place of the C library's, like the one below.
extern "C" int ioctl(int file, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    FakeDriver *driver = driverOf(file);
    if (!driver) {
        return int(::syscall(SYS_ioctl, file, request, argument));
    }
    if (request == VIDIOC_DQEVENT) { // what has been written to the node
        return ::read(file, argument, sizeof(v4l2_event)) > 0 ? 0 : -1;
    }
    errno = interruptions-- > 0 ? EINTR : driver->answer(request, argument);
    return errno == 0 ? 0 : -1;
}

/// Under another name: to the compiler, poll() only writes to what it is given.
extern "C" int fakePoll(pollfd *waits, nfds_t count, int milliseconds) __asm__("poll");
int fakePoll(pollfd *waits, nfds_t count, int milliseconds)
{
    if (FakeDriver *driver = count == 1 ? driverOf(waits[0].fd) : nullptr) {
        errno = EINTR;
        return interruptions-- > 0 ? -1 : driver->wait(waits, milliseconds);
    }
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    std::vector<pollfd> pipes(waits, waits + count); // have no exceptional condition
    for (pollfd &pipe : pipes) {
        pipe.events = POLLIN;
    }
    const auto result = int(
        ::syscall(SYS_ppoll, pipes.data(), count, milliseconds < 0 ? nullptr : &time, nullptr, 0));
    for (nfds_t i = 0; i < count; ++i) {
        waits[i].revents = pipes[i].revents == POLLIN ? waits[i].events : pipes[i].revents;
    }
    return result;
}

class TestPortableV4l2 : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        drivers.clear();
        interruptions = 0;
    }

    void camerasInTheOrderOfTheirNodes()
    {
        node("video10").name = "Ten";
        node("video2").name = "Two";
        node("video0").name = "Metadata";
        node("video0").capabilities = V4L2_CAP_META_CAPTURE;
        node("videox").name = "No number";
        QCOMPARE(::mkfifo(utf8("video3"), 0600), 0); // no V4L2 device
        for (const char *name : {"video1", "video4"}) { // these can't be opened
            sockaddr_un address = {};
            address.sun_family = AF_UNIX;
            std::strcpy(address.sun_path, utf8(name));
            const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            QCOMPARE(::bind(server, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
            ::close(server);
        }
        writeFile(path("sys/class/video4linux/video1/name"), "Closed\n");
        writeFile(path("sys/class/video4linux/video1/index"), "0\n");
        writeFile(path("sys/class/video4linux/video4/index"), "1\n"); // of the same camera
        writeFile(path("sys/devices/usb1/1-1/idVendor"), "2b19\n");
        writeFile(path("sys/devices/usb1/1-1/idProduct"), "0200\n");
        QVERIFY(QDir().mkpath(path("sys/class/video4linux/video2")));
        QVERIFY(
            QFile::link(path("sys/devices/usb1/1-1"), path("sys/class/video4linux/video2/device")));
        const V4l2Devices devices = v4l2DevicesIn(m_folder->path(), path("sys"));
        QCOMPARE(v4l2Labels(devices).replace(m_folder->path(), line("/dev")),
                 line("/dev/video1 (Closed), /dev/video2 (Two, 2b19:0200), /dev/video10 (Ten), "
                      "/dev/videox (No number)"));
        QCOMPARE(devices[1].bus, line("usb-1"));
        QCOMPARE(v4l2Labels({}), line("none"));
    }

    void formatAskedFor_data()
    {
        const Rows<QString, QString> row("formats", "asked");
        row("MJPEG at its nearest size", "YUYV 2592x1944,MJPG 640x480 1280x720", "MJPG 1280x720");
        row("the best that has the size", "GREY 1280x720,YUYV 640x480,NV12 1280x720",
            "NV12 1280x720");
        row("what the driver likes, without sizes", "MJPG,YUYV", "MJPG 64x48");
        row("nothing we can't decode", "BA81 1280x720,GREY 320x240", "GREY 320x240");
        row("all in turn, where nothing is said", "",
            "MJPG 64x48 JPEG 64x48 YUYV 64x48 UYVY 64x48 NV12 64x48 NV21 64x48 YU12 64x48 "
            "YV12 64x48 BGR3 64x48 RGB3 64x48 GREY 64x48");
    }

    void formatAskedFor()
    {
        QFETCH(QString, formats);
        FakeDriver &driver = streamingNode(formats);
        driver.answeredCode = formats.isEmpty() ? codeOf(line("BA81")) : 0;
        V4l2Source source = sourceOf();
        QString error;
        QCOMPARE(source.open({1270, 700}, &error), !formats.isEmpty());
        QTEST(taken(driver).remove(line(" rate=30/1")), "asked");
        QVERIFY(!formats.isEmpty() || error == line("its format BA81 of 64 x 48 can't be decoded"));
    }

    void rawFrames_data()
    {
        const Rows<QString, int, int, QString> row("answer", "bytesPerLine", "missing", "result");
        for (const char *format :
             {"YUYV", "UYVY", "NV12", "NV21", "YU12", "YV12", "BGR3", "RGB3"}) {
            row(format, format, 0, 0, "colors");
            row(line(format) + line(", padded"), format, 256, 0, "colors");
        }
        row("GREY", "GREY", 0, 0, "greys");
        row("no padding at the end", "YUYV", 160, 32, "colors");
        row("a byte is missing", "YUYV", 160, 33, "it delivers no frames");
        row("a byte of the color is missing", "NV12", 0, 1, "it delivers no frames");
        row("no padding at the end of a plane", "YV12", 256, 96, "colors");
        row("a byte of that plane is missing", "YV12", 256, 97, "it delivers no frames");
        row("nearly all is missing", "YV12", 256, 9000, "it delivers no frames");
        row("lines of 4 GB", "YUYV", -1, 0, "it delivers no frames");
        row("odd width", "YUYV 63x48", 0, 0, "its format YUYV of 63 x 48 can't be decoded");
        row("odd height", "NV12 64x47", 0, 0, "its format NV12 of 64 x 47 can't be decoded");
        row("no size", "GREY 0x0", 0, 0, "its format GREY of 0 x 0 can't be decoded");
        row("huge", "MJPG 65535x65535", 0, 0, "its format MJPG of 65535 x 65535 can't be decoded");
    }

    void rawFrames()
    {
        QFETCH(QString, answer);
        QFETCH(int, bytesPerLine);
        QFETCH(int, missing);
        const QStringList parts = answer.split(QRegularExpression(line("[ x]")));
        const QString &format = parts[0];
        FakeDriver &driver = streamingNode(line("MJPG 64x48")); // another is answered
        driver.answeredCode = codeOf(format);
        driver.answeredSize = {parts.value(1, line("64")).toInt(),
                               parts.value(2, line("48")).toInt()};
        driver.bytesPerLine = unsigned(bytesPerLine);
        const int pixelBytes = format.endsWith(line("3"))      ? 3
            : format == line("YUYV") || format == line("UYVY") ? 2
                                                               : 1;
        QByteArray bytes = rawPicture(format, qMax(bytesPerLine, width * pixelBytes));
        bytes.chop(missing);
        driver.ready = std::deque<std::vector<FakeFrame>>(20, {{bytes}});
        V4l2Source source = sourceOf();
        QString error;
        cv::Mat frame;
        if (!source.open({}, &error) || !source.read(frame, &error)) {
            QTEST(error, "result");
            return;
        }
        const bool isGrey = format == line("GREY");
        QTEST(QString::fromLatin1(isGrey ? "greys" : "colors"), "result");
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const cv::Vec3b yuv = quarter(x, y);
                const cv::Vec3b wanted = isGrey ? cv::Vec3b::all(yuv[0]) : bgr(yuv);
                QVERIFY(cv::norm(frame.at<cv::Vec3b>(y, x), wanted, cv::NORM_INF) <= 3);
            }
        }
    }

    void frames_data()
    {
        const Rows<QString, QString, QString> row("frames", "read", "log");
        const auto times = [](int count, const char *frame) {
            return QStringList(QVector<QString>(count, line(frame)).toList())
                .join(QLatin1Char(' '));
        };
        row("one by one", "20 60 100", "20 60 100", "");
        row("without tables", "20tables 60padded", "20 60", "");
        row("the newest", "20+60+100 140", "100 140", "");
        row("the newest whole one", "20+60+100error 140", "60 140", "");
        row("past damaged ones",
            "20 0short 0flawed 0garbage 0progressive 0larger 0empty 0error 0surplus 0eio 60 0again "
            "100",
            "20 60 100", "");
        row("buffers that don't exist", "20 0index 60", "20 60", "");
        row("nine damaged", times(9, "0short") + line(" 60"), "60", "");
        row("all cut short", times(25, "0short"), "", "");
        row("all flawed", times(11, "60flawed"), "60",
            " (HD) delivers damaged frames only: they are used as they are");
        row("unplugged", "20 0gone", "20 it is not there (unplugged?)", "");
        row("unplugged while it waits", "20", "20 it is not there (unplugged?)", "");
    }

    void frames()
    {
        QFETCH(QString, frames);
        FakeDriver &driver = streamingNode(line("MJPG 64x48"));
        script(driver, frames);
        driver.isGone = QLatin1String(QTest::currentDataTag()).startsWith(QLatin1String("unpl"));
        V4l2Source source = sourceOf();
        QString error;
        QVERIFY2(source.open({}, &error), qPrintable(error));
        interruptions = 2;
        QStringList read;
        cv::Mat frame;
        while (driver.streamError = driver.isGone ? ENODEV : 0, source.read(frame, &error)) {
            const double grey = cv::mean(frame(cv::Rect(0, 0, width, 16)))[1];
            read << QString::number(qRound(grey / 20) * 20);
            const unsigned lost = frames.contains(line("index")) ? 1 : 0;
            QVERIFY(driver.queued.size() + lost >= FakeDriver::buffers); // given back
        }
        const bool hasRead = !read.isEmpty();
        if (error != line("it delivers no frames")) {
            read << error;
        }
        QTEST(read.join(QLatin1Char(' ')), "read");
        QTEST(m_log->takeLines().join(QLatin1Char('\n')).remove(path("video0")), "log");
        QVERIFY(!driver.streams);
        const QStringList waits = driver.changes.filter(line("wait="));
        QCOMPARE(waits.first(), line("wait=5"));
        QVERIFY(!hasRead || waits.last() == line("wait=2"));
    }

    void skippedFramesAreNotDecoded()
    {
        FakeDriver &driver = streamingNode(line("MJPG 64x48"));
        script(driver, line("0garbage 0error 60short 20"));
        V4l2Source source = sourceOf();
        QString error;
        cv::Mat frame;
        QVERIFY(source.open({}, &error) && source.canSkip());
        QVERIFY(source.skip(&error) && source.skip(&error));
        QVERIFY(source.read(frame, &error));
        QVERIFY(!source.skip(&error));
        QCOMPARE(error, line("it delivers no frames"));
    }

    void streamThatDoesNotStart()
    {
        FakeDriver &driver = streamingNode(line("MJPG 64x48"));
        V4l2Source source = sourceOf();
        QString error;
        driver.length = 0;
        QVERIFY(!source.open({}, &error));
        QCOMPARE(error, line("it can't stream: Invalid argument"));
        driver.streamError = EBUSY;
        QVERIFY(!source.open({}, &error));
        QCOMPARE(error, line("it is in use by another program"));
        driver.streamError = 0;
        driver.length = bufferLength;
        cv::Mat frame;
        QVERIFY(!source.read(frame, &error)); // it is closed
        QVERIFY(source.open({}, &error));
        QVERIFY(driver.streams);
        source.close();
        QVERIFY(!driver.streams);
    }

    void sizes_data()
    {
        const Rows<int, QString> row("camera", "sizes");
        row("MJPEG's, where it has them", 0, "1920 x 1080, 640 x 480");
        row("of all formats otherwise", 1, "1280 x 720, 640 x 480, 320 x 240");
        row("MJPEG without sizes", 2, "640 x 480");
        row("common ones within a range", 3, "1000 x 600, 800 x 600, 320 x 240");
        row("any within a range without steps", 4, "700 x 500, 640 x 480");
        row("all common ones", 5,
            "3840 x 2448, 3840 x 2160, 3264 x 2448, 2592 x 1944, 2048 x 1536, 1920 x 1080, "
            "1600 x 1200, 1280 x 960, 1280 x 720, 1024 x 768, 800 x 600, 640 x 480, 320 x 240");
        row("none", 6, "");
    }

    void sizes()
    {
        QFETCH(int, camera);
        const std::vector<FakeFormat> cameras[] = {
            {{V4L2_PIX_FMT_YUYV, {{2592, 1944}}},
             {V4L2_PIX_FMT_MJPEG, {{640, 480}, {1920, 1080}, {640, 480}}}},
            {{V4L2_PIX_FMT_YUYV, {{640, 480}, {320, 240}}}, {V4L2_PIX_FMT_RGB24, {{1280, 720}}}},
            {{V4L2_PIX_FMT_MJPEG, {}}, {V4L2_PIX_FMT_YUYV, {{640, 480}}}},
            {{V4L2_PIX_FMT_YUYV, {{320, 240}, {1000, 600}, {240, 180}}, true}},
            {{V4L2_PIX_FMT_YUYV, {{321, 240}, {700, 500}, {0, 0}}, true}},
            {{V4L2_PIX_FMT_YUYV, {{320, 240}, {3840, 2448}, {16, 1}}, true}},
            {},
        };
        node("video0").formats = cameras[camera];
        interruptions = 2;
        const V4l2Formats formats = v4l2Formats(path("video0"));
        QStringList texts;
        for (const cv::Size &size : formats.sizes) {
            texts << QStringLiteral("%1 x %2").arg(size.width).arg(size.height);
        }
        QTEST(texts.join(line(", ")), "sizes");
    }

    void obstacles_data()
    {
        const Rows<int, QString> row("error", "reason");
        row("none", 0, "");
        row("busy", EBUSY, "it is in use by another program");
        row("unplugged", ENODEV, "it is not there (unplugged?)");
        row("forbidden", EPERM, "no permission to open it (is this user in the group \"video\"?)");
        row("no camera", ENOTTY, "it is not a camera");
        row("other", EIO, qt_error_string(EIO));
    }

    void obstacles()
    {
        QFETCH(int, error);
        node("video0").streamError = error;
        QTEST(v4l2Obstacle(path("video0")), "reason");
        QCOMPARE(v4l2Obstacle(path("video1")), line("it is not there (unplugged?)"));
    }

    void adjustments()
    {
        FakeDriver &driver = node("video0");
        driver.controls = {{V4L2_CID_BRIGHTNESS, {-64, 64, 1, 0, 7}},
                           {V4L2_CID_CONTRAST, {0, 95, 1, 32, 32, V4L2_CTRL_FLAG_READ_ONLY}},
                           {V4L2_CID_EXPOSURE_AUTO, {0, 3, 1, 3, 3}},
                           {V4L2_CID_EXPOSURE_ABSOLUTE, {3, 2047, 1, 250, 300}}};
        {
            V4l2Controls controls(path("video0"));
            const Adjustments rest = controls.adjust({-100, 50, 40});
            QCOMPARE(rest.brightness, 0);
            QCOMPARE(rest.contrast, 40); // can't be set, as when disabled
            QCOMPARE(rest.exposure, 0);
            QCOMPARE(taken(driver), line("brightness=32 mode=1 exposure=3"));
            QCOMPARE(controls.adjust({-100, 50, 40}).contrast, 40);
            QCOMPARE(taken(driver), QString()); // nothing has changed
            controls.adjust({0, 50, 40});
            QCOMPARE(taken(driver), line("mode=1 exposure=250 mode=3"));
        }
        // As they were before, the mode last: it may forbid to set the exposure.
        QCOMPARE(taken(driver), line("brightness=7 exposure=300 mode=3"));
    }

    void exposureOfSimpleCameras()
    {
        FakeDriver &driver = node("video0");
        V4l2Controls none(path("video0"));
        QCOMPARE(none.adjust({10, 0, 0}).exposure, 10);
        driver.controls = {{V4L2_CID_EXPOSURE, {-100, 100, 1, 0, 0}}};
        V4l2Controls controls(path("video0"));
        QCOMPARE(controls.adjust({10, 0, 0}).exposure, 0);
        QCOMPARE(taken(driver), line("gain=10"));
    }

    void focusing()
    {
        FakeDriver &driver = node("video0");
        V4l2Controls controls(path("video0"));
        QVERIFY(!controls.focus());
        driver.controls = {{V4L2_CID_FOCUS_AUTO, {0, 1, 1, 1, 1}}};
        QVERIFY(controls.focus());
        QCOMPARE(taken(driver), line("autofocus=0 autofocus=1"));
        driver.controls[V4L2_CID_AUTO_FOCUS_START] = {0, 1, 1, 0, 0};
        QVERIFY(controls.focus());
        QCOMPARE(taken(driver), line("focus=0"));
    }

    void captureButtons_data()
    {
        const Rows<QString, int, QString> row("device", "key", "pressed");
        row("any", "", KEY_CAMERA, "button later");
        row("named", "board", KEY_B, "board");
    }

    /// Each device sends a press, a release and a repetition of both keys.
    void captureButtons()
    {
        QFETCH(QString, device);
        QFETCH(int, key);
        const std::map<QString, std::vector<int>> devices{
            {line("button"), {KEY_CAMERA}},
            {line("board"), {KEY_A, KEY_B, KEY_CAMERA}},
            {line("mouse"), {BTN_LEFT}},
            {line("later"), {KEY_CAMERA}}};
        const auto file = [&](const QString &name) { return path("event-") + name; };
        std::map<QString, int> ends;
        const auto plugIn = [&](const QString &name) {
            ::mkfifo(Utf8(file(name)), 0600);
            ends[name] = ::open(Utf8(file(name)), O_RDWR | O_NONBLOCK);
        };
        for (const auto &each : devices) { // before the button's thread looks for one
            drivers[file(each.first)].keys = each.second;
        }
        for (const char *name : {"button", "board", "mouse"}) {
            plugIn(line(name));
        }
        std::atomic<int> presses{0};
        const CaptureButton button([&] { ++presses; },
                                   {device.isEmpty() ? device : file(device), key, {}}, path(""),
                                   path(""));
        plugIn(line("later"));
        QString pressed;
        const auto press = [&](const QString &name) {
            for (const int code : {KEY_CAMERA, KEY_B}) {
                for (const int value : {1, 0, 2}) {
                    input_event event{};
                    event.type = EV_KEY;
                    event.code = ushort(code);
                    event.value = value;
                    QCOMPARE(write(ends[name], &event, sizeof event), ssize_t(sizeof event));
                }
            }
        };
        for (const char *name : {"button", "board", "mouse", "later"}) {
            const int before = presses;
            press(line(name));
            if (QTest::qWaitFor([&] { return presses > before; }, 300)) {
                pressed += line(pressed.isEmpty() ? "" : " ") + line(name);
            }
            QVERIFY(presses <= before + 1);
        }
        QTEST(pressed, "pressed");
        for (const auto &end : ends) {
            close(end.second);
        }
    }

    void buttonControls_data()
    {
        const Rows<QString, QString> row("control", "pressed");
        row("the driver's own", "", "shutter again");
        row("by number", "0x00981a02", "snapshot");
        row("by name", "Snapshot", "snapshot");
        row("a standard one", "Auto Focus, Start", "focus");
    }

    /// Each control that is listened to reports a change of its range, then a value.
    void buttonControls()
    {
        QFETCH(QString, control);
        const unsigned button = V4L2_CTRL_TYPE_BUTTON;
        const unsigned shutter = V4L2_CID_USER_BASE | 0x1101;
        const unsigned snapshot = 0x00981a02;
        FakeDriver &driver = node("video0");
        driver.controls = {
            {V4L2_CID_AUTO_FOCUS_START, {0, 0, 0, 0, 0, 0, button, "Auto Focus, Start"}},
            {shutter, {0, 0, 0, 0, 0, 0, button, "Shutter"}},
            {snapshot, {0, 1, 1, 0, 0, 0, V4L2_CTRL_TYPE_BOOLEAN, "Snapshot"}}};
        const int end = ::open(utf8("video0"), O_RDWR | O_NONBLOCK);
        FakeDriver &metadata = node("video1");
        metadata.capabilities = V4L2_CAP_META_CAPTURE;
        metadata.controls = driver.controls;
        std::atomic<int> presses{0};
        QString pressed;
        {
            const CaptureButton watch([&] { ++presses; }, {QString(), KEY_CAMERA, control},
                                      path(""), path(""));
            const auto report = [&](const char *name, unsigned id) {
                if (driver.subscribed.count(id) == 0) {
                    return;
                }
                const int before = presses;
                for (const auto &change : {std::pair(V4L2_EVENT_CTRL_CH_RANGE, 1),
                                           std::pair(V4L2_EVENT_CTRL_CH_VALUE, 1)}) {
                    v4l2_event event{};
                    event.type = V4L2_EVENT_CTRL;
                    event.id = id;
                    event.u.ctrl.changes = unsigned(change.first);
                    event.u.ctrl.value = change.second;
                    QCOMPARE(write(end, &event, sizeof event), ssize_t(sizeof event));
                }
                if (QTest::qWaitFor([&] { return presses > before; }, 1000)) {
                    pressed += line(pressed.isEmpty() ? "" : " ") + line(name);
                }
                QCOMPARE(presses, before + 1);
            };
            report("focus", V4L2_CID_AUTO_FOCUS_START);
            report("shutter", shutter);
            report("snapshot", snapshot);
            report("again", control.isEmpty() ? shutter : 0);
        }
        QVERIFY(metadata.subscribed.empty());
        QTEST(pressed, "pressed");
        close(end);
    }

private:
    /// The driver of a node, which is made when it is missing.
    FakeDriver &node(const char *name)
    {
        ::mkfifo(utf8(name), 0600);
        return drivers[QFileInfo(path(name)).canonicalFilePath()];
    }

    /// One that delivers frames, with formats "MJPG 64x48,GREY 64x48 8x8".
    FakeDriver &streamingNode(const QString &formats)
    {
        writeFile(path("video0"), QByteArray(int(FakeDriver::buffers * bufferLength), '\0'));
        FakeDriver &driver = drivers[QFileInfo(path("video0")).canonicalFilePath()];
        driver.path = path("video0");
        for (const QString &text : formats.split(QLatin1Char(','))) {
            const QStringList parts = text.split(QLatin1Char(' '));
            if (text.isEmpty()) {
                break;
            }
            driver.formats.push_back({codeOf(parts[0]), {}});
            for (const QString &size : parts.mid(1)) {
                const QStringList sides = size.split(QLatin1Char('x'));
                driver.formats.back().sizes.emplace_back(sides[0].toInt(), sides[1].toInt());
            }
        }
        return driver;
    }

    /// What each wait finds, "20 60+100": see frameOf().
    static void script(FakeDriver &driver, const QString &frames)
    {
        for (const QString &batch : frames.split(QLatin1Char(' '))) {
            driver.ready.emplace_back();
            for (const QString &frame : batch.split(QLatin1Char('+'))) {
                driver.ready.back().push_back(frameOf(frame));
            }
        }
    }

    V4l2Source sourceOf() const
    {
        const QString node = path("video0");
        return V4l2Source(node, [node] { return V4l2Devices{{node, line("HD"), {}, {}}}; });
    }

    /// What has been set since the last call.
    static QString taken(FakeDriver &driver)
    {
        QString changes = driver.changes.join(QLatin1Char(' '));
        driver.changes.clear();
        return changes;
    }
};

QTEST_GUILESS_MAIN(TestPortableV4l2)
#include "tst_portablev4l2.moc"
