// SPDX-License-Identifier: MIT
//
// Bytes from a device process. The first byte says what they are: a reply of a function or an event
// (the next byte: of which), or a stream of messages. A picture's memory travels as a descriptor.
#include "deviceprocess/wire.h"

#include "deviceprocess/pictureheader.h"
#include "deviceprocess/stub/exports.h"
#include "tests/fuzz/fuzztarget.h"

#include <QObject>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace deviceprocess {

namespace {

Message answer; // of the next call

/// Looks at all pixels, so that a sanitizer sees those that aren't there.
template <class Pixels> void touch(const Pixels *pixels, std::size_t size)
{
    static volatile uchar sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        sum = uchar(sum + pixels[i]);
    }
}

void use(const QImage &image)
{
    touch(image.constBits(), std::size_t(image.sizeInBytes()));
    const QImage converted = image.convertToFormat(QImage::Format_RGB32).copy();
    touch(converted.constBits(), std::size_t(converted.sizeInBytes()));
}

void use(const cv::Mat &picture)
{
    for (int y = 0; y < picture.rows; ++y) {
        touch(picture.ptr(y), std::size_t(picture.cols) * picture.elemSize());
    }
}

} // namespace

// The host that the forwarding functions ask: it answers with the input.

DeviceHost::DeviceHost(const QString &program)
    : m_program(program)
{
}
DeviceHost &DeviceHost::instance()
{
    static auto &host = *new DeviceHost(QString());
    return host;
}
bool DeviceHost::call(FunctionId, FunctionKind, const Writer &, Message *reply)
{
    *reply = answer;
    reply->descriptor = answer.descriptor < 0 ? -1 : dup(answer.descriptor);
    return true;
}
void DeviceHost::rejectGarbage(FunctionId, quint64) { }
void DeviceHost::release(quint64, std::uint64_t) { }
void DeviceHost::stop() { }
quint64 DeviceHost::generationOfThread()
{
    return 0;
}

void *insideFunction(FunctionId)
{
    return nullptr;
}
QByteArray bytesBehind(const char *data)
{
    return QByteArray(data);
}
std::function<ReleasePixels(std::uint64_t)> releaseOfThread()
{
    return [](std::uint64_t) { return [] {}; };
}

const std::array<Deliver, functionCount> deliverers = {
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    DeliveryOf<FunctionId::name, result parameters>::deliver,
#include "devicelib/functions.h"
};

namespace {

/// Something to pass for each type of argument.
template <class Type> struct Argument
{
    Type value{};
    Type pass() { return value; }
    void used() { }
};
template <> struct Argument<const char *>
{
    const char *pass() { return "1slot(int)"; }
    void used() { }
};
template <class Type> struct Argument<Type &>
{
    Type value;
    Type &pass() { return value; }
    void used()
    {
        if constexpr (!std::is_same_v<Type, SizeList>) {
            use(value);
        }
    }
};
template <> struct Argument<QString *>
{
    QString value;
    QString *pass() { return &value; }
    void used() { }
};
template <> struct Argument<int *>
{
    int value = 0;
    int *pass() { return &value; }
    void used() { }
};
template <> struct Argument<char *>
{
    char value[32];
    char *pass() { return value; }
    void used() { fuzz::require(std::memchr(value, 0, sizeof value) != nullptr, "terminated"); }
};
template <> struct Argument<int>
{
    int pass() { return 32; } // the size of the buffer above
    void used() { }
};
template <class... Args> struct Argument<void (*)(Args...)>
{
    using Function = void (*)(Args...);
    Function pass()
    {
        return [](Args...) {};
    }
    void used() { }
};

template <class Type> struct Caller;
template <class Result, class... Args> struct Caller<Result(Args...)>
{
    template <FunctionId function, FunctionKind kind> static void call()
    {
        std::tuple<Argument<Args>...> arguments;
        std::apply(
            [](auto &...argument) {
                using Call = Forward<function, kind, Result(Args...)>;
                if constexpr (std::is_same_v<Result, char *>) {
                    std::free(Call::call(argument.pass()...));
                } else {
                    (void)Call::call(argument.pass()...);
                }
                (argument.used(), ...);
            },
            arguments);
    }
};

using Call = void (*)();
constexpr Call calls[] = {
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    &Caller<result parameters>::call<FunctionId::name, FunctionKind::kind>,
#include "devicelib/functions.h"
};

constexpr std::size_t segmentSize = 4096;

/// Sealed memory as the host makes it.
int memory()
{
    static const int descriptor = [] {
        const int made = memfd_create("segment", MFD_ALLOW_SEALING | MFD_CLOEXEC);
        fuzz::require(made >= 0 && ftruncate(made, segmentSize) == 0
                          && fcntl(made, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) == 0,
                      "the fuzz target has its memory");
        return made;
    }();
    return descriptor;
}

void runReply(std::uint32_t function, const QByteArray &body, bool withMemory)
{
    answer = Message{MessageKind::Reply, function, body, withMemory ? memory() : -1};
    calls[function]();
    forgetMappings();
}

void runEvent(std::uint32_t function, const QByteArray &body)
{
    const Message event{MessageKind::Event, function, body, -1};
    Reader reader(event);
    if (deliverers[function]) {
        deliverers[function](reader);
    }
}

/// What is sent is received, whatever it is, until it is no message.
void runStream(const QByteArray &bytes)
{
    int sockets[2];
    fuzz::require(makeSocketPair(sockets), "there are sockets");
    const ssize_t sent =
        send(sockets[0], bytes.constData(), std::size_t(bytes.size()), MSG_DONTWAIT | MSG_NOSIGNAL);
    Q_UNUSED(sent)
    closeDescriptor(&sockets[0]);
    Message message;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (receiveMessage(sockets[1], &message, until) == Received::Message) { }
    closeDescriptor(&message.descriptor);
    closeDescriptor(&sockets[1]);
}

enum What { Reply, ReplyWithMemory, Event, Stream };

QByteArray seed(What what, FunctionId function, const Writer &content)
{
    return QByteArray(1, char(what)) + char(function) + content.body();
}

} // namespace

} // namespace deviceprocess

using namespace deviceprocess;

void fuzz::prepare()
{
    for (const Call call : calls) { // hands the listeners over
        call();
    }
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    const int what = fields.byte() % 4;
    const auto function = std::uint32_t(fields.byte()) % std::uint32_t(functionCount);
    const QByteArray body = fields.rest();
    switch (what) {
    case deviceprocess::Reply:
    case ReplyWithMemory:
        runReply(function, body, what == ReplyWithMemory);
        break;
    case deviceprocess::Event:
        runEvent(function, body);
        break;
    default:
        runStream(body);
    }
}

QList<QByteArray> fuzz::seeds()
{
    static_assert(functionCount <= 256, "one byte for the function");
    Writer text;
    text.bytes("a text");
    Writer yesAndText;
    yesAndText.value(true);
    yesAndText.bytes("a text");
    Writer sizes;
    sizes.value(std::uint32_t(1));
    sizes.value(1920.0);
    sizes.value(1080.0);
    Writer inlined;
    inlined.value(true);
    inlined.value(PictureHeader{PixelPlace::Inline, 4, 2, QImage::Format_RGB888, 12});
    inlined.bytes(QByteArray(24, 'p'));
    Writer shared;
    shared.value(true);
    shared.value(PictureHeader{PixelPlace::Shared, 16, 16, CV_8UC3, 48});
    shared.value(SharedPixels{1, segmentSize, 512, 7});
    Writer captured;
    captured.bytes("image");
    captured.bytes("feature");
    captured.value(80);
    captured.bytes("message");
    captured.value(std::uint64_t(0));
    const std::uint32_t header[] = {std::uint32_t(MessageKind::Reply), 3, 5, 0, 0, 0};
    const QByteArray message =
        QByteArray(reinterpret_cast<const char *>(header), sizeof header) + "hello";
    return {
        seed(deviceprocess::Reply, FunctionId::sGetBarCode, text),
        seed(deviceprocess::Reply, FunctionId::GetBankCardInfoVX, yesAndText),
        seed(deviceprocess::Reply, FunctionId::getResolutionIndex, sizes),
        seed(deviceprocess::Reply, FunctionId::getVideoFrame, inlined),
        seed(ReplyWithMemory, FunctionId::getVideoFrameMat, shared),
        seed(deviceprocess::Event, FunctionId::fingerCaptureRawData, captured),
        QByteArray("\3\0", 2) + message + message,
    };
}
