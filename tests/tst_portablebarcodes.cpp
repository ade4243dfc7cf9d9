// SPDX-License-Identifier: MIT
// What the portable library reads in codes that another program (zint) has made.
#include "devicelib/doccamera.h"
#include "portable/camera/testsheet.h"
#include "portable/picture/barcodereader.h"
#include "portable/picture/imageconversion.h"
#include "tests/portabletest.h"

#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>
#include <dlfcn.h>
#include <opencv2/imgproc.hpp>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

using namespace portable;

namespace {

/// zint's numbers of the types of codes ("zint -t").
enum Type { itf = 3, code39 = 8, ean = 13, codabar = 18, code128 = 20, code93 = 25, dataBar = 29 };
enum DataBarType { dataBarStacked = 79, dataBarExpanded = 31 };
enum MatrixType { pdf417 = 55, qr = 58, dataMatrix = 71, aztec = 92 };

QStringList sorted(const QString &texts)
{
    QStringList list = texts.split(QLatin1Char('|'));
    list.sort();
    return list;
}

} // namespace

class TestPortableBarcodes : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable(line("zint")).isEmpty()) {
            QSKIP("the package zint is not installed");
        }
        // The library that is linked into this program looks for its worker beside it.
        const QString worker = QCoreApplication::applicationDirPath() + line("/barcodeworker");
        QFile::remove(worker);
        QVERIFY(QFile::link(line(BARCODE_WORKER), worker));
    }

    void init()
    {
        PortableTest::init();
        m_page = emptyPage(640, 600);
    }

    void cleanup()
    {
        bStopPlay();
        PortableTest::cleanup();
    }

    void kinds_data()
    {
        const Rows<int, QByteArray, int> row("type", "content", "kind");
        // clang-format off
        row("QR",          qr,         "https://example.com/?a=1&b=2", 1);
        row("Data Matrix", dataMatrix, "LOT 4711",                     2);
        row("PDF417",      pdf417,     "ID 110101198001011234",        3);
        row("Code 128",    code128,    "SAMPLE-000128",                4);
        row("Code 39",     code39,     "A-39",                         5);
        row("EAN-13",      ean,        "5901234123457",                6);
        row("Code 93",     code93,     "CODE 93",                      7);
        row("Codabar",     codabar,    "A123456B",                     8);
        row("ITF",         itf,        "12345678",                     9);
        row("Aztec",       aztec,      "TICKET 12",                   10);
        row("GS1 DataBar", dataBar,    "03612345678904",               11);
        row("expanded",    dataBarExpanded, "[01]09501101530003",      11);
        // clang-format on
    }

    void kinds()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, content);
        QFETCH(int, kind);
        QString expected = QString::fromLatin1(content);
        if (type == codabar) {
            expected = expected.mid(1, 6); // its start and stop letters are no text
        }
        place(code(type, content), {350, 320});
        const QByteArray file = savedPage();
        const QString all = taken(sGetBarCodeEx(0, file.constData()));
        if (type == dataBarExpanded) {
            if (all.isEmpty()) {
                QSKIP("ZXing 1.4 doesn't read it");
            }
            expected = line("0109501101530003"); // without brackets
        }
        QCOMPARE(all, expected);
        QCOMPARE(taken(sGetBarCodeEx(kind, file.constData())), expected);
        QCOMPARE(taken(sGetBarCodeEx(kind % 11 + 1, file.constData())), QString());
        QCOMPARE(m_log->takeLines(), QStringList());
    }

    /// Three pixels a module, as an A4 page in a frame of 1920x1080 has them, out of focus.
    void blurredCodes_data()
    {
        const Rows<int, QByteArray> row("type", "content");
        row("Code 128", code128, "SAMPLE-000128");
        row("EAN-13", ean, "5901234123457");
        row("Code 93", code93, "CODE 93");
    }

    void blurredCodes()
    {
        if (!dlopen("libzbar.so.0", RTLD_NOW)) {
            QSKIP("the package libzbar0 is not installed");
        }
        QFETCH(int, type);
        QFETCH(QByteArray, content);
        m_page = emptyPage(900, 500);
        place(code(type, content, 50, "1.5"), {450, 250});
        cv::Mat page(m_page.height(), m_page.width(), CV_8UC4, m_page.bits(),
                     size_t(m_page.bytesPerLine()));
        cv::GaussianBlur(page, page, cv::Size(), 2.1);
        const QByteArray file = savedPage();
        QCOMPARE(taken(sGetBarCodeEx(0, file.constData())), QString::fromLatin1(content));
        QCOMPARE(taken(sGetBarCodeEx(1, file.constData())), QString());
    }

    void turnedCodes_data()
    {
        const Rows<int, int> row("type", "angle");
        for (int angle : {24, 223}) {
            for (int type : {int(qr), int(dataMatrix), int(pdf417), int(code128), int(code39)}) {
                QTest::addRow("zint %d by %d degrees", type, angle) << type << angle;
            }
        }
    }

    void turnedCodes()
    {
        QFETCH(int, type);
        QFETCH(int, angle);
        place(code(type, "ASKEW 123"), {320, 300}, angle);
        QCOMPARE(taken(sGetBarCode(savedPage().constData())), line("ASKEW 123"));
    }

    void severalCodes_data()
    {
        const Rows<int> row("angle");
        row("upright", 0);
        row("page far askew", -28);
    }

    void severalCodes()
    {
        QFETCH(int, angle);
        m_page = emptyPage(1300, 860);
        place(code(code128, "ONE", 60), {200, 130});
        place(code(code128, "TWO", 60), {200, 320});
        place(code(code128, "ONE", 60), {200, 510}); // said once
        place(code(code39, "HIGH", 250), {950, 300}); // one that many scan lines cross
        place(code(qr, "FOUR"), {530, 180});
        place(code(dataMatrix, "FIVE"), {530, 440});
        place(code(pdf417, "SIX SIX SIX SIX"), {500, 720});
        QImage desk(QTransform().rotate(angle).mapRect(m_page.rect()).size(), QImage::Format_RGB32);
        desk.fill(QColor(120, 90, 60));
        QPainter painter(&desk);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.translate(desk.rect().center());
        painter.rotate(angle);
        painter.drawImage(-m_page.rect().center(), m_page);
        painter.end();
        m_page = desk;
        const QByteArray file = savedPage();
        QCOMPARE(sorted(taken(sGetBarCode(file.constData()))),
                 sorted(line("ONE|TWO|HIGH|FOUR|FIVE|SIX SIX SIX SIX")));
        QCOMPARE(sorted(taken(sGetBarCodeEx(4, file.constData()))), sorted(line("ONE|TWO")));
    }

    void encodings_data()
    {
        const Rows<QByteArray, QString> row("content", "expected");
        const QString chinese = line("张三|业务办理 3号柜台");
        row("UTF-8", chinese.toUtf8(), chinese);
        row("GBK", QTextCodec::codecForName("GBK")->fromUnicode(chinese), chinese);
        row("accents", "Caf\xc3\xa9 Z\xc3\xbcrich", "Café Zürich");
        row("zero byte", QByteArray("before\0after", 12), "beforeafter");
    }

    void encodings()
    {
        QFETCH(QByteArray, content);
        place(code(qr, content), {320, 300});
        const QByteArray file = savedPage("二维码.png");
        QTEST(taken(sGetBarCode(file.constData())), "expected");
    }

    /// ZXing 1.4 to 2.x abort on some of these.
    void turnedDataBars_data()
    {
        const Rows<int, int> row("type", "angle");
        row("stacked", dataBarStacked, 0);
        row("by 10 degrees", dataBar, 10);
        row("stacked, by 10 degrees", dataBarStacked, 10);
        row("by 25 degrees", dataBar, 25);
        row("by 70 degrees", dataBar, 70);
        row("expanded", dataBarExpanded, 0);
        row("expanded, by 45 degrees", dataBarExpanded, 45);
    }

    void turnedDataBars()
    {
        QFETCH(int, type);
        QFETCH(int, angle);
        const bool isExpanded = type == dataBarExpanded;
        const QByteArray number = isExpanded ? "[11]991231[10]A(B)[21]7" : "0950110153001";
        const QString expected = line(isExpanded ? "1199123110A(B)\035217" : "09501101530010");
        m_page = emptyPage(1100, 700);
        place(code(type, number, 33, "3"), {350, 350}, angle);
        place(code(qr, "STILL READ"), {950, 150});
        place(code(code128, "AND THIS"), {950, 500}, 90); // found after the others
        const QByteArray file = savedPage();
        QStringList texts = taken(sGetBarCode(file.constData())).split(QLatin1Char('|'));
        QVERIFY(texts.removeOne(line("STILL READ")) && texts.removeOne(line("AND THIS")));
        const bool canBeRead = type == dataBar && angle <= 25; // by each version of ZXing
        QCOMPARE(texts, canBeRead || !texts.isEmpty() ? QStringList(expected) : QStringList());
        taken(sGetBarCodeEx(11, file.constData()));
        QCOMPARE(m_log->takeLines(), QStringList()); // the decoder hasn't failed
    }

    /// All triples of what looks like a corner of a QR code are tried: hours.
    void endlessSearch()
    {
        m_page = emptyPage(900, 900);
        QPainter painter(&m_page);
        for (int x = 10; x < 860; x += 30) {
            for (int y = 10; y < 860; y += 30) {
                painter.fillRect(x, y, 21, 21, Qt::black);
                painter.fillRect(x + 3, y + 3, 15, 15, Qt::white);
                painter.fillRect(x + 6, y + 6, 9, 9, Qt::black);
            }
        }
        painter.end();
        const QString children = line("/proc/self/task/%1/children").arg(::getpid());
        const QByteArray others = contentOf(children); // the worker of the exported functions
        QCOMPARE(readBarcodes(toMat(m_page), anyBarcode, std::chrono::milliseconds(300)),
                 QStringList());
        QCOMPARE(m_log->takeLines(),
                 QStringList(line("barcodes: the picture takes far too long and is abandoned")));
        QCOMPARE(contentOf(children), others); // nothing goes on searching

        // The next worker can be ended too, though threads of the server block signals.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        QVERIFY(::pthread_sigmask(SIG_BLOCK, &all, &before) == 0);
        QCOMPARE(readBarcodes(cv::Mat(9, 9, CV_8U, cv::Scalar(255))), QStringList());
        QVERIFY(::pthread_sigmask(SIG_SETMASK, &before, nullptr) == 0);
        const QString worker =
            QString::fromLatin1(contentOf(children).mid(others.size()).trimmed());
        QVERIFY2(
            contentOf(line("/proc/%1/status").arg(worker)).contains("SigBlk:\t0000000000000000"),
            qPrintable(worker));
    }

    void pictureWithoutCode()
    {
        QPainter painter(&m_page);
        for (int row = 0; row < 30; ++row) {
            painter.drawText(100, 100 + 25 * row, line("||| I1I1I1 lllll 业务办理 |||"));
        }
        painter.end();
        QCOMPARE(taken(sGetBarCode(savedPage().constData())), QString());
        m_page = emptyPage(1, 1);
        QCOMPARE(taken(sGetBarCode(savedPage().constData())), QString());
        for (const QSize &size : {QSize(9000, 1), QSize(2, 9000)}) {
            m_page = emptyPage(size.width(), size.height());
            QCOMPARE(taken(sGetBarCodeEx(2, savedPage().constData())), QString());
        }
        QCOMPARE(m_log->takeLines(), QStringList());
    }

    void whatIsNoPicture()
    {
        place(code(qr, "CUT"), {320, 300});
        const QByteArray whole = savedPage("whole.png");
        QFile file(QFile::decodeName(whole));
        QVERIFY(file.open(QIODevice::ReadWrite) && file.resize(60));
        const QByteArray absent = QFile::encodeName(m_folder->filePath(line("absent")));
        const QByteArray folder = QFile::encodeName(m_folder->path());
        for (const QByteArray &path : {whole, absent, folder, QByteArray()}) {
            QVERIFY(taken(sGetBarCode(path.constData())).isNull());
            const QStringList lines = m_log->takeLines();
            QVERIFY2(lines.size() == 1
                         && lines[0].startsWith(line("sGetBarCode: ") + QFile::decodeName(path)
                                                + QLatin1Char(':')),
                     qPrintable(lines.join(QLatin1Char('\n'))));
        }
        for (const long kind : {-1L, 12L, LONG_MAX}) {
            QVERIFY(taken(sGetBarCodeEx(kind, absent.constData())).isNull());
            QCOMPARE(m_log->takeLines(),
                     QStringList(line("sGetBarCodeEx: there is no kind %1").arg(kind)));
        }
    }

    void codesBeforeTheCamera()
    {
        QVERIFY(taken(sGetBarCodeOnline()).isNull());
        QCOMPARE(m_log->takeLines().size(), 1);
        useIni("[cameras]\n1=scene\n[scene]\nsize=1280x720\n");
        QVERIFY(bStartPlay(0));
        QCOMPARE(sorted(taken(sGetBarCodeOnline())),
                 sorted(testSheetQrText() + QLatin1Char('|') + testSheetCode128Text()));
    }

private:
    static QImage emptyPage(int width, int height)
    {
        QImage page(width, height, QImage::Format_RGB32);
        page.fill(QColor(244, 242, 236));
        return page;
    }

    /// A code as zint draws it. \param height  of a linear one, in modules
    QImage code(int type, const QByteArray &content, int height = 50, const char *scale = "1.5")
    {
        const QString input = path("content");
        const QString output = path("code.png");
        writeFile(input, content);
        outputOf("zint",
                 words("--binary --notext --scale %3 -b %1 --height %2 -o")
                         .replaceInStrings(line("%1"), QString::number(type))
                         .replaceInStrings(line("%2"), QString::number(height))
                         .replaceInStrings(line("%3"), line(scale))
                     << output << line("-i") << input); // in this order for 2.9
        const QImage bare(output);
        const int quiet = int(20 * QByteArray(scale).toDouble()); // 10 modules
        QImage framed(bare.size() + QSize(2 * quiet, 2 * quiet), QImage::Format_RGB32);
        framed.fill(Qt::white);
        QPainter(&framed).drawImage(quiet, quiet, bare);
        return bare.isNull() ? bare : framed;
    }

    /// Draws a code on the page around a point, turned clockwise.
    void place(const QImage &code, const QPoint &middle, int angle = 0)
    {
        QVERIFY2(!code.isNull(), "zint has made no code");
        QPainter painter(&m_page);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.translate(middle);
        painter.rotate(angle);
        painter.drawImage(-code.rect().center(), code);
    }

    QByteArray savedPage(const char *name = "page.png")
    {
        const QString path = m_folder->filePath(QString::fromUtf8(name));
        return m_page.save(path) ? path.toLocal8Bit() : QByteArray();
    }

    QImage m_page;
};

QTEST_MAIN(TestPortableBarcodes)
#include "tst_portablebarcodes.moc"
