// SPDX-License-Identifier: MIT
// The portable library's settings, captures, watermark, and its search for pages.
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/camera/camera.h"
#include "portable/camera/testsheet.h"
#include "portable/camera/v4l2controls.h"
#include "portable/picture/bilevel.h"
#include "portable/picture/bookfold.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/pagefinder.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/picturewriter.h"
#include "tests/portabletest.h"

#include <QPainter>
#include <QProcess>
#include <QtTest>
#include <opencv2/imgproc.hpp>

#include <atomic>
#include <cstdlib>
#include <thread>

using namespace portable;

namespace {

using Save = bool (*)(const char *, const char *);

/// Four quarters: red, green, blue and white, from the top left clockwise; a black bar across.
cv::Mat quarters(const cv::Size &size)
{
    cv::Mat picture(size, CV_8UC3);
    const int x = size.width / 2;
    const int y = size.height / 2;
    picture(cv::Range(0, y), cv::Range(0, x)) = cv::Scalar(0, 0, 255);
    picture(cv::Range(0, y), cv::Range(x, size.width)) = cv::Scalar(0, 255, 0);
    picture(cv::Range(y, size.height), cv::Range(x, size.width)) = cv::Scalar(255, 0, 0);
    picture(cv::Range(y, size.height), cv::Range(0, x)) = cv::Scalar(255, 255, 255);
    picture(cv::Range(y - 8, y + 8), cv::Range::all()) = cv::Scalar(0, 0, 0);
    return picture;
}

double meanDifference(const cv::Mat &a, const cv::Mat &b)
{
    return a.size() == b.size() ? cv::norm(a, b, cv::NORM_L1) / double(a.total() * 3) : 255;
}

cv::Mat decoded(const QByteArray &file)
{
    QString error;
    return decodePicture(file, &error);
}

/// Whether a pixel is that color, as far as a JPEG keeps it.
bool isColor(const cv::Mat &picture, int x, int y, const cv::Vec3b &bgr)
{
    return cv::norm(picture.at<cv::Vec3b>(y, x), bgr, cv::NORM_INF) < 30;
}

const cv::Vec3b red(0, 0, 255);
const cv::Vec3b green(0, 255, 0);
const cv::Vec3b blue(255, 0, 0);
const cv::Vec3b white(255, 255, 255);

// Pages on desks.

enum class Desk { Plain, Gradient, Grained };

cv::Mat desk(Desk kind, const cv::Size &size)
{
    cv::Mat picture(size, CV_8UC3, cv::Scalar(60, 80, 110));
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
    return picture;
}

/// A white page with lines of text that slope by `degrees`, falling to the right.
cv::Mat textPage(const cv::Size &size, double degrees)
{
    cv::Mat page(size, CV_8UC3, cv::Scalar(240, 245, 248));
    cv::RNG random(7);
    const double tangent = std::tan(degrees * CV_PI / 180);
    for (int y = size.height / 8; y < size.height * 7 / 8; y += 28) {
        for (int x = size.width / 8; x < size.width * 7 / 8; x += random.uniform(14, 40)) {
            const int top = y + cvRound(tangent * (x - size.width / 2));
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

/// A source with hardware for brightness alone; its pictures are all 100.
class AdjustableSource : public FrameSource
{
public:
    std::atomic<int> hardwareBrightness{0};
    std::atomic<int> focused{0};

    QString name() const override { return QStringLiteral("adjustable"); }
    bool open(const cv::Size &, QString *) override { return true; }
    void close() override { }
    bool read(cv::Mat &frame, QString *) override
    {
        frame = m_frame;
        return true;
    }
    double framesPerSecond() const override { return 1000; }
    std::vector<cv::Size> sizes() const override { return {m_frame.size()}; }
    Adjustments adjust(const Adjustments &wanted) override
    {
        hardwareBrightness = wanted.brightness;
        Adjustments left = wanted;
        left.brightness = 0;
        return left;
    }
    bool focus() override
    {
        ++focused;
        return true;
    }

private:
    const cv::Mat m_frame{30, 40, CV_8UC3, cv::Scalar::all(100)};
};

} // namespace

Q_DECLARE_METATYPE(Save)
Q_DECLARE_METATYPE(Desk)
Q_DECLARE_METATYPE(PageCorners)

class TestPortableCapture : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        const cv::Mat picture = quarters({640, 480});
        QVERIFY(toImage(picture).save(path("camera.png")));
        useIni("[cameras]\n1=image:" + path("camera.png").toUtf8()
               + "\n2=scene\n[scene]\nsize=1920x1080\n");
        vSetDPI(300, 300);
        vSetImageQuality(95);
        bSetMode(0);
        bSetImageArea(0, 0, 0, 0);
        vSetRotate(0);
        vSetWaterPrint(0, "", 0);
        for (auto set : {vSetExposure, vSetBrightness, vSetContrast}) {
            set(0);
        }
        QVERIFY(bStartPlay(0));
        m_log->takeLines();
    }

    void cleanup()
    {
        bStopPlay();
        PortableTest::cleanup();
    }

    void savedFiles_data()
    {
        // facts: what the program says of a file of 640 x 480 pixels, parted by "|"
        const Rows<Save, QString, bool, QString> row("save", "extension", "isGrey", "facts");
        const QString jpeg =
            line("File Type : JPEG|Image Size : 640x480|X Resolution : 200|"
                 "Y Resolution : 150|Resolution Unit : inches|Color Components : ");
        const QString tiff = line("Image Width: 640 Image Length: 480|"
                                  "Resolution: 200, 150 pixels/inch|Compression Scheme: ");
        // clang-format off
        row("JPEG",         Save(bSaveJPG),    ".jpg", false, jpeg + line("3"));
        row("grey",         Save(bSaveGray),   ".jpg", true,  jpeg + line("1"));
        row("PNG",          Save(bSavePNG),    ".png", false, "File Type : PNG|Pixels Per Unit X : 7874|Pixels Per Unit Y : 5906");
        row("BMP",          Save(bSaveBMP),    ".bmp", false, "File Type : BMP|Pixels Per Meter X : 7874|Pixels Per Meter Y : 5906");
        row("JPEG in TIFF", Save(bSaveTifJPG), ".tif", false, tiff + line("JPEG|Interpretation: YCbCr"));
        row("bilevel",      Save(bSaveTIF),    ".tif", true,  tiff + line("CCITT Group 4|Bits/Sample: 1|Interpretation: min-is-white|Rows/Strip: 480"));
        // clang-format on
    }

    void savedFiles()
    {
        QFETCH(Save, save);
        QFETCH(QString, extension);
        QFETCH(bool, isGrey);
        QFETCH(QString, facts);
        QVERIFY(vSetDPI(200, 150));
        const QString folder = path("扫描 一/new");
        QVERIFY(save(Utf8(folder), "文件 1"));
        QVERIFY(save(Utf8(folder), Utf8(line("A") + extension.toUpper()))); // not twice
        QCOMPARE(everythingIn(folder),
                 (QStringList{line("A") + extension.toUpper(), line("文件 1") + extension}));

        const QString file = folder + line("/文件 1") + extension;
        const QStringList arguments =
            extension == line(".tif") ? QStringList{line("-D"), file} : QStringList{file};
        const QByteArray told =
            outputOf(extension == line(".tif") ? "tiffinfo" : "exiftool", arguments).simplified();
        for (const QString &fact : facts.split(QLatin1Char('|'))) {
            QVERIFY2(told.contains(fact.toUtf8()), told.constData());
        }
        QString error;
        const cv::Mat picture = readPicture(file, &error);
        cv::Mat expected = quarters({640, 480});
        if (save == bSaveTIF) {
            expected = bilevel(expected);
        }
        if (isGrey) {
            cv::cvtColor(greyOf(expected), expected, cv::COLOR_GRAY2BGR);
        }
        QVERIFY2(meanDifference(picture, expected) < 3, qPrintable(error));
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

    void greyAndTiffAreOneShot()
    {
        const QByteArray grey = path("grey").toUtf8();
        const QByteArray tiff = path("tiff").toUtf8();
        QVERIFY(bSaveGrayAndTIF(grey.constData(), "a", tiff.constData(), "b"));
        QCOMPARE(everythingIn(path("grey")), QStringList{line("a.jpg")});
        QCOMPARE(everythingIn(path("tiff")), QStringList{line("b.tif")});
        QVERIFY(QDir().mkpath(path("tiff/taken.tif")));
        QVERIFY(!bSaveGrayAndTIF(grey.constData(), "c", tiff.constData(), "taken"));
        QVERIFY(!bSaveGrayAndTIF(tiff.constData(), "taken.tif/d", grey.constData(), ""));
        QCOMPARE(everythingIn(path("grey")), QStringList{line("a.jpg")});
        QCOMPARE(everythingIn(path("tiff")), (QStringList{line("b.tif"), line("taken.tif")}));
    }

    void refusedWritesLeaveNothing_data()
    {
        const Rows<QString, QString> row("directory", "name");
        row("below a file", "camera.png/x/y", "a");
        row("a directory has the name", ".", "taken");
        row("no name", "new/folder", "");
        row("a name that is a directory's", "new", "folder/");
        row("long name in new folders", "new/folder", QString(300, QLatin1Char('n')));
        row("very long name", "new", QString(100'000, QLatin1Char('n')));
        row("very deep name", "new", line("n/").repeated(50'000) + line("n"));
        row("a way out that isn't there", "new/..", QString(300, QLatin1Char('n')));
    }

    void refusedWritesLeaveNothing()
    {
        QFETCH(QString, directory);
        QFETCH(QString, name);
        QVERIFY(QDir().mkpath(path("taken.jpg")));
        const QStringList before = everythingIn(m_folder->path());
        QVERIFY(!bSaveJPG(Utf8(path(directory)), Utf8(name)));
        QCOMPARE(everythingIn(m_folder->path()), before);
        QCOMPARE(m_log->takeLines().size(), 1);
    }

    void namesMayLeadElsewhere()
    {
        QVERIFY(bSaveJPG(utf8("new/folder"), "../other/a"));
        QVERIFY(QFile::exists(path("new/other/a.jpg")));
    }

    void fullDiskKeepsTheFormerFile()
    {
        QVERIFY(bSaveJPG(here(), "a"));
        const QByteArray former = contentOf(path("a.jpg"));
        const QStringList before = everythingIn(m_folder->path());
        vSetImageQuality(50);
        {
            const FileSizeLimit limit(2000);
            QVERIFY(!bSaveJPG(here(), "a"));
            QVERIFY(!bSaveGrayAndTIF(utf8("x"), "g", utf8("x"), "t"));
        }
        QCOMPARE(everythingIn(m_folder->path()), before);
        QCOMPARE(contentOf(path("a.jpg")), former);
    }

    void readersNeverSeeHalfAFile()
    {
        const QByteArray folder = m_folder->path().toUtf8();
        QVERIFY(bSaveJPG(folder.constData(), "a"));
        std::atomic<bool> end{false};
        std::thread writer([&] {
            for (int i = 0; i < 40; ++i) {
                vSetImageQuality(i % 2 == 0 ? 20 : 95);
                bSaveJPG(folder.constData(), "a");
            }
            end = true;
        });
        int whole = 0;
        int all = 0;
        while (!end) {
            const QByteArray file = contentOf(path("a.jpg"));
            whole += file.startsWith("\xFF\xD8") && file.endsWith("\xFF\xD9") ? 1 : 0;
            ++all;
        }
        writer.join();
        QCOMPARE(whole, all);
    }

    void writersWithAFileOfTheirOwn()
    {
        QString error;
        QString given;
        const QString target = path("new/film.mp4");
        QVERIFY(writeWholeFile(
            target,
            [&](const QString &temporary, QString *) {
                given = temporary;
                writeFile(temporary, "content");
                return true;
            },
            &error));
        QVERIFY(given.startsWith(path("new/.")) && given.endsWith(line(".mp4")));
        QCOMPARE(everythingIn(path("new")), QStringList{line("film.mp4")});
        QCOMPARE(contentOf(target), QByteArray("content"));
        QVERIFY(!writeWholeFile(
            path("other/film.mp4"),
            [&](const QString &temporary, QString *why) {
                writeFile(temporary, "half");
                *why = line("no codec");
                return false;
            },
            &error));
        QCOMPARE(error, path("other/film.mp4") + line(": no codec"));
        QVERIFY(!QFile::exists(path("other")));
        QVERIFY(!writeWholeFile(line("/dev/null"), "x", &error)); // would be replaced by a file
        QVERIFY(readWholeFile(line("/dev/zero"), &error).isNull());
    }

    void whatCannotBeRead_data()
    {
        const Rows<QByteArray> row("content");
        QImage huge(30'000, 10'000, QImage::Format_Mono);
        huge.fill(0);
        QBuffer png;
        png.open(QIODevice::WriteOnly);
        huge.save(&png, "PNG");
        const QByteArray tiff = bilevelTiffFile(bilevel(quarters({64, 48})), {});
        row("empty", "");
        row("text", "no picture");
        row("more pixels than memory is for", png.data());
        row("half a TIFF", tiff.left(tiff.size() / 2));
        row("four bytes of a TIFF", tiff.left(4));
    }

    void whatCannotBeRead()
    {
        QFETCH(QByteArray, content);
        QString error;
        QVERIFY(decodePicture(content, &error).empty());
        QVERIFY(!error.isEmpty());
    }

    void areaOfTheTurnedPicture()
    {
        QVERIFY(bSetMode(1));
        QVERIFY(bSetImageArea(320, 0, 9999, 200)); // cut off at the edge
        QCOMPARE(lGetImageAreaX1() + lGetImageAreaX2() + lGetImageAreaY2(), 320L + 9999 + 200);
        cv::Mat shot = saved();
        QCOMPARE(shot.size(), cv::Size(320, 200));
        QVERIFY(isColor(shot, 5, 5, green));
        vSetRotate(90); // 480 x 640: white, red above blue, green
        QVERIFY(bSetImageArea(0, 0, 480, 640));
        shot = saved();
        QCOMPARE(shot.size(), cv::Size(480, 640));
        QVERIFY(isColor(shot, 10, 10, white) && isColor(shot, 470, 10, red));
        QVERIFY(bSetImageArea(240, 320, 480, 640));
        shot = saved();
        QVERIFY(isColor(shot, 100, 100, green));
        m_log->takeLines();
        QVERIFY(bSetImageArea(5000, 10, 6000, 20)); // nothing of it is left: the whole
        QCOMPARE(saved().size(), cv::Size(480, 640));
        QCOMPARE(m_log->takeLines().size(), 1);
        QVERIFY(bSetImageArea(0, 0, 0, 0));
        QCOMPARE(saved().size(), cv::Size(480, 640));
        bSetMode(0);
        QVERIFY(bSetImageArea(0, 0, 10, 10));
        QCOMPARE(saved().size(), cv::Size(480, 640));
    }

    void pageOfTheScene()
    {
        QImage painted(1400, 990, QImage::Format_RGB32);
        painted.fill(Qt::white);
        QPainter painter(&painted);
        paintTestSheet(painter);
        painter.end();
        QVERIFY(bStartPlay2(0) && bSetMode(2));
        cv::Mat shot = saved();
        QVERIFY2(qAbs(double(shot.cols) / shot.rows - 1400.0 / 990) < 0.02,
                 qPrintable(QStringLiteral("%1 x %2").arg(shot.cols).arg(shot.rows)));
        cv::Mat expected = toMat(painted);
        cv::resize(shot, shot, {700, 495}, 0, 0, cv::INTER_AREA);
        cv::resize(expected, expected, {700, 495}, 0, 0, cv::INTER_AREA);
        const double difference = meanDifference(shot, expected);
        QVERIFY2(difference < 16, qPrintable(QString::number(difference)));
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
        cv::Mat picture = desk(kind, {1920, 1080});
        lay(textPage({1000, 700}, 0), corners, picture);
        const auto found = findPage(picture);
        QVERIFY(found.has_value());
        const double error = furthest(*found, corners);
        QVERIFY2(error < 4, qPrintable(QString::number(error)));
    }

    void noPage()
    {
        for (const Desk kind : {Desk::Plain, Desk::Gradient, Desk::Grained}) {
            cv::Mat picture = desk(kind, {1920, 1080});
            QVERIFY(!findPage(picture));
            // A pen is none, nor is what is too small for any.
            cv::line(picture, {300, 300}, {1500, 800}, cv::Scalar(250, 250, 250), 24);
            cv::circle(picture, {1500, 200}, 40, cv::Scalar(0, 0, 200), cv::FILLED);
            QVERIFY(!findPage(picture));
        }
        QVERIFY(!findPage(cv::Mat(10, 10, CV_8UC3, cv::Scalar::all(9))));
        QVERIFY(!findPage(cv::Mat(1, 5000, CV_8UC3, cv::Scalar::all(9))));
    }

    void withoutAPageTheWholePicture()
    {
        QVERIFY(toImage(desk(Desk::Plain, {640, 480})).save(path("camera.png")));
        QVERIFY(bStartPlay(0) && bSetMode(2));
        m_log->takeLines();
        QCOMPARE(saved().size(), cv::Size(640, 480));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("no page is found; the whole picture is taken")});
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
        cv::Mat picture = desk(Desk::Plain, {1920, 1080});
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
            cv::Mat picture = desk(Desk::Plain, {1920, 1080});
            lay(page, turnedPage({960, 540}, 1200, 850, 5), picture);
            QVERIFY(qAbs(skewAngle(straightenedPage(picture))) < 0.3);
        }
    }

    void noTextHasNoSlope()
    {
        cv::Mat photo(850, 1200, CV_8UC3);
        cv::randu(photo, 0, 255);
        QCOMPARE(skewAngle(photo), 0.0);
        QCOMPARE(skewAngle(cv::Mat(850, 1200, CV_8UC3, cv::Scalar::all(240))), 0.0);
    }

    void watermarkIsOnTheFileAlone()
    {
        QVERIFY(bSetMode(1) && bSetImageArea(0, 260, 320, 480)); // the white quarter
        vSetWaterPrint(1, "仅供测试", 0);
        vSetWaterPrintFontSize(12);
        vSetWaterPrintFontColor(0xFF8000);
        vSetWaterPrintPos(30, 40);
        const cv::Mat stamped = saved();
        cv::Mat ink;
        cv::inRange(stamped, cv::Scalar(0, 100, 220), cv::Scalar(40, 160, 255), ink);
        const cv::Rect box = cv::boundingRect(ink);
        QVERIFY(cv::countNonZero(ink) > 500);
        QVERIFY2(box.x >= 28 && box.x < 45 && box.y >= 38 && box.y < 65 && box.width > 150,
                 qPrintable(QStringLiteral("%1 %2 %3").arg(box.x).arg(box.y).arg(box.width)));
        cv::Mat preview;
        QVERIFY(getVideoFrameMat(preview));
        QCOMPARE(cv::norm(preview, quarters({640, 480}), cv::NORM_INF), 0.0);

        vSetWaterPrint(1, "试测供仅", 0); // not a row of boxes
        QVERIFY(meanDifference(saved(), stamped) > 0.5);
        vSetWaterPrint(1, "仅供测试", 30); // paler
        cv::inRange(saved(), cv::Scalar(0, 100, 220), cv::Scalar(40, 160, 255), ink);
        QCOMPARE(cv::countNonZero(ink), 0);
        vSetWaterPrintPos(-10, -1);
        cv::Mat dark = greyOf(saved()) < 240;
        QVERIFY(cv::boundingRect(dark).br().x > 295 && cv::boundingRect(dark).x > 30);
        QVERIFY(cv::boundingRect(dark).br().y > 200);
        vSetWaterPrint(0, "仅供测试", 0);
        QCOMPARE(cv::countNonZero(greyOf(saved()) < 240), 0);
    }

    void absurdWatermarksDoNoHarm()
    {
        const QByteArray texts[] = {QByteArray(1'000'000, 'x'), QByteArray(5000, '\n'), "\xFF\xFE",
                                    "", "a"};
        for (const QByteArray &text : texts) {
            for (short number : {short(-32768), short(0), short(1), short(32767)}) {
                vSetWaterPrint(1, text.constData(), number);
                vSetWaterPrintFont(text.constData());
                vSetWaterPrintFontSize(number);
                vSetWaterPrintFontColor(number * 1'000'000L);
                vSetWaterPrintPos(number, number);
                QCOMPARE(saved().size(), cv::Size(640, 480));
            }
        }
        vSetWaterPrintFont("");
    }

    void settingsSurviveACameraSwitch()
    {
        QVERIFY(vSetDPI(600, 50) && vSetImageQuality(33) && bSetBookScannerMode(2));
        QVERIFY(bSetImageArea(1, 2, 30, 40) && bSetMode(1));
        setResolution(2, 810, 590);
        QVERIFY(bStartPlay2(0));
        int x = 0;
        int y = 0;
        vGetDPI(&x, &y);
        QCOMPARE(x * 1000 + y, 600'050);
        QCOMPARE(int(sGetImageQuality()), 33);
        QCOMPARE(igetBookScannerMode(), 2);
        QCOMPARE(saved().size(), cv::Size(29, 38));
        QCOMPARE(iGetResolutionX(2), 800);
        bSetMode(0);
        vSetResolutionEx(2, 6); // on the running camera
        QTRY_COMPARE(saved().size(), cv::Size(640, 480)); // the scene is painted anew
        m_log->takeLines();
        for (int index : {-1, 7, INT_MIN, INT_MAX}) {
            vSetResolutionEx(2, index);
        }
        setResolution(2, 0, -5);
        setResolution(77, 640, 480);
        QCOMPARE(m_log->takeLines().size(), 6);
        QCOMPARE(saved().size(), cv::Size(640, 480));
        setResolution(2, INT_MAX, INT_MAX);
        QTRY_COMPARE(saved().size(), cv::Size(2592, 1944));
        bSetBookScannerMode(0);
    }

    void valuesOutOfRangeChangeNothing()
    {
        for (int value : {-101, 101, INT_MIN, INT_MAX}) {
            QVERIFY(!vSetExposure(value) && !vSetBrightness(value) && !vSetContrast(value));
            QVERIFY(!bSetMode(value) && !vSetImageQuality(value) && !bSetBookScannerMode(value));
            QVERIFY(!vSetDPI(value < 0 ? value : 1201, 300) && !vSetDPI(300, 49));
        }
        QVERIFY(!vSetImageQuality(0) && !vSetDPI(Q_INT64_C(1) << 32, 300));
        QVERIFY(!bSetImageArea(10, 10, 10, 20) && !bSetImageArea(10, 30, 20, 20));
        QVERIFY(bSetImageArea(INT_MIN, INT_MIN, INT_MAX, INT_MAX) && bSetMode(1));
        QCOMPARE(saved().size(), cv::Size(640, 480));
        QCOMPARE(int(sGetImageQuality()), 95);
    }

    void adjustmentsOfASourceWithoutAny()
    {
        const auto grey = [] {
            cv::Mat frame;
            return getVideoFrameMat(frame) ? int(frame.at<cv::Vec3b>(400, 600)[1]) : -1;
        };
        QVERIFY(toImage(cv::Mat(480, 640, CV_8UC3, cv::Scalar::all(100))).save(path("camera.png")));
        QVERIFY(bStartPlay(0));
        QVERIFY(vSetBrightness(20));
        QCOMPARE(grey(), 126); // 100 + a fifth of half of the scale, rounded
        QVERIFY(vSetBrightness(0) && vSetExposure(50));
        QCOMPARE(grey(), 200);
        QVERIFY(vSetExposure(0) && vSetContrast(50));
        QCOMPARE(grey(), 72);
        vSetRotate(90); // turned in memory of its own
        cv::Mat frame;
        QVERIFY(getVideoFrameMat(frame));
        QCOMPARE(frame.size(), cv::Size(480, 640));
        QCOMPARE(int(frame.at<cv::Vec3b>(600, 400)[1]), 72);
        QVERIFY(vSetContrast(0));
        vSetRotate(0);
        QCOMPARE(grey(), 100);
        QVERIFY(AutoFocus());
        QVERIFY(bStopPlay() && !AutoFocus());
    }

    void hardwareIsAdjustedFirst()
    {
        Settings settings;
        auto source = std::make_unique<AdjustableSource>();
        AdjustableSource &hardware = *source;
        settings.focus(); // before there was a camera
        settings.setAdjustment(&Adjustments::brightness, 10);
        Camera camera(1, std::move(source), settings);
        QVERIFY(camera.start());
        QCOMPARE(int(hardware.hardwareBrightness), 10);
        cv::Mat frame;
        settings.setAdjustment(&Adjustments::exposure, -50);
        settings.focus();
        QVERIFY(camera.currentFrame(frame));
        QCOMPARE(int(frame.at<cv::Vec3b>(0, 0)[0]), 50);
        QCOMPARE(int(hardware.hardwareBrightness), 10);
        QCOMPARE(int(hardware.focused), 1);
    }

    void placesOnAControl()
    {
        const ControlRange brightness{-64, 64, 1, 0};
        QCOMPARE(controlValue(brightness, -100), -64);
        QCOMPARE(controlValue(brightness, 50), 32);
        const ControlRange lopsided{0, 255, 5, 200};
        QCOMPARE(controlValue(lopsided, 0), 200);
        QCOMPARE(controlValue(lopsided, 100), 255);
        QCOMPARE(controlValue(lopsided, -51), 100); // on a step
        const ControlRange exposure{1, 10'000, 1, 100};
        QCOMPARE(exposureValue(exposure, 50), 1000); // half of the way in ratios
        QCOMPARE(exposureValue(exposure, -100), 1);
        const ControlRange extreme{INT_MIN, INT_MAX, 0, 0};
        QCOMPARE(controlValue(extreme, 100), INT_MAX);
        QCOMPARE(exposureValue(extreme, -100), INT_MIN);
    }

    void base64OfShots()
    {
        cv::Mat color = decoded(QByteArray::fromBase64(sGetImageBase64_Byte(0)));
        QVERIFY(meanDifference(color, quarters({640, 480})) < 3);
        const QByteArray grey = QByteArray::fromBase64(sGetImageBase64_Byte(1));
        QVERIFY(QImage::fromData(grey).isGrayscale());
        const cv::Mat ink = decoded(QByteArray::fromBase64(sGetImageBase64_Byte(2)));
        cv::Mat expected;
        cv::cvtColor(bilevel(quarters({640, 480})), expected, cv::COLOR_GRAY2BGR);
        QCOMPARE(meanDifference(ink, expected), 0.0);
        for (int number : {-1, 3, INT_MIN}) {
            QVERIFY(!sGetImageBase64_Byte(number));
        }
        bStopPlay();
        QVERIFY(!sGetImageBase64_Byte(0));
        QVERIFY(!bSaveJPG(here(), "none"));
    }

    void base64OfFiles()
    {
        const QByteArray content = QByteArray::fromHex("00ff0a0d00fe");
        writeFile(path("文件"), content);
        char *text = Base64Encode(utf8("文件"));
        const QByteArray encoded(text);
        std::free(text);
        QCOMPARE(encoded, content.toBase64());
        QVERIFY(Base64Decode(encoded.constData(), utf8("新/out")));
        QCOMPARE(contentOf(path("新/out")), content);
        QVERIFY(!Base64Encode(utf8("absent")) && !Base64Encode(""));
        QVERIFY(!Base64Encode(here()));
        writeFile(path("huge"), {});
        QVERIFY(QFile::resize(path("huge"), 900LL << 20)); // no text could hold it
        QVERIFY(!Base64Encode(utf8("huge")));
        for (const char *garbage : {"", "A", "no base64!", "AAAA=AAA", "AAA====", "===="}) {
            QVERIFY2(!Base64Decode(garbage, utf8("never")), garbage);
        }
        QVERIFY(!Base64Decode("AAAA", utf8("文件/x")) && !Base64Decode("AAAA", ""));
        QVERIFY(!QFile::exists(path("never")));
    }

    void splitAtTheFold_data()
    {
        // fold: 0: none is seen
        const Rows<int, int> row("fold", "expected");
        row("left of the middle", 590, 590);
        row("right of the middle", 690, 690);
        row("none to be seen", 0, 640);
    }

    void splitAtTheFold()
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
        QVERIFY(toImage(book).save(path("书 1.v2.png")));
        QVERIFY(SplitPic(utf8("书 1.v2.png"), utf8("halves")));
        QString error;
        const cv::Mat left = readPicture(path("halves/书 1.v2_left.jpg"), &error);
        const cv::Mat right = readPicture(path("halves/书 1.v2_right.jpg"), &error);
        QVERIFY2(qAbs(left.cols - expected) <= 4, qPrintable(QString::number(left.cols)));
        cv::Mat both;
        cv::hconcat(left, right, both);
        QVERIFY(meanDifference(both, book) < 3);
        // So narrow that reduced it would vanish.
        QVERIFY(toImage(cv::Mat(24, 40000, CV_8UC3, cv::Scalar::all(200))).save(path("strip.png")));
        QVERIFY(SplitPic(utf8("strip.png"), utf8("halves")));
        QVERIFY(!SplitPic(utf8("absent.png"), utf8("x")));
        QVERIFY(!SplitPic(utf8("书 1.v2.png"), "")
                && !SplitPic(utf8("书 1.v2.png"), utf8("camera.png")));
    }

    void captureWhileEverythingChanges()
    {
        std::atomic<int> failed{0};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 3; ++thread) {
            threads.emplace_back([&, thread] {
                const QByteArray name = QByteArray::number(thread % 2);
                for (int i = 0; i < 15; ++i) {
                    vSetWaterPrint(1, QByteArray::number(i).constData(), 50);
                    bSetMode(i % 3);
                    vSetBrightness(i);
                    failed += bSaveJPG(here(), name.constData()) ? 0 : 1;
                    failed += sGetImageBase64_Byte(i % 3) ? 0 : 1;
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        QCOMPARE(int(failed), 0);
        QCOMPARE(everythingIn(m_folder->path()),
                 (QStringList{line("0.jpg"), line("1.jpg"), line("camera.png")}));
    }

private:
    Utf8 here() const { return Utf8(m_folder->path()); }

    /// What a capture gives just now.
    cv::Mat saved()
    {
        QString error;
        return bSavePNG(here(), "shot") ? readPicture(path("shot.png"), &error) : cv::Mat();
    }
};

QTEST_MAIN(TestPortableCapture)
#include "tst_portablecapture.moc"
