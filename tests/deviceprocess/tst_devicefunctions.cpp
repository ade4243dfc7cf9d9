// SPDX-License-Identifier: MIT
//
// What goes to the device process and comes back: each function of the library with all that it
// takes and gives, pictures, and the messages that they are made of.

#include "devicelib/biometrics.h"
#include "devicelib/cardreader.h"
#include "devicelib/doccamera.h"
#include "deviceprocess/host/sharedmemory.h"
#include "deviceprocess/pictureheader.h"
#include "deviceprocess/stub/forward.h"
#include "deviceprocess/stub/mappedpictures.h"
#include "tests/deviceprocess/hostiletest.h"
#include "tests/deviceprocess/sample.h"
#include "tests/rows.h"

#include <QCryptographicHash>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <mutex>
#include <thread>

using namespace deviceprocess;
using namespace std::chrono_literals;

/// Of iAutoScan_observr and all listeners: what they were called with.
class Heard : public QObject
{
    Q_OBJECT

public:
    static Heard &instance()
    {
        static Heard heard;
        return heard;
    }
    template <class... Args> static void listen(Args... args)
    {
        QByteArray line;
        ((line += text(args) + ' '), ...);
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_lines += '<' + line + '>';
    }
    static QByteArray take()
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        return std::exchange(s_lines, QByteArray());
    }
    template <class Type> static QByteArray text(const Type &value)
    {
        if constexpr (std::is_same_v<Type, void *>) {
            return value ? QByteArray::number(int(static_cast<char *>(value) - contexts)) : "none";
        } else {
            return sample::described(value);
        }
    }
    static char contexts[2];

public Q_SLOTS:
    void take(int number) { listen(number); }

private:
    static std::mutex s_mutex;
    static QByteArray s_lines;
};
char Heard::contexts[2];
std::mutex Heard::s_mutex;
QByteArray Heard::s_lines;

namespace {

/// Everything that distinguishes two pictures.
QByteArray seen(const cv::Mat &picture)
{
    QCryptographicHash pixels(QCryptographicHash::Md5);
    for (int y = 0; picture.dims == 2 && y < picture.rows; ++y) {
        pixels.addData(picture.ptr<char>(y), int(picture.elemSize()) * picture.cols);
    }
    return QByteArray::number(picture.rows) + 'x' + QByteArray::number(picture.cols) + ' '
        + (picture.empty() ? ""
                           : QByteArray::number(picture.type()) + ' ' + pixels.result().toHex());
}
QByteArray seen(const QImage &picture)
{
    QCryptographicHash pixels(QCryptographicHash::Md5);
    for (int y = 0; y < picture.height(); ++y) {
        pixels.addData(reinterpret_cast<const char *>(picture.constScanLine(y)),
                       picture.width() * picture.depth() / 8);
    }
    return QByteArray::number(picture.height()) + 'x' + QByteArray::number(picture.width()) + ' '
        + QByteArray::number(picture.format()) + ' ' + pixels.result().toHex();
}
QByteArray seen(const QString &text)
{
    return text.toUtf8();
}
QByteArray seen(int number)
{
    return QByteArray::number(number);
}
QByteArray seen(const SizeList &sizes)
{
    QByteArray text;
    for (const auto &size : sizes) {
        text += QByteArray::number(size.first) + 'x' + QByteArray::number(size.second) + ' ';
    }
    return text;
}

/// An argument, from the server's side.
template <Role role, class Type> struct Argument
{
    Type value{};
    Type pass() { return value; }
};
template <class Type> struct Argument<Role::Text, Type>
{
    QByteArray value;
    const char *pass() { return value.isNull() ? nullptr : value.constData(); }
};
template <class Type> struct Argument<Role::RawBytes, Type> : Argument<Role::Text, Type>
{
};
template <class Type> struct Argument<Role::Buffer, Type>
{
    char value[64];
    char *pass() { return value; }
};
template <class Type> struct Argument<Role::Output, Type>
{
    std::remove_pointer_t<std::remove_reference_t<Type>> value{};
    Type pass()
    {
        if constexpr (std::is_pointer_v<Type>) {
            return &value;
        } else {
            return value;
        }
    }
};

constexpr int usualPicture = sample::Small + 70;

/// Calls a function with arguments made from its type, and says what came of it, or should have.
template <FunctionKind kind, class Type> class Probe;
template <FunctionKind kind, class Result, class... Args> class Probe<kind, Result(Args...)>
{
public:
    explicit Probe(const QByteArray &deed)
        : m_deed(deed)
    {
        prepareAll(std::index_sequence_for<Args...>());
    }

    /// What the library is given, with the function's name.
    QByteArray asked(const char *name) const
    {
        return m_deed == "throw" ? QByteArray() : name + ('(' + m_asked) + ")\n";
    }
    /// Result and outputs, and what the listener gets.
    QByteArray expected() const { return m_expected; }
    QByteArray delivered() const
    {
        return m_deed == "throw" && !isAlwaysDelivered ? QByteArray() : m_delivered;
    }

    QByteArray call(Result (*function)(Args...))
    {
        return callAll(function, std::index_sequence_for<Args...>());
    }

private:
    using Tuple = std::tuple<Args...>;
    template <std::size_t index> static constexpr Role role = roleOf<Tuple, index, kind>();
    static constexpr bool isAlwaysDelivered = isAnsweredLater(kind) && std::is_void_v<Result>;

    template <std::size_t... index> void prepareAll(std::index_sequence<index...>)
    {
        if constexpr (!std::is_void_v<Result>) {
            Result result{};
            if constexpr (std::is_pointer_v<Result>) {
                m_expected = m_deed == "obey" || m_deed == "later" ? "a result" : "null";
            } else if (m_deed != "throw") {
                result = sample::number<Result>(0);
            }
            if constexpr (std::is_arithmetic_v<Result>) {
                m_expected = sample::described(result);
            }
        }
        (prepare<index>(), ...);
    }

    template <std::size_t index> void prepare()
    {
        using Arg = std::tuple_element_t<index, Tuple>;
        auto &value = std::get<index>(m_args).value;
        if constexpr (role<index> == Role::Value) {
            value = sample::number<Arg>(index);
            m_asked += sample::described(value) + ' ';
        } else if constexpr (role<index> == Role::Text) {
            value = m_deed == "nulls" ? QByteArray() : sample::text(index);
            m_asked += (value.isNull() ? "null" : value) + ' ';
        } else if constexpr (role<index> == Role::RawBytes) {
            value = m_deed == "nulls" ? QByteArray() : sample::feature(index);
            m_asked += (value.isNull() ? "null" : value.toHex()) + ' ';
        } else if constexpr (role<index> == Role::Output) {
            auto filled = value;
            sample::fill(&filled, index, usualPicture);
            m_expected += ' ' + seen(m_deed == "throw" ? value : filled);
            value = filled; // to be emptied on failure
            if (m_deed != "throw") {
                sample::fill(&value, index + 1, sample::Large);
            }
        } else if constexpr (role<index> == Role::Buffer) {
            const int capacity = sample::number<int>(index + 1);
            m_expected +=
                ' ' + (m_deed == "throw" ? "" : QByteArray(sample::version).left(capacity - 1));
            std::fill(std::begin(value), std::end(value), 'x');
        } else if constexpr (role<index> == Role::Receiver) {
            value = &Heard::instance();
            m_delivered = "<5.0 >";
        } else if constexpr (role<index> == Role::Slot) {
            value = SLOT(take(int));
        } else if constexpr (role<index> == Role::Pointer) {
            value = &Heard::contexts[index % 2];
        } else if constexpr (role<index> == Role::Listener) {
            constexpr bool hasContext = index + 1 < sizeof...(Args);
            listenWith(value, hasContext ? &Heard::contexts[(index + 1) % 2] : nullptr);
        }
    }

    template <class... Values>
    void listenWith(void (*&listener)(Values...), [[maybe_unused]] void *context)
    {
        listener = &Heard::listen<Values...>;
        std::size_t index = 0;
        m_delivered = "<";
        ((m_delivered += delivered<Values>(index++, context) + ' '), ...);
        m_delivered += '>';
    }
    template <class Value> QByteArray delivered(std::size_t index, void *context) const
    {
        if (m_deed == "throw") {
            return Heard::text(failureValue<kind, Value>(context));
        }
        if constexpr (std::is_same_v<Value, void *>) {
            return Heard::text(context);
        } else if constexpr (std::is_same_v<Value, QByteArray>) {
            return sample::feature(index);
        } else if constexpr (std::is_arithmetic_v<Value>) {
            return sample::described(sample::number<Value>(index));
        } else {
            return sample::text(index);
        }
    }

    template <std::size_t... index>
    QByteArray callAll(Result (*function)(Args...), std::index_sequence<index...>)
    {
        QByteArray got;
        if constexpr (std::is_void_v<Result>) {
            function(std::get<index>(m_args).pass()...);
        } else {
            const Result result = function(std::get<index>(m_args).pass()...);
            got = sample::described(result);
            if constexpr (std::is_same_v<Result, char *>) {
                std::free(result);
            }
        }
        (addOutput<index>(got), ...);
        return got;
    }
    template <std::size_t index> void addOutput(QByteArray &got) const
    {
        if constexpr (role<index> == Role::Output) {
            got += ' ' + seen(std::get<index>(m_args).value);
        } else if constexpr (role<index> == Role::Buffer) {
            got += ' ' + QByteArray(std::get<index>(m_args).value);
        }
    }

    template <std::size_t... index>
    static std::tuple<Argument<role<index>, std::tuple_element_t<index, Tuple>>...>
        argumentsFor(std::index_sequence<index...>);

    const QByteArray m_deed;
    decltype(argumentsFor(std::index_sequence_for<Args...>())) m_args;
    QByteArray m_asked;
    QByteArray m_expected;
    QByteArray m_delivered;
};

/// What is wrong when a function is called; empty when all is well.
template <FunctionKind kind, class Type>
QByteArray problem(const QByteArray &deed, const QString &ordered, const char *name, Type *function)
{
    QFile::remove(ordered);
    Heard::take();
    Probe<kind, Type> probe(deed);
    QByteArray got;
    const auto call = [&] { got = probe.call(function); };
    if (deed == "later") {
        std::thread(call).join();
    } else {
        call();
    }
    if (got != probe.expected()) {
        return name + (" gave " + got + ", not " + probe.expected());
    }
    if (contentOf(ordered) != probe.asked(name)) {
        return "asked: " + contentOf(ordered) + ", not " + probe.asked(name);
    }
    QByteArray heard;
    waitFor([&] { return (heard += Heard::take()).size() >= probe.delivered().size(); });
    return heard == probe.delivered()
        ? QByteArray()
        : name + (" delivered " + heard + ", not " + probe.delivered());
}

} // namespace

Q_DECLARE_METATYPE(PictureHeader)
Q_DECLARE_METATYPE(SharedPixels)

class TestDeviceFunctions : public HostileTest
{
    Q_OBJECT

private Q_SLOTS:
    void everyFunction_data()
    {
        const Rows<QByteArray> row("deed");
        row("listeners are called at once", "obey");
        row("null texts", "nulls");
        row("listeners are called by another thread, in a call of another thread", "later");
        row("outputs are empty after a failure", "throw");
    }

    void everyFunction()
    {
        QFETCH(QByteArray, deed);
        order("any " + deed + ' ' + QByteArray::number(usualPicture));
        const QString ordered = m_order + QLatin1String("ed");
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    QCOMPARE((problem<FunctionKind::kind, result parameters>(deed, ordered, #name, &::name)),      \
             QByteArray());
#include "devicelib/functions.h"
    }

    void pictures_data()
    {
        const Rows<int> row("picture");
        row("none", sample::Empty);
        row("in the message", sample::Small);
        row("in shared memory", sample::Large);
        row("with gaps between the lines", sample::PartOfSmall);
        row("from within shared memory", sample::PartOfLarge);
        row("with a palette", sample::WithPalette);
        row("with a palette of greys", sample::GreyPalette);
        row("with three dimensions", sample::Cube);
    }

    void pictures()
    {
        QFETCH(int, picture);
        order("any obey " + QByteArray::number(picture + 30));
        cv::Mat matrix = sample::matrix(sample::Small, 9); // to be replaced, also by none
        QVERIFY(getVideoFrameMat(matrix));
        QCOMPARE(seen(matrix),
                 seen(picture == sample::Cube ? cv::Mat() : sample::matrix(picture, 3)));
        QImage image = sample::image(sample::Small, 9);
        QVERIFY(getVideoFrame(image));
        const QImage sent = sample::image(picture, 3);
        const auto plain = picture == sample::GreyPalette ? QImage::Format_Grayscale8
            : picture == sample::WithPalette              ? QImage::Format_RGB32
                                                          : sent.format();
        QCOMPARE(seen(image), seen(sent.convertToFormat(plain)));
        QCOMPARE(image.dotsPerMeterX(), sent.dotsPerMeterX());
        QCOMPARE(image.dotsPerMeterY(), sent.dotsPerMeterY());
    }

    void picturesThatAreKeptStayAsTheyAre()
    {
        const QString ownFiles = QStringLiteral("/proc/self/fd");
        const uint before = QDir(ownFiles).count();
        std::vector<cv::Mat> kept;
        for (int i = 0; i < 70; ++i) { // more than the process holds for us
            order("any obey " + QByteArray::number(sample::Large + 10 * i));
            kept.emplace_back();
            QVERIFY(getVideoFrameMat(kept.back()));
        }
        for (std::size_t i = 0; i < kept.size(); ++i) {
            QCOMPARE(seen(kept[i]), seen(sample::matrix(sample::Large, int(i))));
        }
        QVERIFY(mappings() > 60);
        kept.clear();
        // Both sides keep no more than a preview needs.
        for (int i = 0; i < 100; ++i) {
            cv::Mat frame;
            QVERIFY(getVideoFrameMat(frame));
        }
        QTRY_VERIFY(mappings() <= 8);
        bStopPlay();
        QCOMPARE(mappings(), 0);
        QVERIFY(QDir(ownFiles).count() < before + 10);
        const QDir opened(QStringLiteral("/proc/%1/fd").arg(DeviceHost::instance().processId()));
        QVERIFY2(opened.count() < 40, qPrintable(QString::number(opened.count())));
    }

    /// A reply that is read after its process has gone puts its memory back among what is known.
    void anOldPictureIsNotShownByTheNextProcess()
    {
        order("any obey " + QByteArray::number(sample::Large + 10));
        signalProcess(SIGKILL); // this process and the next one count alike
        Message late;
        QVERIFY(DeviceHost::instance().call(FunctionId::getVideoFrameMat, FunctionKind::Query,
                                            Writer(), &late));
        order("any obey " + QByteArray::number(sample::Large + 20));
        signalProcess(SIGKILL);
        Reader reader(late);
        cv::Mat old;
        QVERIFY(reader.value<bool>());
        QVERIFY(readPicture(
            reader, [](std::uint64_t) { return ReleasePixels(); }, &old));
        closeDescriptor(&late.descriptor);
        cv::Mat shown;
        QVERIFY(getVideoFrameMat(shown));
        QCOMPARE(seen(old), seen(sample::matrix(sample::Large, 1)));
        QCOMPARE(seen(shown), seen(sample::matrix(sample::Large, 2)));
    }

    void rawFeaturesAtTheEndOfMemory()
    {
        const auto page = std::size_t(sysconf(_SC_PAGESIZE));
        auto *memory = static_cast<char *>(
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(memory + page, page, PROT_NONE);
        char *feature = memory + page - 5;
        std::strcpy(feature, "feat");
        order("any obey");
        QFile::remove(m_order + QLatin1String("ed"));
        QVERIFY(lFaceFeatureMatch(feature, feature) > 0);
        const QByteArray hex = QByteArray("feat\0", 5).toHex();
        QCOMPARE(ordered(), "lFaceFeatureMatch(" + hex + ' ' + hex + " )\n");
        munmap(memory, 2 * page);
    }

    void damagedPictures_data()
    {
        const Rows<PictureHeader, SharedPixels, bool> row("header", "shared", "isImage");
        const PictureHeader good{PixelPlace::Shared, 16, 4, QImage::Format_RGB888, 48};
        const SharedPixels pixels{1, 4096, 4096 - 192, 7};
        const auto with = [](auto value, auto member, auto other) {
            value.*member = other;
            return value;
        };
        row("good", good, pixels, true);
        row("no width", with(good, &PictureHeader::width, 0), pixels, false);
        row("no height", with(good, &PictureHeader::height, 0), pixels, false);
        row("negative", with(good, &PictureHeader::height, -1), pixels, false);
        row("wide", {PixelPlace::Inline, 65536, 1, QImage::Format_Mono, 8192}, pixels, false);
        row("widest", {PixelPlace::Inline, 65535, 1, QImage::Format_Mono, 8192}, pixels, true);
        row("high", {PixelPlace::Inline, 1, 65536, QImage::Format_Mono, 1}, pixels, false);
        row("short lines", with(good, &PictureHeader::bytesPerLine, 47), pixels, false);
        row("endless lines", with(good, &PictureHeader::bytesPerLine, 1U << 30), pixels, false);
        row("no format", with(good, &PictureHeader::format, 0), pixels, false);
        row("unknown format", with(good, &PictureHeader::format, int(QImage::NImageFormats)),
            pixels, false);
        row("unknown place", with(good, &PictureHeader::place, PixelPlace(3)), pixels, false);
        row("behind the end", good, with(pixels, &SharedPixels::offset, 4096 - 191), false);
        row("the last padding missing", with(good, &PictureHeader::bytesPerLine, 49),
            with(pixels, &SharedPixels::offset, 4096 - 195), false);
        row("far behind the end", good, with(pixels, &SharedPixels::offset, 5000), false);
        row("more than there is", good, with(pixels, &SharedPixels::segmentSize, 4097), false);
        row("the last of an inline one",
            {PixelPlace::Inline, 10, 819, QImage::Format_Grayscale8, 10}, pixels, true);
        row("one pixel missing", {PixelPlace::Inline, 13, 631, QImage::Format_Grayscale8, 13},
            pixels, false);
    }

    void damagedPictures()
    {
        QFETCH(PictureHeader, header);
        QFETCH(SharedPixels, shared);
        QFETCH(bool, isImage);
        // Sealed, not sealed, and none at all.
        for (const int seals : {F_SEAL_SHRINK, F_SEAL_GROW, 0}) {
            const int file = seals == 0 ? -1 : memfd_create("pixels", MFD_ALLOW_SEALING);
            QVERIFY(seals == 0
                    || (ftruncate(file, 4096) == 0 && fcntl(file, F_ADD_SEALS, seals) == 0));
            Writer writer;
            writer.value(header);
            if (header.place == PixelPlace::Inline) {
                writer.bytes(QByteArray(8192, 'p'));
            } else {
                writer.value(shared);
            }
            const Message message{MessageKind::Reply, 0, writer.body(), file};
            Reader reader(message);
            QList<std::uint64_t> released;
            const auto release = [&](std::uint64_t held) {
                return [&released, held] { released << held; };
            };
            forgetMappings();
            {
                QImage image;
                const bool isRead = readPicture(reader, release, &image);
                const bool isShared = header.place == PixelPlace::Shared;
                QCOMPARE(isRead, isImage && (!isShared || seals == F_SEAL_SHRINK));
                QCOMPARE(image.isNull(), !isRead);
                if (isRead) {
                    QCOMPARE(image.size(), QSize(header.width, header.height));
                }
            }
            const bool isHeld = isImage || shared.segmentSize > 4096; // only the memory is wrong
            QCOMPARE(released.size(),
                     header.place == PixelPlace::Shared && isHeld && file >= 0 ? 1 : 0);
            if (file >= 0) {
                close(file);
            }
        }
    }

    void memoryThatNobodyWantsGoesBack()
    {
        SharedMemory memory;
        const auto make = [&memory](int rows) {
            cv::Mat picture;
            picture.allocator = &memory;
            picture.create(rows, 1 << 20, CV_8U);
            return picture;
        };
        cv::Mat used = make(1);
        const int others = mappings() - 1;
        make(2); // free from now on
        make(3);
        QCOMPARE(mappings() - others, 3);
        memory.dropUnused();
        QCOMPARE(mappings() - others, 3); // not for long yet
        make(3);
        memory.dropUnused();
        QCOMPARE(mappings() - others, 2);
        memory.dropUnused();
        QCOMPARE(mappings() - others, 1);
        used = 1; // it is still there
        used.release();
        memory.dropUnused();
        memory.dropUnused();
        QCOMPARE(mappings(), others);
    }

    void linesOfMatricesHoldWholeNumbers()
    {
        for (const std::uint64_t bytesPerLine : {8U, 9U}) {
            Writer writer;
            writer.value(PictureHeader{PixelPlace::Inline, 4, 2, CV_16UC1, bytesPerLine});
            writer.bytes(QByteArray(20, 'p'));
            const Message message{MessageKind::Reply, 0, writer.body(), -1};
            Reader reader(message);
            cv::Mat picture;
            QCOMPARE(readPicture(reader, {}, &picture), bytesPerLine == 8);
        }
    }

    void truthsAreZeroOrOne()
    {
        for (const int byte : {0, 1, 2, 129}) {
            const Message message{MessageKind::Reply, 0, QByteArray(1, char(byte)), -1};
            Reader reader(message);
            QCOMPARE(reader.value<bool>(), byte == 1);
            QCOMPARE(reader.isOk(), byte <= 1);
        }
    }

    void messages()
    {
        int ends[2];
        QVERIFY(makeSocketPair(ends));
        const auto now = [] { return std::chrono::steady_clock::now(); };
        Message got;
        std::signal(SIGALRM, [](int) {});
        ualarm(5000, 0); // waiting goes on after a signal
        QCOMPARE(int(receiveMessage(ends[1], &got, now() + 50ms)), int(Received::TimedOut));
        QVERIFY(!waitReadable(ends[1], now() + 1ms));
        Writer large;
        large.bytes(QByteArray(3 << 20, 'l'));
        QVERIFY(!sendMessage(ends[0], MessageKind::Call, 1, large, now() + 20ms)); // nobody reads
        closeDescriptor(&ends[0]);
        QCOMPARE(ends[0], -1);
        QVERIFY(waitReadable(ends[1], now()));
        QCOMPARE(int(receiveMessage(ends[1], &got, now() + 1s)), int(Received::Closed));
        closeDescriptor(&ends[1]);

        QVERIFY(makeSocketPair(ends));
        large.setDescriptor(ends[1]);
        std::thread reader([&] { receiveMessage(ends[1], &got, now() + 10s); });
        QVERIFY(sendMessage(ends[0], MessageKind::Event, 7, large, now() + 10s, 9));
        reader.join();
        QCOMPARE(got.body, large.body());
        QCOMPARE(got.function, 7U);
        QCOMPARE(got.released, std::uint64_t(9));
        QCOMPARE(int(got.kind), int(MessageKind::Event));
        QVERIFY(got.descriptor >= 0 && fcntl(got.descriptor, F_GETFD) == FD_CLOEXEC);
        const std::uint64_t tooLong[] = {1, maxBody + 1, 0};
        QCOMPARE(write(ends[0], tooLong, sizeof tooLong), ssize_t(sizeof tooLong));
        QCOMPARE(int(receiveMessage(ends[1], &got, now() + 1s)), int(Received::Invalid));
        QCOMPARE(got.descriptor, -1);
        Writer texts; // an empty one is not null
        texts.bytes("", 0);
        texts.bytes(QByteArray());
        got.body = texts.body();
        Reader back(got);
        QVERIFY(!back.bytes().isNull() && back.bytes().isNull() && back.isOk());
        closeDescriptor(&ends[0]);
        closeDescriptor(&ends[1]);
    }

private:
    /// How many pictures of the process are mapped.
    static int mappings()
    {
        return contentOf(QStringLiteral("/proc/self/maps")).count("memfd:picture");
    }
};

QTEST_MAIN(TestDeviceFunctions)
#include "tst_devicefunctions.moc"
