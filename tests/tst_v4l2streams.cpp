// SPDX-License-Identifier: MIT
// The stream of a V4L2 camera: its format, its frames and what is wrong with them.
#include "portable/camera/v4l2source.h"
#include "tests/fakev4l2.h"

#include <QBuffer>
#include <QImageWriter>
#include <QRandomGenerator>
#include <QtTest>

#include <cerrno>

using namespace portable;

namespace {

unsigned codeOf(const QString &text) // "YUYV"
{
    const QByteArray bytes = text.toLatin1();
    return v4l2_fourcc(unsigned(bytes[0]), unsigned(bytes[1]), unsigned(bytes[2]),
                       unsigned(bytes[3]));
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

class TestV4l2Streams : public FakeV4l2Test
{
    Q_OBJECT

private Q_SLOTS:
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
        interruptCalls(2);
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
        driver.length = FakeDriver::bufferLength;
        cv::Mat frame;
        QVERIFY(!source.read(frame, &error)); // it is closed
        QVERIFY(source.open({}, &error));
        QVERIFY(driver.streams);
        source.close();
        QVERIFY(!driver.streams);
    }

private:
    /// One that delivers frames, with formats "MJPG 64x48,GREY 64x48 8x8".
    FakeDriver &streamingNode(const QString &formats)
    {
        writeFile(path("video0"),
                  QByteArray(int(FakeDriver::buffers * FakeDriver::bufferLength), '\0'));
        FakeDriver &driver = driverOf(QFileInfo(path("video0")).canonicalFilePath());
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
};

QTEST_GUILESS_MAIN(TestV4l2Streams)
#include "tst_v4l2streams.moc"
