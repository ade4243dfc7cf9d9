// SPDX-License-Identifier: MIT
// The picture room: files read and written, the search for pages and folds, black and white.
#include "portable/picture/adjustments.h"
#include "portable/picture/barcodereader.h"
#include "portable/picture/bilevel.h"
#include "portable/picture/bookfold.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/orientation.h"
#include "portable/picture/pagefinder.h"
#include "portable/picture/perspectivewarp.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/picturewriter.h"
#include "portable/picture/stillness.h"
#include "portable/picture/watermark.h"
#include "tests/portabletest.h"

#include <QBuffer>
#include <QImage>
#include <QtEndian>
#include <QtTest>
#include <opencv2/imgproc.hpp>
#include <sys/stat.h>

#include <map>

using namespace portable;

namespace {

// Pages on desks.

enum class Desk { Plain, Gradient, Grained };

/// Painted once for each kind.
cv::Mat desk(Desk kind)
{
    static std::map<Desk, cv::Mat> desks;
    cv::Mat &picture = desks[kind];
    if (!picture.empty()) {
        return picture.clone();
    }
    const cv::Size size(1920, 1080);
    picture = cv::Mat(size, CV_8UC3, cv::Scalar(60, 80, 110));
    cv::RNG random(18);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            auto &pixel = picture.at<cv::Vec3b>(y, x);
            const int light = kind == Desk::Gradient ? 60 * x / size.width - 30 : 0;
            const int grain =
                kind == Desk::Grained ? cvRound(15 * std::sin(y / 7.0 + x / 90.0)) : 0;
            const int noise = random.uniform(-4, 5);
            for (int i = 0; i < 3; ++i) {
                pixel[i] = cv::saturate_cast<uchar>(pixel[i] + light + grain + noise);
            }
        }
    }
    return picture.clone();
}

/// A white page with lines of text that slope by `degrees`, falling to the right.
cv::Mat textPage(const cv::Size &size, double degrees)
{
    cv::Mat page(size, CV_8UC3, cv::Scalar(240, 245, 248));
    cv::RNG random(7);
    const double tangent = std::tan(degrees * CV_PI / 180);
    for (int y = size.height / 8; y < size.height * 7 / 8; y += 28) {
        for (int x = size.width / 8; x < size.width * 7 / 8; x += random.uniform(14, 40)) {
            const int top = y + cvRound(tangent * (x - size.width / 2.0));
            cv::rectangle(page, {x, top, 10, 12}, cv::Scalar(30, 30, 30), cv::FILLED);
        }
    }
    return page;
}

void lay(const cv::Mat &page, const PageCorners &corners, cv::Mat &picture)
{
    const PageCorners source{cv::Point2f(0, 0), cv::Point2f(float(page.cols - 1), 0),
                             cv::Point2f(float(page.cols - 1), float(page.rows - 1)),
                             cv::Point2f(0, float(page.rows - 1))};
    cv::warpPerspective(page, picture, cv::getPerspectiveTransform(source.data(), corners.data()),
                        picture.size(), cv::INTER_AREA, cv::BORDER_TRANSPARENT);
}

PageCorners turnedPage(const cv::Point2f &centre, float width, float height, double degrees)
{
    PageCorners corners;
    const auto sine = float(std::sin(degrees * CV_PI / 180));
    const auto cosine = float(std::cos(degrees * CV_PI / 180));
    const cv::Point2f ends[] = {
        {-width, -height}, {width, -height}, {width, height}, {-width, height}};
    for (size_t i = 0; i < 4; ++i) {
        const cv::Point2f end = ends[i] / 2;
        corners[i] =
            centre + cv::Point2f(cosine * end.x - sine * end.y, sine * end.x + cosine * end.y);
    }
    return corners;
}

double furthest(const PageCorners &a, const PageCorners &b)
{
    double distance = 0;
    for (size_t i = 0; i < 4; ++i) {
        distance = std::max(distance, cv::norm(a[i] - b[i]));
    }
    return distance;
}

/// White on the left, blue on the right; a black line below.
cv::Mat colored(const cv::Size &size)
{
    cv::Mat picture(size, CV_8UC3, cv::Scalar::all(255));
    picture.colRange(size.width / 2, size.width) = cv::Scalar(255, 0, 0);
    picture.rowRange(size.height * 3 / 4, size.height) = cv::Scalar::all(0);
    return picture;
}

/// Of the pixels that aren't white.
cv::Rect inkBox(const cv::Mat &picture)
{
    cv::Mat ink;
    cv::inRange(picture, cv::Scalar::all(0), cv::Scalar(254, 254, 254), ink);
    return cv::boundingRect(ink);
}

cv::Mat inkOf(const cv::Mat &picture)
{
    return picture.empty() ? picture : cv::Mat(greyOf(picture) > 200);
}

using Encode = QByteArray (*)(const cv::Mat &picture);

/// A Windows icon whose entry says 256 x 256 and holds this PNG.
QByteArray iconOf(const QByteArray &png)
{
    QByteArray icon("\0\0\1\0\1\0\0\0\0\0\1\0\1\0", 14);
    for (const quint32 number : {quint32(png.size()), 22U}) {
        const quint32 little = qToLittleEndian(number);
        icon.append(reinterpret_cast<const char *>(&little), 4);
    }
    return icon + png;
}

/// A grey JPEG of scans with bits for 64 blocks: each still goes through all pixels.
QByteArray progressiveJpeg(const QSize &size, int scans)
{
    QByteArray file("\xff\xd8\xff\xdb\0\x43\0", 7);
    file += QByteArray(64, 1); // quantization
    file += QByteArray("\xff\xc2\0\x0b\x08", 5);
    for (const int side : {size.height(), size.width()}) {
        file += char(side >> 8);
        file += char(side);
    }
    file += QByteArray("\1\1\x11\0", 4);
    for (const char table : {'\0', '\x10'}) { // one code of one bit, for 0
        file += QByteArray("\xff\xc4\0\x14", 4);
        file += table;
        file += '\1' + QByteArray(16, 0);
    }
    for (int scan = 0; scan < scans; ++scan) { // a coefficient each
        const char band = char(scan % 64);
        file += QByteArray("\xff\xda\0\x08\1\1\0", 7);
        file += band;
        file += band;
        file += '\0' + QByteArray(8, 0);
    }
    return file + QByteArray("\xff\xd9", 2);
}

} // namespace

Q_DECLARE_METATYPE(Encode)
Q_DECLARE_METATYPE(Desk)
Q_DECLARE_METATYPE(PageCorners)

class TestPortablePictures : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void filesOfAllFormats_data()
    {
        const Rows<Encode, bool> row("encode", "isBilevel");
        row("JPEG", Encode([](const cv::Mat &p) { return jpegFile(p, 90, {}); }), false);
        row("PNG", Encode([](const cv::Mat &p) { return pngFile(p, {}); }), false);
        row("BMP", Encode([](const cv::Mat &p) { return bmpFile(p, {}); }), false);
        row("JPEG in TIFF", Encode([](const cv::Mat &p) { return jpegTiffFile(p, 90, {}); }),
            false);
        row("bilevel TIFF", Encode([](const cv::Mat &p) { return bilevelTiffFile(inkOf(p), {}); }),
            true);
        row("bilevel PNG", Encode([](const cv::Mat &p) { return bilevelPngFile(inkOf(p), {}); }),
            true);
    }

    void filesOfAllFormats()
    {
        QFETCH(Encode, encode);
        QFETCH(bool, isBilevel);
        const cv::Mat picture = colored({80, 40});
        const QByteArray file = encode(picture);
        const cv::Vec3b right = isBilevel ? cv::Vec3b(0, 0, 0) : cv::Vec3b(255, 0, 0);
        const auto shows = [&](const cv::Mat &read, int width, int height) {
            return read.size() == cv::Size(width, height) && read.type() == CV_8UC3
                && cv::norm(read.at<cv::Vec3b>(height / 4, width / 4), cv::Vec3b(255, 255, 255)) < 9
                && cv::norm(read.at<cv::Vec3b>(height / 4, width * 3 / 4), right) < 9
                && cv::norm(read.at<cv::Vec3b>(height - 2, width / 4), cv::Vec3b(0, 0, 0)) < 9;
        };
        QString error;
        QVERIFY2(shows(decodePicture(file, &error), 80, 40), qPrintable(error));
        QVERIFY(shows(decodePicture(file, &error, {80 * 40, 80}), 80, 40));
        QVERIFY(shows(decodePicture(file, &error, {80 * 40, 40}), 40, 20));
        QVERIFY(decodePicture(file, &error, {80 * 40 - 1, 0}).empty());
        QCOMPARE(error, line("80 x 40 pixels are too many"));
        QVERIFY(encode(cv::Mat()).isEmpty());
    }

    void whatCannotBeRead_data()
    {
        const Rows<QByteArray> row("content");
        QImage huge(30'000, 10'000, QImage::Format_Mono);
        huge.fill(0);
        QBuffer png;
        png.open(QIODevice::WriteOnly);
        huge.save(&png, "PNG");
        const QByteArray tiff = bilevelTiffFile(cv::Mat(48, 64, CV_8U, cv::Scalar::all(0)), {});
        row("empty", "");
        row("text", "no picture");
        row("more pixels than memory is for", png.data());
        row("half a TIFF", tiff.left(tiff.size() / 2));
        row("four bytes of a TIFF", tiff.left(4));
        // What is inside has other limits than its head says: formats like that are not read.
        row("an icon", iconOf(pngFile(colored({80, 40}), {})));
        row("an icon with more than it says", iconOf(png.data()));
        row("a drawing", "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>");
        row("scans without end", progressiveJpeg({800, 600}, 200));
        row("scans of too many pixels", progressiveJpeg({16'000, 8'000}, 40));
    }

    void whatCannotBeRead()
    {
        QFETCH(QByteArray, content);
        QString error;
        QVERIFY(decodePicture(content, &error).empty());
        QVERIFY(!error.isEmpty());
    }

    void scansOfAJpeg()
    {
        QString error;
        const QByteArray usual = progressiveJpeg({64, 64}, 12);
        QCOMPARE(decodePicture(usual, &error).size(), cv::Size(64, 64));
        QVERIFY2(checkJpeg(usual, &error), qPrintable(error));
        for (const QByteArray &many :
             {progressiveJpeg({800, 600}, 200), progressiveJpeg({16'000, 8'000}, 40)}) {
            QVERIFY(decodePicture(many, &error).empty()
                    && error.contains(line("scans are too many")));
            error.clear();
            QVERIFY(!checkJpeg(many, &error) && error.contains(line("scans are too many")));
        }
        // All of its coefficients would be in memory, whatever is made of it.
        QVERIFY(!checkJpeg(progressiveJpeg({17'000, 10'000}, 1), &error));
        QCOMPARE(error, line("17000 x 10000 pixels are too many"));
    }

    /// At a time limit of nothing each format is given up, with a reason and nothing half decoded.
    void picturesThatTakeTooLong()
    {
        const cv::Mat picture = colored({80, 40});
        for (const QByteArray &file : {jpegFile(picture, 90, {}), pngFile(picture, {}),
                                       bmpFile(picture, {}), jpegTiffFile(picture, 90, {})}) {
            PictureLimits none;
            none.decoding = std::chrono::seconds(0);
            QString error;
            QVERIFY(decodePicture(file, &error, none).empty());
            QVERIFY2(!error.isEmpty(), file.left(4).constData());
        }
    }

    void filesThatCannotBeRead()
    {
        QVERIFY(toImage(colored({5000, 100})).save(path("long.png")));
        writeFile(path("empty.png"), "");
        QVERIFY(mkfifo(QFile::encodeName(path("pipe.png")).constData(), 0600) == 0);
        QString error;
        QCOMPARE(readPicture(path("long.png"), &error, biometricLimits).size(), cv::Size(2048, 40));
        QCOMPARE(pictureSize(path("long.png")), cv::Size(5000, 100));
        const std::pair<const char *, const char *> reasons[] = {
            {"absent.png", "there is no such file"},
            {"pipe.png", "it is not a regular file"},
            {"", "it is not a regular file"},
            {"empty.png", "it can't be read as a picture: Unsupported image format"}};
        for (const auto &[name, reason] : reasons) {
            QVERIFY(readPicture(path(name), &error).empty());
            QCOMPARE(error, line(reason));
        }
        QVERIFY(pictureSize(path("absent.png")).empty());
        QVERIFY(toMat(QImage()).empty());
    }

    void jpegOfACameraOnItsSide()
    {
        // EXIF orientation 6: to be rotated clockwise by a quarter.
        const QByteArray exif("\xff\xe1\0\x22"
                              "Exif\0\0"
                              "MM\0*\0\0\0\x08"
                              "\0\1\x01\x12\0\3\0\0\0\1\0\6\0\0\0\0\0\0",
                              36);
        QByteArray file = jpegFile(colored({80, 40}), 90, {100, 50});
        QString error;
        auto jpeg = checkJpeg(file, &error);
        QVERIFY(jpeg && jpeg->isUpright && jpeg->head.isWidelySupported);
        QCOMPARE(jpeg->head.size, cv::Size(80, 40));
        QCOMPARE(jpeg->head.dpi->x * 1000 + jpeg->head.dpi->y, 100'050);
        writeFile(path("side.jpg"), file.insert(2, exif));
        jpeg = checkJpeg(file, &error);
        QVERIFY(jpeg && !jpeg->isUpright);
        QCOMPARE(pictureSize(path("side.jpg")), cv::Size(40, 80));
        const cv::Mat upright = readPicture(path("side.jpg"), &error);
        QCOMPARE(upright.size(), cv::Size(40, 80));
        QVERIFY(cv::norm(upright.at<cv::Vec3b>(60, 30), cv::Vec3b(255, 0, 0)) < 9);
        QVERIFY(!checkJpeg(file.left(file.size() / 2), &error));
        QVERIFY(!checkJpeg("no JPEG", &error));
    }

    void resolutions()
    {
        const Dpi dpi{200, 150};
        const cv::Mat picture = colored({8, 8});
        for (const QByteArray &file :
             {pngFile(picture, dpi), bmpFile(picture, dpi), jpegTiffFile(picture, 90, dpi),
              bilevelPngFile(bilevel(picture), dpi)}) {
            const auto stored = storedDpi(file);
            QVERIFY(stored && stored->x == 200 && stored->y == 150);
            storedDpi(file.left(45)); // reads nothing beyond the end
        }
        QByteArray ratio = pngFile(picture, dpi);
        ratio[ratio.indexOf("pHYs") + 12] = 0; // unit unknown: a ratio only
        QVERIFY(!storedDpi(ratio));
        QByteArray metric = jpegTiffFile(picture, 90, {100, 100});
        const int unit = metric.indexOf(QByteArray("\x28\1\3\0\1\0\0\0\2", 9));
        QVERIFY(unit > 0);
        metric[unit + 8] = 3; // centimeters
        QCOMPARE(storedDpi(metric)->x, 254);
        metric[unit + 8] = 1; // none
        QVERIFY(!storedDpi(metric));
        QVERIFY(!storedDpi("BM") && !storedDpi(jpegFile(picture, 90, dpi)) && !storedDpi(""));
    }

    void watermarkAsLargeAsItsResolution()
    {
        Watermark watermark;
        watermark.text = line("H");
        watermark.points = 36;
        watermark.color = Qt::black;
        const cv::Mat picture(600, 800, CV_8UC3, cv::Scalar::all(255));
        const auto boxOf = [&](int dpi, const QPoint &position) {
            watermark.position = position;
            return inkBox(stamped(picture, watermark, dpi));
        };
        QVERIFY(boxOf(100, {}).empty()); // off
        watermark.isOn = true;
        const cv::Rect small = boxOf(100, {300, 200});
        const cv::Rect large = boxOf(300, {300, 200});
        QVERIFY(small.height > 25 && small.height < 50); // 36 points are 50 pixels high
        QVERIFY(std::abs(large.height - 3 * small.height) < 6);
        QVERIFY(std::abs(small.x - 300) < 15 && std::abs(small.y - 200) < 25);
        const cv::Rect corner = boxOf(100, {-1, -1});
        QVERIFY(corner.br().x > 780 && corner.br().y > 570);
        const cv::Rect beyond = boxOf(100, {9999, -9999}); // moved into the picture
        QVERIFY(beyond.br().x > 780 && beyond.y < 25);
        watermark.text = line(" \n");
        QVERIFY(boxOf(100, {}).empty());
        QVERIFY(inkBox(picture).empty()); // which the preview shows as well
    }

    void framesOfAPool()
    {
        FramePool pool;
        bool fresh = false;
        cv::Mat held = pool.take({40, 30}, &fresh);
        const uchar *pixels = held.data;
        QVERIFY(fresh && pool.take({40, 30}, &fresh).data != pixels);
        held.release();
        QVERIFY(pool.take({40, 30}, &fresh).data == pixels && !fresh);
        QCOMPARE(pool.take({30, 40}, &fresh).size(), cv::Size(30, 40)); // of another size
        QVERIFY(fresh && pool.take({}).empty());
    }

    void validOrientations()
    {
        for (int degrees = -90; degrees <= 360; ++degrees) {
            QCOMPARE(isRotation(degrees), degrees >= 0 && degrees < 360 && degrees % 90 == 0);
        }
        for (int mode = -1; mode <= 4; ++mode) {
            QCOMPARE(isFlip(mode), mode >= 0 && mode < 4);
        }
    }

    void searchThatFails()
    {
        const cv::Mat noPicture(20, 20, CV_8UC2, cv::Scalar::all(0));
        QVERIFY_EXCEPTION_THROWN(readBarcodes(noPicture, anyBarcode), cv::Exception);
    }

    void tones()
    {
        QVERIFY(toneTable({}).empty());
        const auto tone = [](const Adjustments &adjustments, int value) {
            return int(toneTable(adjustments).at<uchar>(value));
        };
        QCOMPARE(tone({50, 0, 0}, 100), 200);
        QCOMPARE(tone({50, 0, 0}, 200), 255);
        QCOMPARE(tone({-50, 0, 0}, 100), 50);
        QCOMPARE(tone({0, 100, 0}, 100), 228); // half of the scale
        QCOMPARE(tone({0, -100, 0}, 100), 0);
        QCOMPARE(tone({0, 0, 50}, 100), 72);
        QCOMPARE(tone({0, 0, -50}, 0), 64);
        QVERIFY((Adjustments{1, 2, 3} == Adjustments{1, 2, 3}));
        for (const Adjustments &other : {Adjustments{0, 2, 3}, {1, 0, 3}, {1, 2, 0}}) {
            QVERIFY((other != Adjustments{1, 2, 3}));
            QVERIFY(!other.isNeutral());
        }
    }

    void restAfterEachMovement()
    {
        using namespace std::chrono_literals;
        const cv::Mat empty(270, 480, CV_8UC3, cv::Scalar::all(80));
        cv::Mat page = empty.clone();
        page(cv::Rect(100, 50, 200, 150)) = cv::Scalar::all(240);
        cv::Mat lamp;
        empty.convertTo(lamp, -1, 1, 60); // brighter everywhere: no movement
        Stillness stillness(700ms);
        Stillness::Clock::time_point now;
        const auto look = [&](const cv::Mat &frame, std::chrono::milliseconds later) {
            now += later;
            return stillness.look(frame, now);
        };
        QVERIFY(!look(empty, 0ms));
        QVERIFY(!look(empty, 5s)); // nothing has moved yet
        QVERIFY(!look(lamp, 1s));
        QVERIFY(!look(page, 100ms));
        QVERIFY(!look(page, 699ms));
        QVERIFY(look(page, 1ms));
        QVERIFY(!look(page, 5s)); // once
        QVERIFY(!look(empty, 100ms)); // taken away
        QVERIFY(!look(page, 600ms)); // moved again before it was still
        QVERIFY(!look(page, 600ms));
        QVERIFY(look(page, 100ms));
    }

    void foldOfABook_data()
    {
        // fold: 0: none is seen
        const Rows<int, int> row("fold", "expected");
        row("left of the middle", 590, 590);
        row("right of the middle", 690, 690);
        row("none to be seen", 0, 640);
    }

    void foldOfABook()
    {
        QFETCH(int, fold);
        QFETCH(int, expected);
        cv::Mat book(900, 1280, CV_8UC3, cv::Scalar(240, 245, 248));
        textPage({620, 900}, 0).copyTo(book.colRange(0, 620));
        textPage({600, 900}, 0).copyTo(book.colRange(680, 1280));
        if (fold > 0) {
            for (int x = fold - 12; x <= fold + 12; ++x) {
                book.col(x) *= 0.5 + 0.04 * qAbs(x - fold);
            }
        }
        const int found = foldColumn(book);
        QVERIFY2(qAbs(found - expected) <= 4, qPrintable(QString::number(found)));
        // On a desk, off its middle.
        cv::Mat onDesk = desk(Desk::Plain);
        book.copyTo(onDesk(cv::Rect(500, 90, book.cols, book.rows)));
        QVERIFY(qAbs(foldColumn(onDesk) - 500 - expected) <= 6);
        // Too small to be searched.
        QCOMPARE(foldColumn(cv::Mat(900, 70, CV_8UC3, cv::Scalar::all(9))), 35);
        QCOMPARE(foldColumn(cv::Mat(24, 40000, CV_8UC3, cv::Scalar::all(200))), 20000);
    }

    void bilevelKeepsWhatIsDarkAndNothingElse()
    {
        cv::Mat picture = textPage({1280, 960}, 0);
        const cv::Rect bar(300, 500, 560, 300); // far wider than strokes
        cv::rectangle(picture, bar, cv::Scalar(25, 20, 30), cv::FILLED);
        cv::putText(picture, "100", {450, 700}, cv::FONT_HERSHEY_PLAIN, 10, {240, 240, 240}, 9);
        const cv::Mat plain = bilevel(picture);
        QCOMPARE(int(plain.at<uchar>(480, 20)), 255);
        QCOMPARE(int(plain.at<uchar>(124, 164)), 0); // the first word
        const cv::Rect figures(440, 560, 300, 160);
        QVERIFY(cv::countNonZero(plain(figures)) > figures.area() / 20);
        QCOMPARE(cv::countNonZero(plain(bar)), cv::countNonZero(plain(figures)));
        for (int x = 0; x < picture.cols; ++x) { // light that falls off to a third
            picture.col(x) *= 1 - 0.67 * x / picture.cols;
        }
        cv::Mat changed = bilevel(picture) != plain;
        QVERIFY(cv::countNonZero(changed) < int(changed.total() / 500));
    }

    void pages_data()
    {
        const Rows<Desk, PageCorners> add("kind", "corners");
        const PageCorners tilted{cv::Point2f(420, 150), cv::Point2f(1380, 190),
                                 cv::Point2f(1530, 960), cv::Point2f(330, 900)};
        const std::pair<const char *, Desk> desks[] = {
            {"plain", Desk::Plain}, {"gradient", Desk::Gradient}, {"grained", Desk::Grained}};
        for (const auto &each : desks) {
            const auto row = [&](const char *what, const PageCorners &corners) {
                add(QStringLiteral("%1, %2 desk").arg(line(what), line(each.first)), each.second,
                    corners);
            };
            row("straight page", turnedPage({900, 560}, 1100, 778, 0));
            row("turned page", turnedPage({960, 540}, 900, 640, 12));
            row("page turned the other way", turnedPage({960, 540}, 900, 640, -25));
            row("upright page", turnedPage({1000, 540}, 600, 850, 4));
            row("small card", turnedPage({500, 700}, 340, 214, 7));
            row("page from aside", tilted);
        }
    }

    void pages()
    {
        QFETCH(Desk, kind);
        QFETCH(PageCorners, corners);
        cv::Mat picture = desk(kind);
        lay(textPage({1000, 700}, 0), corners, picture);
        const auto found = findPage(picture);
        QVERIFY(found.has_value());
        const double error = furthest(*found, corners);
        QVERIFY2(error < 4, qPrintable(QString::number(error)));
    }

    void noPage()
    {
        for (const Desk kind : {Desk::Plain, Desk::Gradient, Desk::Grained}) {
            cv::Mat picture = desk(kind);
            QVERIFY(!findPage(picture));
            // A pen is none, nor is what is too small for any.
            cv::line(picture, {300, 300}, {1500, 800}, cv::Scalar(250, 250, 250), 24);
            cv::circle(picture, {1500, 200}, 40, cv::Scalar(0, 0, 200), cv::FILLED);
            QVERIFY(!findPage(picture));
        }
        QVERIFY(!findPage(cv::Mat(10, 10, CV_8UC3, cv::Scalar::all(9))));
        QVERIFY(!findPage(cv::Mat(1, 5000, CV_8UC3, cv::Scalar::all(9))));
    }

    void pageKeepsItsProportions_data()
    {
        // tilt: of the camera, in degrees
        // turn: of the page
        const Rows<double, double> row("tilt", "turn");
        row("straight down", 0.0, 0.0);
        row("turned", 0.0, 20.0);
        row("from below", 25.0, 0.0);
        row("from below, turned", 25.0, 20.0);
    }

    void pageKeepsItsProportions()
    {
        QFETCH(double, tilt);
        QFETCH(double, turn);
        // An A4 page before a camera with a lens of 60 degrees or so.
        const double focal = 1700;
        const double tiltSine = std::sin(tilt * CV_PI / 180);
        const double tiltCosine = std::cos(tilt * CV_PI / 180);
        PageCorners corners = turnedPage({0, 0}, 297, 210, turn);
        for (cv::Point2f &corner : corners) {
            const double depth = 500 - double(corner.y) * tiltSine;
            corner = cv::Point2f(float(960 + focal * double(corner.x) / depth),
                                 float(540 + focal * double(corner.y) * tiltCosine / depth));
        }
        cv::Mat picture = desk(Desk::Plain);
        lay(textPage({1485, 1050}, 0), corners, picture);
        const cv::Mat page = straightenedPage(picture);
        const double ratio = double(page.cols) / page.rows;
        QVERIFY2(qAbs(ratio / (297.0 / 210) - 1) < 0.05, qPrintable(QString::number(ratio)));
    }

    void textAskewOnItsPage()
    {
        for (const double slope : {0.0, 0.6, 2.3, -1.4, -4.0}) {
            const cv::Mat page = textPage({1200, 850}, slope);
            QVERIFY2(qAbs(skewAngle(page) - slope) < 0.2, qPrintable(QString::number(slope)));
            cv::Mat picture = desk(Desk::Plain);
            lay(page, turnedPage({960, 540}, 1200, 850, 5), picture);
            const cv::Mat straight = straightenedPage(picture);
            QVERIFY(qAbs(skewAngle(straight)) < 0.3);
            QVERIFY(qAbs(straight.cols - 1200) < 12 && qAbs(straight.rows - 850) < 12);
        }
    }

    void noTextHasNoSlope()
    {
        cv::Mat photo(850, 1200, CV_8UC3);
        cv::randu(photo, 0, 255);
        QCOMPARE(skewAngle(photo), 0.0);
        QCOMPARE(skewAngle(cv::Mat(850, 1200, CV_8UC3, cv::Scalar::all(240))), 0.0);
    }

    void warpIsThatOfOpenCv_data()
    {
        using Point = cv::Point2f;
        const Rows<QSize, QSize, PageCorners> row("picture", "size", "corners");
        row("turned", {640, 480}, {403, 302}, turnedPage({320, 240}, 400, 300, 12));
        row("upside down", {640, 480}, {400, 300}, turnedPage({320, 240}, 400, 300, 178));
        row("enlarged", {640, 480}, {900, 700}, turnedPage({320, 240}, 90, 70, -40));
        row("from aside", {640, 480}, {500, 400},
            {Point(200, 40), Point(400, 40), Point(600, 460), Point(30, 440)});
        row("from very near", {640, 480}, {600, 450},
            {Point(20, 185), Point(630, 10), Point(630, 470), Point(20, 295)});
        row("all of the picture", {64, 48}, {64, 48},
            {Point(0, 0), Point(64, 0), Point(64, 48), Point(0, 48)});
        row("beyond the picture", {64, 48}, {200, 150}, turnedPage({32, 24}, 100, 80, 30));
        row("a narrow picture", {2, 90}, {33, 60}, turnedPage({1, 45}, 2, 60, 0));
        row("one pixel", {1, 1}, {35, 2}, turnedPage({0, 0}, 3, 3, 0));
    }

    void warpIsThatOfOpenCv()
    {
        QFETCH(QSize, picture);
        QFETCH(QSize, size);
        QFETCH(PageCorners, corners);
        cv::Mat noise(picture.height(), picture.width(), CV_8UC3);
        cv::RNG(5).fill(noise, cv::RNG::UNIFORM, 0, 256);
        cv::blur(noise, noise, {5, 5});
        cv::normalize(noise, noise, 0, 255, cv::NORM_MINMAX);
        const float right = float(size.width());
        const float bottom = float(size.height());
        const PageCorners target{cv::Point2f(0, 0), cv::Point2f(right, 0),
                                 cv::Point2f(right, bottom), cv::Point2f(0, bottom)};
        const cv::Mat transform = cv::getPerspectiveTransform(corners.data(), target.data());
        const cv::Size all(size.width(), size.height());
        cv::Mat difference;
        cv::warpPerspective(noise, difference, transform, all, cv::INTER_LINEAR,
                            cv::BORDER_REPLICATE);
        cv::absdiff(difference, warpedPerspective(noise, transform, all), difference);
        const double mean = cv::mean(difference.reshape(1))[0];
        const double most = cv::norm(difference, cv::NORM_INF);
        QVERIFY2(mean < 0.4 && most < 6, qPrintable(QStringLiteral("%1 %2").arg(mean).arg(most)));
    }
};

QTEST_MAIN(TestPortablePictures)
#include "tst_portablepictures.moc"
