// SPDX-License-Identifier: MIT
// The portable library's settings, captures and watermark.
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/camera/camera.h"
#include "portable/camera/testsheet.h"
#include "portable/camera/v4l2controls.h"
#include "portable/picture/bilevel.h"
#include "portable/picture/imageconversion.h"
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
        // facts: what the program says of a file of 640 x 480 pixels, separated by "|"
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
        const QByteArray output =
            outputOf(extension == line(".tif") ? "tiffinfo" : "exiftool", arguments).simplified();
        for (const QString &fact : facts.split(QLatin1Char('|'))) {
            QVERIFY2(output.contains(fact.toUtf8()), output.constData());
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

    void withoutAPageTheWholePicture()
    {
        QVERIFY(
            toImage(cv::Mat(480, 640, CV_8UC3, cv::Scalar(60, 80, 110))).save(path("camera.png")));
        QVERIFY(bStartPlay(0) && bSetMode(2));
        m_log->takeLines();
        QCOMPARE(saved().size(), cv::Size(640, 480));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("no page is found; the whole picture is taken")});
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

        const auto height = [this](int x, int y) { // of the text at this resolution
            return vSetDPI(x, y) ? cv::boundingRect(cv::Mat(greyOf(saved()) < 240)).height : 0;
        };
        QVERIFY(height(100, 400) > 2 * height(400, 100));
        QVERIFY(vSetDPI(300, 300));
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
        QTRY_COMPARE(saved().size(), cv::Size(640, 480)); // the scene is repainted
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

    void splitIntoHalves()
    {
        const cv::Mat book = quarters({640, 480});
        QVERIFY(toImage(book).save(path("书 1.v2.png")));
        QVERIFY(SplitPic(utf8("书 1.v2.png"), utf8("halves")));
        QString error;
        const cv::Mat left = readPicture(path("halves/书 1.v2_left.jpg"), &error);
        const cv::Mat right = readPicture(path("halves/书 1.v2_right.jpg"), &error);
        QVERIFY(qAbs(left.cols - 320) <= 4);
        cv::Mat both;
        cv::hconcat(left, right, both);
        QVERIFY(meanDifference(both, book) < 3);
        QVERIFY(toImage(book.col(0)).save(path("strip.png")));
        for (const char *bad : {"absent.png", "strip.png"}) {
            m_log->takeLines();
            QVERIFY(!SplitPic(utf8(bad), utf8("x")));
            const QString said = m_log->takeLines().value(0);
            QVERIFY(said.startsWith(line("SplitPic: ") + path(bad)));
            QCOMPARE(said.contains(line("too narrow")), qstrcmp(bad, "strip.png") == 0);
        }
        QVERIFY(!SplitPic(utf8("书 1.v2.png"), "")
                && !SplitPic(utf8("书 1.v2.png"), utf8("camera.png")));
    }

    void filesOfOneShotAgree()
    {
        Repeaters changes;
        changes.add([](int round) { vSetDPI(round % 2 == 0 ? 100 : 200, 300); });
        for (int i = 0; i < 20; ++i) {
            QVERIFY(bSaveGrayAndTIF(here(), "a", here(), "b"));
            QString error;
            const auto jpeg = checkJpeg(contentOf(path("a.jpg")), &error);
            const auto tiff = storedDpi(contentOf(path("b.tif")));
            QVERIFY(jpeg && tiff);
            QCOMPARE(jpeg->head.dpi->x, tiff->x);
        }
    }

    void captureWhileEverythingChanges()
    {
        std::atomic<int> failed{0};
        std::vector<std::thread> threads;
        threads.reserve(3);
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
