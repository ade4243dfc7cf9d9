// SPDX-License-Identifier: MIT
// The portable library's fingerprints: reading and comparing prints, the simulated sensor and the
// exported functions.
#include "devicelib/biometrics.h"
#include "portable/finger/fingerprint.h"
#include "portable/finger/fingersensor.h"
#include "tests/drawnfinger.h"
#include "tests/manualclock.h"
#include "tests/portabletest.h"

#include <QtTest>
#include <dlfcn.h>
#include <opencv2/imgproc.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <complex>
#include <deque>

using namespace portable;

namespace {

constexpr int sameFinger = 40; // at least
constexpr int otherFinger = 25; // at most

/// What the listener of a capture received.
struct Captured
{
    QByteArray image;
    QByteArray feature;
    int score = INT_MIN;
    QString message;
    int calls = 0;
};

void onCapture(QByteArray image, QByteArray feature, int score, const char *message, void *context)
{
    auto *captured = static_cast<Captured *>(context);
    *captured = {image, feature, score, QString::fromUtf8(message), captured->calls + 1};
}

void saveGray(const cv::Mat &gray, const QString &path)
{
    const uchar *pixels = gray.data;
    QVERIFY(
        QImage(pixels, gray.cols, gray.rows, int(gray.step), QImage::Format_Grayscale8).save(path));
}

/// Drawn when they are needed, as that takes long. \param which  0 or 1
const cv::Mat &finger(size_t which)
{
    static const cv::Mat both[] = {drawFinger(4), drawFinger(6)};
    return both[which];
}

Minutiae storedPrint(size_t which)
{
    return readFingerprint(pressFinger(finger(which), {0, {}, 4, 0}, 9)).minutiae;
}

/// \param finger  value of the key; null: no key
QByteArray iniWith(const QString &folder, const char *finger)
{
    return "[fingers]\nfolder=" + folder.toUtf8()
        + (finger ? "\nfinger=" + QByteArray(finger) : QByteArray()) + '\n';
}

} // namespace

Q_DECLARE_METATYPE(Minutiae)

class TestPortableFingers : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        base::Clock::setShared(nullptr);
        m_clock.reset();
        PortableTest::cleanup();
    }

    void sameAndOtherFingers_data()
    {
        const Rows<double, double, double, double> row("turn", "shift", "noise", "pressure");
        row("as it was", 0., 0., 0., 0.);
        row("turned, dry", 25., 10., 6., -0.6);
        row("shifted, wet", -8., 30., 6., 0.6);
        row("noisy", -20., -15., 24., 0.);
    }

    void sameAndOtherFingers()
    {
        QFETCH(double, turn);
        QFETCH(double, shift);
        QFETCH(double, noise);
        QFETCH(double, pressure);
        static const Minutiae stored[] = {storedPrint(0), storedPrint(1)};
        const Impression impression{turn, {float(shift), float(-shift)}, noise, pressure};
        for (size_t i = 0; i < 2; ++i) {
            const Fingerprint print = readFingerprint(pressFinger(finger(i), impression, 5));
            QVERIFY(print.quality >= 80);
            for (size_t k = 0; k < 2; ++k) {
                const int score = fingerScore(print.minutiae, stored[k]);
                QVERIFY2(i == k ? score >= sameFinger : score <= otherFinger,
                         qPrintable(QStringLiteral("%1 of %2 and %3").arg(score).arg(i).arg(k)));
            }
        }
    }

    void qualityFallsWithThePicture()
    {
        const auto qualityOf = [](const Impression &impression) {
            return readFingerprint(pressFinger(finger(0), impression)).quality;
        };
        const int clear = qualityOf({});
        const int blurred = qualityOf({0, {}, 150, 0});
        const int corner = qualityOf({0, {120, 180}, 0, 0});
        QVERIFY2(clear > 90 && clear <= 100 && blurred < 75 && corner < 75,
                 qPrintable(QStringLiteral("%1 %2 %3").arg(clear).arg(blurred).arg(corner)));
    }

    void picturesWithoutFinger()
    {
        cv::Mat noise(400, 300, CV_8U);
        cv::randu(noise, 0, 256);
        cv::Mat stripes(400, 300, CV_8U);
        for (int y = 0; y < stripes.rows; ++y) {
            stripes.row(y).setTo(y / 5 % 2 == 0 ? 40 : 220);
        }
        cv::Mat text(400, 300, CV_8U, cv::Scalar(255));
        for (int y = 20; y < text.rows; y += 18) {
            cv::putText(text, "No ridges but letters " + std::to_string(y), {5, y},
                        cv::FONT_HERSHEY_SIMPLEX, 0.7, 0, 2);
        }
        for (const cv::Mat &picture :
             {noise, stripes, text, cv::Mat(400, 300, CV_8U, cv::Scalar(255)),
              cv::Mat(3, 5, CV_8U, cv::Scalar(0)), cv::Mat(40, 3000, CV_8U, cv::Scalar(90))}) {
            const Fingerprint print = readFingerprint(picture);
            QCOMPARE(print.quality, 0);
            QVERIFY(print.minutiae.empty());
        }
        QCOMPARE(fingerScore({}, {}), 0);
    }

    /// Stripes around a phase singularity have one minutia there: a ridge that ends or forks.
    void minutiaOfASingularity()
    {
        const cv::Point2f center(100, 100);
        for (int eighth = 0; eighth < 8; ++eighth) { // stripes of all directions, both windings
            const double slope = eighth * CV_PI / 4;
            const int sign = eighth % 2 == 0 ? 1 : -1;
            bool wasFork = false;
            for (const double phase : {0.0, CV_PI}) {
                cv::Mat picture(200, 200, CV_8U);
                for (int y = 0; y < picture.rows; ++y) {
                    for (int x = 0; x < picture.cols; ++x) {
                        const double across = y * std::cos(slope) - x * std::sin(slope);
                        const double turn = std::atan2(y - 100.5, x - 100.5);
                        picture.at<uchar>(y, x) = uchar(
                            128 - 100 * std::cos(2 * CV_PI * across / 9 + sign * turn + phase));
                    }
                }
                const Fingerprint print = readFingerprint(picture);
                QCOMPARE(print.minutiae.size(), size_t(1));
                const Minutia &minutia = print.minutiae.front();
                QVERIFY(cv::norm(minutia.place - center) < 9);
                QVERIFY(phase == 0 || minutia.isFork != wasFork); // ridges become valleys
                wasFork = minutia.isFork;
                const cv::Point2f along(std::cos(minutia.direction), std::sin(minutia.direction));
                const auto brightness = [&](int way) { // mean from 4 to 12 pixels off
                    int sum = 0;
                    for (int i = 4; i <= 12; ++i) {
                        sum += picture.at<uchar>(cv::Point(minutia.place + along * float(way * i)));
                    }
                    return sum / 9;
                };
                QVERIFY(brightness(1) + 60 < brightness(-1)); // it points into the ridge
                QVERIFY(print.quality > 0 && print.quality < 30); // too little to compare
            }
        }
    }

    void scores_data()
    {
        const Rows<Minutiae, Minutiae, int> row("a", "b", "score");
        cv::RNG random(3);
        Minutiae some;
        for (int i = 0; i < 15; ++i) { // 40 pixels apart, so that pairs are unmistakable
            const int column = i % 4;
            const int line = i / 4;
            some.push_back({{float(100 + column * 40), float(100 + line * 40)},
                            random.uniform(0.F, float(2 * CV_PI)),
                            i % 2 == 0});
        }
        const auto moved = [&some](double degrees, float x, float y) {
            const std::complex<float> turn = std::polar(1.F, float(degrees * CV_PI / 180));
            Minutiae result = some;
            for (Minutia &minutia : result) {
                const auto place = turn * std::complex<float>(minutia.place.x, minutia.place.y);
                minutia.place = {place.real() + x, place.imag() + y};
                minutia.direction += std::arg(turn);
            }
            return result;
        };
        Minutiae doubled = some;
        doubled.push_back(some[5]);
        doubled.back().place.x += 4;
        Minutiae turned = some;
        turned[5].direction += float(CV_PI / 2);
        const Minutiae few(some.begin(), some.begin() + 5);
        row("equal", some, some, 100);
        row("turned and shifted", some, moved(70, 40, -25), 100);
        row("turned by more than half", some, moved(-170, 300, 300), 100);
        row("a pair takes two", some, doubled, 94); // 15 * 15 / (15 * 16)
        row("two take a pair", doubled, some, 94);
        row("another direction", some, turned, 87); // 14 * 14 / (15 * 15)
        row("few count as a part of ten", few, few, 25); // 5 * 5 / (10 * 10)
        row("two are too few", {some[0], some[1]}, {some[0], some[1]}, 0);
    }

    void scores()
    {
        QFETCH(Minutiae, a);
        QFETCH(Minutiae, b);
        QTEST(fingerScore(a, b), "score");
    }

    void featuresSurviveTheirText()
    {
        Minutiae minutiae;
        for (int i = 0; i < 5; ++i) {
            minutiae.push_back({{float(100 * i), float(7 * i)}, float(i) * 1.2F, i % 2 == 1});
        }
        const QByteArray text = fingerFeature(minutiae);
        QVERIFY(!text.contains('\0'));
        const QByteArray two = text + fingerFeature({});
        const char *at = two.constData();
        Minutiae read;
        QVERIFY(readFingerFeature(&at, &read));
        QCOMPARE(read.size(), minutiae.size());
        for (size_t i = 0; i < read.size(); ++i) {
            QCOMPARE(read[i].place, minutiae[i].place);
            QVERIFY(std::abs(read[i].direction - minutiae[i].direction) < 0.01F);
            QCOMPARE(read[i].isFork, minutiae[i].isFork);
        }
        QVERIFY(readFingerFeature(&at, &read) && read.empty());
        QVERIFY(!readFingerFeature(&at, &read));
        QCOMPARE(*at, '\0');
    }

    void brokenFeatures()
    {
        const QByteArray good = fingerFeature({{{10, 20}, 1, false}, {{30, 40}, 2, true}});
        QCOMPARE(lFingerMatch(0, good.constData(), 1, good.constData()), 0); // too few to compare
        QList<QByteArray> broken{"",
                                 "FIN1",
                                 "FIN1//",
                                 "FAC1AAAA",
                                 QByteArray(1000, 'A'),
                                 QByteArray("FIN1") + QByteArray(5000, '/'),
                                 QByteArray::fromHex("aabbccddeeff")};
        for (int length = 0; length < good.size(); ++length) {
            broken << good.left(length); // a copy that ends there, which the sanitizer watches
            QByteArray changed = good;
            changed[length] = changed[length] == 'B' ? 'C' : 'B';
            broken << changed;
        }
        m_log->takeLines();
        for (const QByteArray &feature : qAsConst(broken)) {
            QCOMPARE(lFingerMatch(0, feature.constData(), 1, good.constData()), -1);
            QCOMPARE(lFingerMatch(0, good.constData(), 9, feature.constData()), -2);
            QCOMPARE(
                m_log->takeLines(),
                (QStringList{line("lFingerMatch: the feature is none of this library"),
                             line("lFingerMatch: there is no stored feature of this library")}));
        }
        QCOMPARE(lFingerMatch(0, good.constData(), 0, good.constData()), -2);
        QCOMPARE(lFingerMatch(0, good.constData(), INT_MIN, good.constData()), -2);
        QCOMPARE(lFingerMatch(0, nullptr, 1, nullptr), -1);
    }

    void capturesAndCompares()
    {
        const QString samples = line(SOURCE_DIR "/portable/samples/fingers");
        const Captured first = capture(iniWith(samples, nullptr), 5000);
        QVERIFY2(first.score >= 80, qPrintable(first.message));
        QCOMPARE(first.message, line("采集成功（仿真）"));
        QImage image;
        QVERIFY(image.loadFromData(QByteArray::fromBase64(first.image), "PNG"));
        QCOMPARE(image.size(), QSize(300, 380));

        // The first by name is finger1-again; the others are named.
        const auto featureOf = [&](const char *file) {
            return QByteArray::fromHex(capture(iniWith(samples, file), 0).feature);
        };
        const QByteArray again = QByteArray::fromHex(first.feature);
        const QByteArray same = featureOf("finger1.png");
        const QByteArray other = featureOf("finger2.png");
        QVERIFY(lFingerMatch(0, again.constData(), 1, same.constData()) >= sameFinger);
        QVERIFY(lFingerMatch(0, again.constData(), 1, other.constData()) <= otherFinger);

        // The best of several; no more than `count` of them, and no more than there are.
        const QByteArray both = other + same;
        const int best = lFingerMatch(0, again.constData(), 2, both.constData());
        QCOMPARE(best, lFingerMatch(0, again.constData(), 1, same.constData()));
        QCOMPARE(lFingerMatch(1, again.constData(), INT_MAX, both.constData()), best);
        QVERIFY(lFingerMatch(0, again.constData(), 1, both.constData()) <= otherFinger);
        m_log->takeLines();
        for (const QByteArray &withGarbage :
             QList<QByteArray>{same + "FIN1garbage", "garbage" + same, other.left(50) + same,
                               other.chopped(1) + same}) {
            QCOMPARE(lFingerMatch(0, again.constData(), 2, withGarbage.constData()), best);
            QCOMPARE(m_log->takeLines(),
                     QStringList{line("lFingerMatch: a stored feature is none of this library")});
        }
    }

    void captureWithoutFinger_data()
    {
        const Rows<QString, int, QString, QString> row("finger", "score", "message", "log");
        // clang-format off
        row("nobody there",  "none",       -1, "未检测到手指",     "no finger: devices.ini sets it to \"none\"");
        row("no such file",  "absent.png", -1, "未检测到手指",     "no finger: FOLDER/absent.png doesn't exist");
        row("no picture",    "text.png",   -2, "指纹图像无法识别", "no finger: FOLDER/text.png: it can't be read as a picture: Unsupported image format");
        row("no finger",     "white.png",  -2, "指纹图像无法识别", "FOLDER/white.png shows no finger");
        // clang-format on
    }

    void captureWithoutFinger()
    {
        QFETCH(QString, finger);
        writeFile(path("text.png"), "no picture");
        saveGray(cv::Mat(300, 300, CV_8U, cv::Scalar(255)), path("white.png"));
        const Captured captured =
            capture(iniWith(m_folder->path(), finger.toUtf8().constData()), 50);
        QTEST(captured.score, "score");
        QTEST(captured.message, "message");
        QVERIFY(captured.image.isEmpty() && captured.feature.isEmpty());
        QFETCH(QString, log);
        log.replace(line("FOLDER"), m_folder->path());
        QCOMPARE(m_log->takeLines(), QStringList{line("fingerprint sensor: ") + log});
    }

    void noSensorUnlessSimulated()
    {
        qunsetenv("DEVICE_SIMULATION");
        const Captured captured = capture(iniWith(m_folder->path(), nullptr), 50);
        QCOMPARE(captured.score, -4);
        QCOMPARE(captured.message, line("未连接指纹仪"));
        QCOMPARE(m_log->takeLines().size(), 1);
        QCOMPARE(capture(iniWith(m_folder->path(), "none"), 50).score, -1); // asked for by name
    }

    /// libfprint's virtual sensor, which takes its pictures from a socket. The library stays: GLib,
    /// which it brings, keeps memory for good.
    void realSensor()
    {
        void *const library = ::dlopen("libfprint-2.so.2", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        if (!library) {
            QSKIP("the package libfprint-2-2 is not installed");
        }
        ::dlclose(library);
        const QString worker = besideProgram("fingerworker");
        QFile::remove(worker);
        QVERIFY(QFile::link(line(FINGER_WORKER), worker));
        const auto cleaner = qScopeGuard([&] {
            QFile::remove(worker);
            qunsetenv("FP_VIRTUAL_IMAGE");
        });
        qunsetenv("DEVICE_SIMULATION");
        const QByteArray noFinger = iniWith(m_folder->path(), nullptr);
        QCOMPARE(capture(noFinger, 5000).score, -4);
        const QString log = m_log->takeLines().join(QLatin1Char('\n'));
        QVERIFY2(log.contains(line("no sensor that libfprint knows")), qPrintable(log));

        qputenv("FP_VIRTUAL_IMAGE", path("sensor").toUtf8());
        qputenv("DEVICE_SIMULATION", "1"); // a real one isn't made up for
        QCOMPARE(capture(noFinger, 1500).score, -1);
        const auto pressed = [&](const cv::Mat &print) {
            std::thread hand([&] { putOnVirtualSensor(print); });
            Captured result = capture(noFinger, 20000);
            hand.join();
            return result;
        };
        const Captured first = pressed(pressFinger(finger(0), {0, {}, 4, 0}, 9));
        QVERIFY2(first.score >= 60, qPrintable(first.message + m_log->lines().join(line("\n"))));
        QCOMPARE(first.message, line("采集成功"));
        const auto scoreOf = [&](const Captured &other) {
            return lFingerMatch(0, QByteArray::fromHex(first.feature).constData(), 1,
                                QByteArray::fromHex(other.feature).constData());
        };
        QVERIFY(scoreOf(pressed(pressFinger(finger(0), {8, {5, 3}, 4, 0}, 3))) >= sameFinger);
        QVERIFY(scoreOf(pressed(pressFinger(finger(1), {0, {}, 4, 0}, 9))) <= otherFinger);
        QCOMPARE(pressed(cv::Mat(300, 300, CV_8U, cv::Scalar(255))).score, -2);
    }

    void fingerComesWhileItWaits()
    {
        useIni(iniWith(m_folder->path(), nullptr));
        useClock();
        Captured waiting;
        fingerCaptureRawData(60000, onCapture, &waiting);
        Captured refused;
        fingerCaptureRawData(60000, onCapture, &refused);
        QTRY_COMPARE(refused.calls, 1);
        QCOMPARE(refused.score, -3);
        QCOMPARE(refused.message, line("指纹仪正在采集"));
        QCOMPARE(waiting.calls, 0);
        QVERIFY(m_clock->waitForWaiter()); // it has looked
        saveGray(pressFinger(finger(0)), path("finger.png"));
        m_clock->advance(std::chrono::milliseconds(200));
        QTRY_COMPARE_WITH_TIMEOUT(waiting.calls, 1, 20000);
        QVERIFY2(waiting.score > 80, qPrintable(waiting.message));
        QCoreApplication::processEvents();
        QCOMPARE(waiting.calls, 1);
    }

    /// A capture waits as long as it was asked to: ten seconds by default, at most a minute.
    void captureTimeout_data()
    {
        const Rows<int, int> row("timeoutMs", "expectedMs");
        row("as asked", 3000, 3000);
        row("the shortest", 1, 1);
        row("default", 0, 10000);
        row("negative", -1, 10000);
        row("too long", 600000, 60000);
    }

    void captureTimeout()
    {
        QFETCH(int, timeoutMs);
        QFETCH(int, expectedMs);
        useIni(iniWith(m_folder->path(), "none"));
        useClock();
        Captured captured;
        fingerCaptureRawData(timeoutMs, onCapture, &captured);
        QVERIFY(m_clock->waitForWaiter());
        const auto begin = m_clock->now();
        m_clock->runFree();
        QTRY_COMPARE(captured.score, -1);
        QVERIFY(m_clock->now() - begin == std::chrono::milliseconds(expectedMs));
    }

    // Last: at the end of the program, a waiting capture ends without calling its listener.
    void captureUnderWayAtTheEnd()
    {
        static Captured never;
        useIni(iniWith(m_folder->path(), "none"));
        fingerCaptureRawData(60000, onCapture, &never);
    }

private:
    /// Waits for the sensor's socket; sends size and pixels, as libfprint's virtual sensor expects.
    void putOnVirtualSensor(const cv::Mat &print) const
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, utf8("sensor"), sizeof address.sun_path);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        for (int tries = 0; tries < 1000
             && ::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0;
             ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        const qint32 size[] = {print.cols, print.rows};
        QByteArray bytes(reinterpret_cast<const char *>(size), sizeof size);
        bytes.append(reinterpret_cast<const char *>(print.data), int(print.total()));
        (void)!::send(socket, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ::close(socket);
    }

    /// From now on captures wait by m_clock.
    void useClock()
    {
        m_clock = std::make_unique<ManualClock>();
        base::Clock::setShared(m_clock.get());
    }

    /// Captures with this devices.ini.
    Captured capture(const QByteArray &ini, int timeoutMs)
    {
        m_captured.emplace_back(); // outlives a wait that fails
        Captured &captured = m_captured.back();
        useIni(ini);
        fingerCaptureRawData(timeoutMs, onCapture, &captured);
        if (!QTest::qWaitFor([&captured] { return captured.calls > 0; }, 30000)) {
            QTest::qFail("no answer", __FILE__, __LINE__);
        }
        return captured;
    }

    std::deque<Captured> m_captured;
    std::unique_ptr<ManualClock> m_clock; // null: real time
};

QTEST_MAIN(TestPortableFingers)
#include "tst_portablefingers.moc"
