// SPDX-License-Identifier: MIT
#include "camera/frameencoder.h"
#include "tests/rows.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QtTest>
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
#include <QColorSpace>
#endif

namespace {

/// Noise on a gradient: a pixel taken from the wrong place changes the file.
QImage picture(QSize size, QImage::Format format)
{
    QImage image(size, QImage::Format_RGB32);
    QRandomGenerator random(7);
    for (int y = 0; y < size.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            const int noise = random.bounded(64);
            line[x] = qRgb(x * 190 / size.width() + noise, y * 190 / size.height() + noise,
                           (x + y) % 190 + noise);
        }
    }
    return image.convertToFormat(format);
}

/// The file that Qt makes.
QByteArray expected(const QImage &frame, QSize size)
{
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    frame.scaled(size, Qt::IgnoreAspectRatio, Qt::FastTransformation).save(&file, "jpg", -1);
    return file.data().toBase64();
}

} // namespace

class TestFrameEncoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameBytesAsQt_data()
    {
        const Rows<QSize, QSize> row("source", "target");
        // clang-format off
        row("the usual way down",  QSize(1920, 1080), QSize(800, 600));
        row("a document camera",   QSize(2592, 1944), QSize(800, 600));
        row("same size",           QSize(800, 600),   QSize(800, 600));
        row("up",                  QSize(640, 480),   QSize(1024, 768));
        row("tenfold",             QSize(100, 80),    QSize(1000, 800));
        row("narrower and higher", QSize(1280, 720),  QSize(407, 1013));
        row("odd sizes",           QSize(333, 251),   QSize(401, 303));
        row("one pixel more",      QSize(800, 600),   QSize(801, 601));
        row("one pixel less",      QSize(800, 600),   QSize(799, 599));
        row("one column",          QSize(1, 480),     QSize(10, 600));
        row("very wide",           QSize(641, 48),    QSize(7001, 301));
        row("smallest preview",    QSize(1600, 1200), QSize(400, 300));
        // clang-format on
    }

    void sameBytesAsQt()
    {
        QFETCH(QSize, source);
        QFETCH(QSize, target);
        FrameEncoder encoder;
        QList<QImage::Format> formats{QImage::Format_RGB32, QImage::Format_RGB888};
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
        formats << QImage::Format_BGR888;
#endif
        for (const QImage::Format format : qAsConst(formats)) {
            const QImage frame = picture(source, format);
            QVERIFY2(encoder.encode(frame, target) == expected(frame, target),
                     qPrintable(QStringLiteral("format %1").arg(format)));
        }
    }

    void sameBytesAsQtAtAnySize()
    {
        FrameEncoder encoder;
        QRandomGenerator random(1818);
        const auto size = [&random](int max) {
            return QSize(1 + random.bounded(max), 1 + random.bounded(max));
        };
        for (int i = 0; i < 300; ++i) {
            const QSize source = size(200);
            const QSize target = size(400);
            const auto format = i % 2 == 0 ? QImage::Format_RGB32 : QImage::Format_RGB888;
            const QImage frame = picture(source, format);
            if (encoder.encode(frame, target) != expected(frame, target)) {
                qWarning() << source << target << format;
                QFAIL("not the file that Qt makes");
            }
        }
    }

    void densityIsTheFrames()
    {
        FrameEncoder encoder;
        QImage frame = picture({320, 240}, QImage::Format_RGB888);
        for (int perMeter = 0; perMeter < 30000; perMeter = perMeter * 9 / 8 + 1) {
            frame.setDotsPerMeterX(perMeter);
            frame.setDotsPerMeterY(perMeter * 5 / 7);
            QVERIFY2(encoder.encode(frame, {400, 300}) == expected(frame, {400, 300}),
                     qPrintable(QString::number(perMeter)));
        }
    }

    void otherImagesAreLeftToQt()
    {
        FrameEncoder encoder;
        for (const QImage::Format format :
             {QImage::Format_Grayscale8, QImage::Format_ARGB32, QImage::Format_Mono}) {
            const QImage frame = picture({640, 480}, format);
            QVERIFY(encoder.encode(frame, {400, 300}) == expected(frame, {400, 300}));
        }
        QImage commented = picture({640, 480}, QImage::Format_RGB32);
        commented.setText(QStringLiteral("Camera"), QStringLiteral("main"));
        QVERIFY(encoder.encode(commented, {400, 300}) == expected(commented, {400, 300}));
        QImage dense = picture({640, 480}, QImage::Format_RGB32);
        dense.setDevicePixelRatio(2);
        QVERIFY(encoder.encode(dense, {400, 300}) == expected(dense, {400, 300}));
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
        QImage profiled = picture({640, 480}, QImage::Format_RGB32);
        profiled.setColorSpace(QColorSpace::AdobeRgb);
        QVERIFY(encoder.encode(profiled, {400, 300}) == expected(profiled, {400, 300}));
#endif
    }

    void sizesWithoutAJpeg()
    {
        FrameEncoder encoder;
        const QImage frame = picture({64, 48}, QImage::Format_RGB32);
        QVERIFY(encoder.encode(QImage(), {400, 300}).isEmpty());
        QVERIFY(encoder.encode(frame, {-800, 600}).isEmpty());
        QVERIFY(encoder.encode(frame, {400, 0}).isEmpty());
        QVERIFY(encoder.encode(frame, {65501, 1}).isEmpty());
        for (const int width : {32766, 32767, 65500}) {
            QVERIFY(encoder.encode(frame, {width, 1}) == expected(frame, {width, 1}));
        }
    }

    void filesThatATextHasRoomFor()
    {
        const std::size_t MiB = std::size_t(1) << 20;
        QVERIFY(FrameEncoder::textLength(4) == 8);
        QVERIFY(FrameEncoder::textLength(512 * MiB).value_or(0) > int(682 * MiB));
        for (const std::size_t tooLong : {512 * MiB + 1, 1600 * MiB, 4096 * MiB}) {
            QVERIFY(!FrameEncoder::textLength(tooLong));
        }
    }

    void textsInUseStayUnchanged()
    {
        FrameEncoder encoder;
        const QSize size{400, 300};
        QList<QByteArray> kept;
        QList<QByteArray> copies;
        for (int width = 40; width < 60; ++width) {
            const QImage frame = picture({width, 48}, QImage::Format_RGB888);
            kept << encoder.encode(frame, size);
            copies << expected(frame, size);
        }
        QVERIFY(kept == copies);
    }

    void oneHugeFrameKeepsNoMemory()
    {
        FrameEncoder encoder;
        const QImage frame = picture({800, 600}, QImage::Format_RGB888);
        for (int i = 0; i < 4; ++i) {
            QVERIFY(encoder.encode(frame, {4000, 3000}).size() > 1 << 20);
        }
        for (int i = 0; i < 8; ++i) { // its buffers take turns, and shrink by and by
            const QByteArray text = encoder.encode(frame, {400, 300});
            QVERIFY2(text.capacity() < 1 << 20, qPrintable(QString::number(text.capacity())));
            QVERIFY(text == expected(frame, {400, 300}));
        }
    }
};

QTEST_GUILESS_MAIN(TestFrameEncoder)
#include "tst_frameencoder.moc"
