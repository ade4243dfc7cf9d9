// SPDX-License-Identifier: MIT
// PDF and OFD documents and merged pictures, through the exported functions; what they write is
// looked at by other programs.
#include "devicelib/doccamera.h"
#include "portable/document/documentbuilder.h"
#include "portable/document/pagespool.h"
#include "portable/picture/bilevel.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/picturewriter.h"
#include "tests/fulldisk.h"
#include "tests/portabletest.h"

#include <QImageReader>
#include <QPainter>
#include <QtTest>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <limits>
#include <thread>

namespace {

/**
 * White, with shrinking black lines at the top and red ones at the lower left: turned or flipped it
 * is another picture.
 */
QImage picture(int width, int height, int dpi = 0)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    for (int i = 0; i < 6; ++i) {
        painter.fillRect(width / 10, height * (2 + i) / 16, width * (8 - i) / 10, height / 40 + 1,
                         Qt::black);
        painter.fillRect(width * (2 + i) / 20, height * 6 / 10, width / 40 + 1, height * 3 / 10,
                         Qt::red);
    }
    image.setDotsPerMeterX(qRound(dpi / 0.0254));
    image.setDotsPerMeterY(image.dotsPerMeterX());
    return image;
}

/// The mean difference of their pixels, grey and 0 to 255.
double difference(const QImage &a, const QImage &b)
{
    const QSize size(60, 60);
    const auto grey = [&size](const QImage &image) {
        return image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
            .convertToFormat(QImage::Format_Grayscale8);
    };
    const QImage first = grey(a);
    const QImage second = grey(b);
    double sum = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            sum += qAbs(qGray(first.pixel(x, y)) - qGray(second.pixel(x, y)));
        }
    }
    return sum / (size.width() * size.height());
}

/// Whether it shows the picture, and not one that is flipped, turned or inverted.
bool shows(const QImage &image, const QImage &expected)
{
    QImage inverted = expected;
    inverted.invertPixels();
    const double far =
        std::min({difference(image, expected.mirrored(true, false)),
                  difference(image, expected.mirrored(false, true)), difference(image, inverted)});
    return !image.isNull() && 2 * difference(image, expected) < far;
}

/// Of all elements of an XML file in their order: the name, then attributes and text.
struct Element
{
    QString name;
    QXmlStreamAttributes attributes;
    QString text;
};

QVector<Element> elementsOf(const QByteArray &xml)
{
    QVector<Element> elements;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            if (reader.namespaceUri() != QLatin1String("http://www.ofdspec.org/2016")) {
                QTest::qFail("an element of another namespace", __FILE__, __LINE__);
            }
            elements.append({reader.name().toString(), reader.attributes(), QString()});
        } else if (reader.isCharacters() && !elements.isEmpty()) {
            elements.last().text += reader.text();
        }
    }
    if (reader.hasError()) {
        QTest::qFail(qPrintable(reader.errorString()), __FILE__, __LINE__);
    }
    return elements;
}

QStringList namesOf(const QVector<Element> &elements)
{
    QStringList names;
    for (const Element &element : elements) {
        names << element.name;
    }
    return names;
}

// The functions with a text, for the texts of Qt.

bool startPdf(const QByteArray &directory, const QByteArray &name)
{
    return bSavePDFStart(directory.constData(), name.constData());
}

bool startOfd(const QByteArray &directory, const QByteArray &name)
{
    return bSaveOFDStart(directory.constData(), name.constData());
}

bool startMerge(const QByteArray &directory, const QByteArray &name, int direction = 0, int gap = 0,
                qint64 width = 0, qint64 height = 0)
{
    return bSaveMergeStart(directory.constData(), name.constData(), short(direction), short(gap),
                           width, height);
}

bool addToPdf(const QString &image, float number = -1)
{
    return bAddPDFColorPage(image.toLocal8Bit().constData(), number);
}

bool addInkToPdf(const QString &image, float number = -1)
{
    return bAddPDFBWPage(image.toLocal8Bit().constData(), number);
}

bool addToOfd(const QString &image, float number = 1)
{
    return bAddOFDPage(image.toUtf8().constData(), number);
}

bool addTextToPdf(const QByteArray &base64)
{
    return bAddPDFBase64ColorPage(base64.constData());
}

bool addTextToOfd(const QByteArray &base64)
{
    return bAddOFDBase64ColorPage(base64.constData());
}

} // namespace

class TestPortableDocuments : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        QVERIFY(QDir(m_folder->path()).mkdir(line("spool")));
        qputenv("TMPDIR", QFile::encodeName(path("spool")));
    }

    void cleanup()
    {
        bSavePDFEnd();
        bSaveOFDEnd();
        bSaveMergeEnd();
        QVERIFY(bStopPlay());
        qunsetenv("TMPDIR");
        QCOMPARE(everythingIn(path("spool")), QStringList());
        PortableTest::cleanup();
    }

    void pdfOfShots()
    {
        const QImage page = picture(640, 480);
        useCamera(page);
        QVERIFY(vSetDPI(160, 160));
        QVERIFY(startPdf(folder("a/b"), "扫描"));
        QVERIFY(bSavePDFColorPage());
        QVERIFY(bSavePDFBWPage());
        QVERIFY(!QFile::exists(path("a")));
        QVERIFY(bSavePDFEnd());
        QCOMPARE(m_log->takeLines(), QStringList());
        const QString pdf = path("a/b/扫描.pdf");
        QCOMPARE(QDir(path("a/b")).entryList(QDir::Files | QDir::Hidden),
                 QStringList(line("扫描.pdf")));

        checkPdf(pdf);
        QCOMPARE(pageSizes(pdf), QStringList({line("288 x 216"), line("288 x 216")}));
        QCOMPARE(imagesOf(pdf),
                 QStringList({line("640 480 rgb 8 jpeg 160"), line("640 480 gray 1 ccitt 160")}));
        for (const QImage &rendered : renderedPages(pdf)) {
            QCOMPARE(rendered.size(), QSize(200, 150));
            QVERIFY(shows(rendered, page));
        }
    }

    void pdfSaysWhatItIs_data()
    {
        const Rows<bool> row("isArchive");
        row("plain", false);
        row("PDF/A-2b", true);
    }

    void pdfSaysWhatItIs()
    {
        QFETCH(bool, isArchive);
        useCamera(picture(400, 300));
        useIni(isArchive ? "[documents]\npdfa=true\n" : "");
        const QString pdf = path("合同 <1> & 2.pdf");
        QVERIFY(startPdf(folder(""), "合同 <1> & 2"));
        QVERIFY(bSavePDFColorPage() && bSavePDFBWPage() && bSavePDFEnd());
        checkPdf(pdf);
        const QString info = QString::fromUtf8(outputOf("pdfinfo", {line("-isodates"), pdf}))
                                 .replace(QRegularExpression(line(" +")), line(" ")); // of columns
        const QString today = QDateTime::currentDateTimeUtc().toString(line("yyyy-MM-dd"));
        for (const QString &said :
             {line("Title: 合同 <1> & 2\n"), line("Producer: portable device library "),
              line("PDF version: 1.7\n"), line("CreationDate: ") + today,
              line("ModDate: ") + today}) {
            QVERIFY2(info.contains(said), qPrintable(info));
        }
        const QByteArray metadata = outputOf("pdfinfo", {line("-meta"), pdf});
        QVERIFY(metadata.contains(">合同 &lt;1&gt; &amp; 2</rdf:li>"));
        QVERIFY(metadata.contains("<xmp:CreateDate>" + today.toUtf8()));
        QCOMPARE(metadata.contains("<pdfaid:part>2</pdfaid:part>"), isArchive);
        const QByteArray objects = outputOf("qpdf", {line("--qdf"), pdf, line("-")});
        QCOMPARE(objects.contains("/S /GTS_PDFA1"), isArchive);
        QCOMPARE(objects.contains("mntrRGB XYZ"), isArchive);
    }

    void pdfOfFiles()
    {
        QVERIFY(vSetDPI(300, 300));
        QVERIFY(picture(400, 300, 200).save(path("color.jpg"), "JPG", 80));
        QVERIFY(picture(300, 300, 150)
                    .convertToFormat(QImage::Format_Grayscale8)
                    .save(path("灰.jpeg")));
        QByteArray silent = contentOf(path("color.jpg"));
        silent[13] = 0; // the unit of its JFIF density: none
        writeFile(path("silent.jpg"), silent);
        QByteArray absurd = contentOf(path("color.jpg"));
        absurd.replace(14, 4, QByteArray("\0\1\0\1", 4)); // 1 dpi
        writeFile(path("absurd.jpg"), absurd);
        QVERIFY(picture(500, 300, 120).save(path("page.png")));
        QVERIFY(picture(500, 250, 100).save(path("page.bmp")));
        const cv::Mat ink = portable::bilevel(portable::toMat(picture(400, 300)));
        writeFile(path("page.tif"), portable::bilevelTiffFile(ink, {250, 250}));

        QVERIFY(startPdf(folder(""), "files.PDF"));
        for (const char *name : {"color.jpg", "灰.jpeg", "silent.jpg", "absurd.jpg", "page.png"}) {
            QVERIFY2(addToPdf(path(name)), name);
        }
        QVERIFY(addInkToPdf(path("page.bmp")));
        QVERIFY(addInkToPdf(path("page.tif")));
        QVERIFY(addTextToPdf(contentOf(path("color.jpg")).toBase64()));
        QVERIFY(addTextToPdf("data:image/png;base64," + contentOf(path("page.png")).toBase64()));
        QVERIFY(bSavePDFEnd());
        QCOMPARE(m_log->takeLines(), QStringList());

        const QString pdf = path("files.PDF");
        checkPdf(pdf);
        QCOMPARE(imagesOf(pdf),
                 QStringList({line("400 300 rgb 8 jpeg 200"), line("300 300 gray 8 jpeg 150"),
                              line("400 300 rgb 8 jpeg 300"), line("400 300 rgb 8 jpeg 300"),
                              line("500 300 rgb 8 jpeg 120"), line("500 250 gray 1 ccitt 100"),
                              line("400 300 gray 1 ccitt 250"), line("400 300 rgb 8 jpeg 200"),
                              line("500 300 rgb 8 jpeg 120")}));
        for (const QImage &rendered : renderedPages(pdf)) {
            QVERIFY(shows(rendered, picture(400, 300)));
        }
        outputOf("pdfimages", {line("-all"), pdf, path("out")});
        QCOMPARE(contentOf(path("out-000.jpg")), contentOf(path("color.jpg")));
        QCOMPARE(contentOf(path("out-001.jpg")), contentOf(path("灰.jpeg")));
        QCOMPARE(contentOf(path("out-002.jpg")), silent);
        QCOMPARE(contentOf(path("out-003.jpg")), absurd);
        QCOMPARE(contentOf(path("out-007.jpg")), contentOf(path("color.jpg")));
    }

    void pagesThatWereHeldAskewAreUpright()
    {
        // EXIF orientation 6: to be turned clockwise by a quarter.
        const QByteArray exif("\xff\xe1\0\x22"
                              "Exif\0\0"
                              "MM\0*\0\0\0\x08"
                              "\0\1\x01\x12\0\3\0\0\0\1\0\6\0\0\0\0\0\0",
                              36);
        QTransform back;
        back.rotate(-90);
        QVERIFY(picture(400, 200).transformed(back).save(path("askew.jpg")));
        QByteArray jpeg = contentOf(path("askew.jpg"));
        writeFile(path("askew.jpg"), jpeg.insert(2, exif));
        QVERIFY(startPdf(folder(""), "askew"));
        QVERIFY(addToPdf(path("askew.jpg")));
        QVERIFY(addInkToPdf(path("askew.jpg")));
        QVERIFY(bSavePDFEnd());
        for (const QImage &rendered : renderedPages(path("askew.pdf"))) {
            QVERIFY(rendered.width() > rendered.height());
            QVERIFY(shows(rendered, picture(400, 200)));
        }
    }

    void positionOfAPage_data()
    {
        // index: among three pages
        const Rows<float, int> row("number", "index");
        const float nan = std::numeric_limits<float>::quiet_NaN();
        const float infinity = std::numeric_limits<float>::infinity();
        row("the default of a PDF", -1.f, 3);
        row("the default of an OFD", 1.f, 3);
        row("a text that is no number", 0.f, 3);
        row("second", 2.f, 1);
        row("last", 3.f, 2);
        row("behind the last", 4.f, 3);
        row("between", 2.5f, 3);
        row("far away", 1e30f, 3);
        row("nan", nan, 3);
        row("infinity", infinity, 3);
        row("minus infinity", -infinity, 3);
    }

    void positionOfAPage()
    {
        QFETCH(float, number);
        QTEST(int(portable::pageIndex(number, 3)), "index");
        QCOMPARE(portable::pageIndex(2, 0), std::size_t(0));
    }

    void ofdOfShotsAndFiles()
    {
        const QImage page = picture(640, 480);
        useCamera(page);
        QVERIFY(vSetDPI(254, 127));
        QVERIFY(picture(300, 200, 100).save(path("文件.jpg")));
        QVERIFY(startOfd(folder(""), "文档"));
        QVERIFY(bSaveOFDColorPage());
        QVERIFY(bSaveOFDBWPage());
        QVERIFY(addToOfd(path("文件.jpg"), 2));
        QVERIFY(addTextToOfd(contentOf(path("文件.jpg")).toBase64()));
        QVERIFY(bSaveOFDEnd());
        QCOMPARE(m_log->takeLines(), QStringList());

        outputOf("unzip", {line("-q"), path("文档.ofd"), line("-d"), path("ofd")});
        QVERIFY(contentOf(path("ofd/OFD.xml")).contains("<ofd:OFD ")); // readers expect the prefix
        const auto ofd = elementsOf(contentOf(path("ofd/OFD.xml")));
        QCOMPARE(namesOf(ofd).join(QLatin1Char(' ')),
                 line("OFD DocBody DocInfo DocID CreationDate Creator DocRoot"));
        QVERIFY(QRegularExpression(line("^[0-9a-f]{32}$")).match(ofd[3].text).hasMatch());

        const auto document = elementsOf(contentOf(path("ofd/") + ofd.last().text));
        QCOMPARE(namesOf(document).join(QLatin1Char(' ')),
                 line("Document CommonData MaxUnitID PageArea PhysicalBox DocumentRes "
                      "Pages Page Page Page Page"));
        QSet<int> ids;
        QMap<QString, QString> files; // by the identifiers of resources
        const auto resources = elementsOf(contentOf(path("ofd/Doc_0/DocumentRes.xml")));
        const QString place = resources.first().attributes.value(line("BaseLoc")).toString();
        for (int i = 2; i < resources.size(); i += 2) {
            QCOMPARE(resources[i].name, line("MultiMedia"));
            QCOMPARE(resources[i].attributes.value(line("Type")).toString(), line("Image"));
            const QString id = resources[i].attributes.value(line("ID")).toString();
            files[id] = path("ofd/Doc_0/") + place + QLatin1Char('/') + resources[i + 1].text;
            ids << id.toInt();
            QCOMPARE(resources[i].attributes.value(line("Format")).toString(),
                     files[id].endsWith(line(".png")) ? line("PNG") : line("JPEG"));
        }
        QStringList boxes;
        QList<QImage> images;
        for (int i = 7; i < document.size(); ++i) {
            ids << document[i].attributes.value(line("ID")).toInt();
            const auto content = elementsOf(contentOf(
                path("ofd/Doc_0/") + document[i].attributes.value(line("BaseLoc")).toString()));
            QCOMPARE(namesOf(content).join(QLatin1Char(' ')),
                     line("Page Area PhysicalBox Content Layer ImageObject"));
            const QXmlStreamAttributes image = content[5].attributes;
            boxes << content[2].text;
            QCOMPARE(image.value(line("Boundary")).toString(), content[2].text);
            const QStringList numbers = content[2].text.split(QLatin1Char(' '));
            QCOMPARE(image.value(line("CTM")).toString(),
                     line("%1 0 0 %2 0 0").arg(numbers[2], numbers[3]));
            ids << content[4].attributes.value(line("ID")).toInt()
                << image.value(line("ID")).toInt();
            images << QImage(files.value(image.value(line("ResourceID")).toString()));
            QVERIFY(shows(images.last(), page));
        }
        QCOMPARE(boxes,
                 QStringList({line("0 0 64.000 96.000"), line("0 0 76.200 50.800"),
                              line("0 0 64.000 96.000"), line("0 0 76.200 50.800")}));
        QVERIFY(images[2].format() == QImage::Format_Mono);
        QCOMPARE(ids.size(), 4 * 4); // no number twice
        QCOMPARE(document[2].text.toInt(), *std::max_element(ids.begin(), ids.end()));
        QCOMPARE(contentOf(path("ofd/Doc_0/Res/Image_1.jpg")), contentOf(path("文件.jpg")));
    }

    void mergedPictures_data()
    {
        // size: of three pictures of 800 x 400
        const Rows<int, int, qint64, qint64, QSize, double> row("direction", "gap", "width",
                                                                "height", "size", "scale");
        const qint64 much = std::numeric_limits<qint64>::max();
        // clang-format off
        //   what                direction  gap  width  height  result        scale
        row("one under another",     0,      10,     0,      0, {800, 1220},  1);
        row("side by side",          1,       0,  much,   much, {2400, 400},  1);
        row("no wider than",         0,     200,   400,      0, {400, 800},   0.5);
        row("no higher than",        1,     400,  much,    100, {800, 100},   0.25);
        // clang-format on
    }

    void mergedPictures()
    {
        QFETCH(int, direction);
        QFETCH(int, gap);
        QFETCH(qint64, width);
        QFETCH(qint64, height);
        QFETCH(double, scale);
        QVERIFY(vSetDPI(300, 300));
        const QImage page = picture(800, 400);
        const QImage pages[] = {page, page.mirrored(true, false), page};
        QVERIFY(startMerge(folder("new"), "合.jpg", direction, gap, width, height));
        for (const QImage &each : pages) {
            useCamera(each);
            QVERIFY(bSaveMergePage());
        }
        QVERIFY(bSaveMergeEnd());
        const QImage merged(path("new/合.jpg"));
        QTEST(merged.size(), "size");
        QCOMPARE(qRound(merged.dotsPerMeterX() * 0.0254), qRound(300 * scale));
        const QPoint step = direction == 0 ? QPoint(0, 400 + gap) : QPoint(800 + gap, 0);
        for (int i = 0; i < 3; ++i) {
            const QRect place((step * i * scale), page.size() * scale);
            QVERIFY(shows(merged.copy(place), pages[i]));
        }
        const QPoint middle =
            direction == 0 ? QPoint(400, 400 + gap / 2) : QPoint(800 + gap / 2, 200);
        QVERIFY(qGray(merged.pixel(middle * scale)) > 250);
    }

    void mergedPictureStaysWithinJpeg()
    {
        useCamera(picture(40, 1200));
        QVERIFY(startMerge(folder(""), "long", 0, 1000, 0, 0));
        for (int i = 0; i < 60; ++i) {
            QVERIFY(bSaveMergePage());
        }
        QVERIFY(bSaveMergeEnd());
        const QSize size = QImageReader(path("long.jpg")).size();
        QCOMPARE(size, QSize(20, 65500)); // of 40 x 131000
        QCOMPARE(m_log->takeLines().size(), 1);
    }

    void imagesThatAreNone()
    {
        QVERIFY(picture(400, 300).save(path("good.jpg")));
        QVERIFY(picture(400, 300).save(path("good.png")));
        const QByteArray jpeg = contentOf(path("good.jpg"));
        const QByteArray png = contentOf(path("good.png"));
        QByteArray huge = jpeg;
        const int frame = huge.indexOf("\xff\xc0"); // height and width follow
        huge.replace(frame + 5, 4, "\xff\xdc\xff\xdc");
        QByteArray hugePng = png;
        hugePng.replace(16, 8, QByteArray("\0\1\0\0\0\1\0\0", 8));
        QByteArray broken = jpeg;
        broken.replace(jpeg.size() / 2, 20, QByteArray(20, '\x55'));
        const QVector<QPair<const char *, QByteArray>> files{
            {"cut.jpg", jpeg.left(jpeg.size() * 2 / 3)},
            {"head.jpg", jpeg.left(frame + 20)},
            {"start.jpg", jpeg.left(4)},
            {"huge.jpg", huge},
            {"broken.jpg", broken},
            {"cut.png", png.left(png.size() / 2)},
            {"huge.png", hugePng},
            {"text.jpg", "no picture"},
            {"empty.jpg", ""},
            {"bitmap.bmp", "BM"},
            {"tiff.tif", QByteArray("II*\0\x08\0\0\0", 8)}};
        QStringList paths{QString(),          line("/"),
                          line("/dev/zero"),  QString(100000, QLatin1Char('x')),
                          path("absent.jpg"), path("spool"),
                          path("good.jpg/x"), path("pipe")};
        QCOMPARE(mkfifo(QFile::encodeName(paths.last()).constData(), 0600), 0);
        QList<QByteArray> texts{"",
                                "data:image/png;base64,",
                                "data:image/png",
                                "%%%%",
                                jpeg.toBase64().insert(77, '*'),
                                "AAAA",
                                "====",
                                "A"};
        for (const auto &file : files) {
            writeFile(path(file.first), file.second);
            paths << path(file.first);
            texts << file.second.toBase64();
        }
        QVERIFY(startPdf(folder(""), "good") && startOfd(folder(""), "good"));
        const auto refused = [](bool added) {
            const QStringList lines = PortableLog::takeLines();
            return !added && lines.size() == 1 && lines.first().size() < 1100;
        };
        for (const QString &bad : qAsConst(paths)) {
            QVERIFY2(refused(addToPdf(bad)), qPrintable(bad.right(80)));
            QVERIFY2(refused(addInkToPdf(bad, 2)), qPrintable(bad.right(80)));
            QVERIFY2(refused(addToOfd(bad)), qPrintable(bad.right(80)));
        }
        for (const QByteArray &bad : qAsConst(texts)) {
            QVERIFY2(refused(addTextToPdf(bad)), bad.left(80).constData());
            QVERIFY2(refused(addTextToOfd(bad)), bad.left(80).constData());
        }
        QVERIFY(refused(bSavePDFColorPage())); // no camera is open
        QVERIFY(refused(bSaveOFDBWPage()));

        // The documents are as good as before.
        QVERIFY(addToPdf(path("good.png")) && bSavePDFEnd());
        QVERIFY(addToOfd(path("good.png"), 1) && bSaveOFDEnd());
        QCOMPARE(pageSizes(path("good.pdf")).size(), 1);
    }

    void placesThatAreNone()
    {
        writeFile(path("file"), "in the way");
        QVERIFY(QDir(m_folder->path()).mkpath(line("taken.pdf/x")));
        const QByteArray below = path("file/below").toUtf8();
        const QByteArray here = m_folder->path().toUtf8();
        const QByteArray endless(100000, 'x');
        const QByteArray longName(260, 'x');
        const QVector<QPair<QByteArray, QByteArray>> places{
            {"", "a"},       {here, ""},       {"", ""},        {below, "a"},        {endless, "a"},
            {here, endless}, {here, longName}, {here, "taken"}, {"/proc/none", "a"}, {here, "a/"}};
        const QStringList before = everythingIn(m_folder->path());
        for (const auto &place : places) {
            QVERIFY2(!startPdf(place.first, place.second), place.second.left(80).constData());
            QCOMPARE(m_log->takeLines().size(), 1);
            QVERIFY(!bSavePDFEnd());
            m_log->takeLines();
        }
        QVERIFY(!startOfd(below, "a") && !startMerge(below, "a", 0, 0, 0, 0));
        QVERIFY(!startMerge(here, "a", 2, 0, 0, 0) && !startMerge(here, "a", -1, 0, 0, 0));
        QVERIFY(!startMerge(here, "a", 0, -1, 0, 0) && !startMerge(here, "a", 0, 1001, 0, 0));
        QVERIFY(!startMerge(here, "a", 0, 0, -1, 0) && !startMerge(here, "a", 0, 0, 0, -1));
        QCOMPARE(m_log->takeLines().size(), 8);
        QCOMPARE(everythingIn(m_folder->path()), before);
    }

    void fromStartToEnd()
    {
        useCamera(picture(320, 240));
        for (const auto function :
             {bSavePDFColorPage, bSavePDFBWPage, bSavePDFEnd, bSaveOFDColorPage, bSaveOFDBWPage,
              bSaveOFDEnd, bSaveMergePage, bSaveMergeEnd}) {
            QVERIFY(!function());
            QCOMPARE(m_log->takeLines().size(), 1);
        }
        const QStringList before = everythingIn(m_folder->path());
        QVERIFY(startPdf(folder("sub"), "none"));
        QVERIFY(!bSavePDFEnd()); // without pages
        QVERIFY(!bSavePDFEnd());
        QCOMPARE(everythingIn(m_folder->path()), before);
        m_log->takeLines();

        // All three at once; a second start ends the first; one that fails ends nothing.
        QVERIFY(startPdf(folder(""), "first") && bSavePDFColorPage());
        QVERIFY(startOfd(folder(""), "first") && bSaveOFDBWPage());
        QVERIFY(startMerge(folder(""), "first", 1, 0, 0, 0) && bSaveMergePage());
        QVERIFY(!startPdf("", ""));
        QVERIFY(bSavePDFColorPage());
        QCOMPARE(m_log->takeLines().size(), 1);
        QVERIFY(startPdf(folder(""), "second") && bSavePDFBWPage());
        QVERIFY(m_log->takeLines().value(0).contains(path("first.pdf")));
        QCOMPARE(pageSizes(path("first.pdf")).size(), 2);
        QVERIFY(!QFile::exists(path("second.pdf")) && !QFile::exists(path("first.ofd")));
        QVERIFY(bSavePDFEnd() && bSaveOFDEnd() && bSaveMergeEnd());
        QCOMPARE(pageSizes(path("second.pdf")).size(), 1);
        QVERIFY(!bSavePDFEnd() && !bSaveOFDEnd() && !bSaveMergeEnd());

        // What can't be written now can be written later.
        QVERIFY(startPdf(folder("later"), "third") && bSavePDFColorPage());
        writeFile(path("later"), "in the way");
        QVERIFY(!bSavePDFEnd());
        QVERIFY(QFile::remove(path("later")));
        QVERIFY(bSavePDFEnd());
        QCOMPARE(pageSizes(path("later/third.pdf")).size(), 1);
    }

    void disksThatAreFull()
    {
        useCamera(picture(1600, 1200));
        QVERIFY(startPdf(folder(""), "full") && bSavePDFColorPage());
        QVERIFY(startOfd(folder(""), "full") && bSaveOFDColorPage());
        QVERIFY(startMerge(folder(""), "full") && bSaveMergePage());
        const QStringList before = everythingIn(m_folder->path());
        {
            const FileSizeLimit limit(10000);
            QVERIFY(!bSavePDFEnd() && !bSaveOFDEnd() && !bSaveMergeEnd());
            QVERIFY(!bSavePDFColorPage()); // the store of pages is full as well
        }
        QCOMPARE(m_log->takeLines().size(), 4);
        QCOMPARE(everythingIn(m_folder->path()), before);
        QVERIFY(bSavePDFColorPage());
        QVERIFY(bSavePDFEnd() && bSaveOFDEnd() && bSaveMergeEnd());
        QCOMPARE(imagesOf(path("full.pdf")).size(), 2);
        checkPdf(path("full.pdf"));
    }

    /// What was added before is written, even with the last of the disk.
    void disksThatAreNearlyFull()
    {
        useCamera(picture(1600, 1200));
        QVERIFY(startPdf(folder(""), "kept") && bSavePDFColorPage());
        QVERIFY(startOfd(folder(""), "kept") && bSaveOFDColorPage());
        QVERIFY(startMerge(folder(""), "kept") && bSaveMergePage());
        {
            const FullDisk disk((256LL << 20) + 100'000);
            QVERIFY(!bSaveMergePage() && !bSaveMergePage());
            QVERIFY(m_log->lines().size() == 2
                    && m_log->takeLines()[0].contains(line("the disk is nearly full")));
            QVERIFY(!bSaveBMP(folder("").constData(), "capture"));
            QVERIFY(m_log->lines().size() == 1
                    && m_log->takeLines()[0].contains(line("the disk is nearly full")));
        }
        {
            const FullDisk disk(1 << 20);
            QVERIFY(bSavePDFEnd() && bSaveOFDEnd() && bSaveMergeEnd());
        }
        QCOMPARE(m_log->takeLines(), QStringList());
        QCOMPARE(QImage(path("kept.jpg")).size(), QSize(1600, 1200));
        checkPdf(path("kept.pdf"));
    }

    void documentsWithoutEnd()
    {
        const auto written = std::make_shared<std::vector<size_t>>();
        const auto write = [written](const portable::PageSpool &pages, const QString &, QString *) {
            written->push_back(pages.pages().size());
            return true;
        };
        const QByteArray page(1000, 'x');
        const auto add = [&page](portable::DocumentBuilder &document) {
            return document.addPage("test", [&page](QString *) {
                return std::make_optional(portable::PageImage{{}, page});
            });
        };
        const std::pair<portable::DocumentBuilder::Limits, const char *> kinds[] = {
            {{3, 1 << 20}, "more than 3 pages"}, {{100, 3999}, "more than 0 MB"}};
        for (const auto &[limits, reason] : kinds) {
            portable::DocumentBuilder document(line(".pdf"), limits);
            QVERIFY(document.start("test", folder("").constData(), "long", write));
            QVERIFY(add(document) && add(document) && add(document));
            QVERIFY(!add(document) && !add(document));
            QVERIFY(m_log->lines().size() == 2 && m_log->takeLines()[0].contains(line(reason)));
            QVERIFY(document.end("test"));
        }
        QCOMPARE(*written, (std::vector<size_t>{3, 3}));
    }

    void pagesFromSeveralThreads()
    {
        useCamera(picture(64, 48));
        QVERIFY(startPdf(folder(""), "threads"));
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([] {
                for (int page = 0; page < 10; ++page) {
                    bSavePDFColorPage();
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        QVERIFY(bSavePDFEnd());
        QCOMPARE(pageSizes(path("threads.pdf")).size(), 40);
    }

private:
    QByteArray folder(const char *name) const { return path(name).toUtf8(); }

    /// Opens a camera that shows this.
    void useCamera(const QImage &image)
    {
        QVERIFY(image.save(path("camera.png")));
        useIni("[cameras]\n1=image:" + path("camera.png").toUtf8() + '\n');
        QVERIFY(bStartPlay(0));
        QImage frame;
        QVERIFY(getVideoFrame(frame));
        m_log->takeLines(); // that it opened
    }

    static void checkPdf(const QString &pdf) { outputOf("qpdf", {line("--check"), pdf}); }

    /// Of each page in points, as pdfinfo sees it: "288 x 216".
    static QStringList pageSizes(const QString &pdf)
    {
        const QString text = QString::fromUtf8(outputOf("pdfinfo", words("-l 1000") << pdf));
        QStringList sizes;
        QRegularExpression pattern(line("Page +\\d+ size: +(\\S+ x \\S+) pts"));
        for (auto match = pattern.globalMatch(text); match.hasNext();) {
            sizes << match.next().captured(1);
        }
        return sizes;
    }

    /// As pdfimages sees them: "640 480 rgb 8 jpeg 160".
    static QStringList imagesOf(const QString &pdf)
    {
        QStringList images;
        const QStringList rows = QString::fromUtf8(outputOf("pdfimages", {line("-list"), pdf}))
                                     .split(QLatin1Char('\n'))
                                     .mid(2);
        for (const QString &row : rows) {
            const QStringList cells = row.simplified().split(QLatin1Char(' '));
            if (cells.size() > 12) {
                images << QStringList({cells[3], cells[4], cells[5], cells[7], cells[8], cells[12]})
                              .join(QLatin1Char(' '));
            }
        }
        return images;
    }

    /// As pdftoppm draws them, at 50 dots per inch.
    QList<QImage> renderedPages(const QString &pdf) const
    {
        QTemporaryDir pages;
        outputOf("pdftoppm", words("-r 50 -png") << pdf << pages.filePath(line("page")));
        QList<QImage> images;
        const QStringList names = QDir(pages.path()).entryList(QDir::Files, QDir::Name);
        for (const QString &name : names) {
            images << QImage(pages.filePath(name));
        }
        if (images.isEmpty()) {
            QTest::qFail("nothing was drawn", __FILE__, __LINE__);
        }
        return images;
    }
};

QTEST_MAIN(TestPortableDocuments)
#include "tst_portabledocuments.moc"
