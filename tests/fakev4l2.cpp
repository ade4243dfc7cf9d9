// SPDX-License-Identifier: MIT
#include "tests/fakev4l2.h"

#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

std::map<QString, FakeDriver> drivers; // by path
int interruptions = 0; // that many calls are interrupted by a signal

/// Null for a file of another kind.
FakeDriver *driverOf(int file)
{
    const auto driver =
        drivers.find(QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(file)));
    return driver == drivers.end() ? nullptr : &driver->second;
}

QString textOf(unsigned code)
{
    return QString::fromLatin1(reinterpret_cast<const char *>(&code), 4);
}

QString shortName(unsigned id)
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

} // namespace

int FakeDriver::wait(pollfd *wait, int milliseconds)
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

int FakeDriver::answer(unsigned long request, void *argument)
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
        static_cast<v4l2_streamparm *>(argument)->parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
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

int FakeDriver::dequeue(v4l2_buffer *buffer)
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

int FakeDriver::describe(v4l2_capability *capability) const
{
    std::strcpy(reinterpret_cast<char *>(capability->card), name.constData());
    std::strcpy(reinterpret_cast<char *>(capability->bus_info), "usb-1");
    capability->capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_META_CAPTURE;
    capability->device_caps = capabilities;
    return 0;
}

int FakeDriver::enumerate(v4l2_fmtdesc *format) const
{
    if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || format->index >= formats.size()) {
        return EINVAL;
    }
    format->pixelformat = formats[format->index].pixelFormat;
    return 0;
}

int FakeDriver::enumerate(v4l2_frmsizeenum *size) const
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

int FakeDriver::query(v4l2_queryctrl *query) const
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

int FakeDriver::access(v4l2_format *format, bool isSet)
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

int FakeDriver::access(v4l2_control *control, bool isSet)
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

void FakeV4l2Test::init()
{
    PortableTest::init();
    drivers.clear();
    interruptions = 0;
}

FakeDriver &FakeV4l2Test::node(const char *name)
{
    ::mkfifo(utf8(name), 0600);
    return driverOf(QFileInfo(path(name)).canonicalFilePath());
}

FakeDriver &FakeV4l2Test::driverOf(const QString &path)
{
    return drivers[path];
}

QString FakeV4l2Test::taken(FakeDriver &driver)
{
    QString changes = driver.changes.join(QLatin1Char(' '));
    driver.changes.clear();
    return changes;
}

void FakeV4l2Test::interruptCalls(int count)
{
    interruptions = count;
}

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
