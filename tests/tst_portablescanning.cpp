// SPDX-License-Identifier: MIT
// The portable library's scans: when they take shots, what they write, and what they report.
#include "devicelib/doccamera.h"
#include "portable/camera/pageturning.h"
#include "portable/camera/testscenesource.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/stillness.h"
#include "portable/recording/scanner.h"
#include "tests/manualclock.h"
#include "tests/portabletest.h"

#include <QtTest>
#include <opencv2/imgproc.hpp>

#include <array>
#include <atomic>
#include <thread>

using namespace portable;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(portable::BookMode)

namespace {

/// A desk with a sheet of paper at `x`.
cv::Mat deskWithSheet(int x)
{
    cv::Mat picture(240, 320, CV_8UC3, cv::Scalar(60, 70, 80));
    cv::rectangle(picture, {x, 60, 120, 120}, cv::Scalar(230, 235, 235), cv::FILLED);
    return picture;
}

/// A desk whose sheet the test moves.
class Desk
{
public:
    void put(int x) { m_x = x; }
    cv::Mat frame() const { return deskWithSheet(m_x); }

private:
    std::atomic<int> m_x{10};
};

class DeskSource : public FrameSource
{
public:
    explicit DeskSource(std::shared_ptr<Desk> desk)
        : m_desk(std::move(desk))
    {
    }
    QString name() const override { return line("desk"); }
    bool open(const cv::Size & /*wanted*/, QString * /*error*/) override { return true; }
    void close() override { }
    bool read(cv::Mat &frame, QString * /*error*/) override
    {
        frame = m_desk->frame();
        return true;
    }
    double framesPerSecond() const override { return 1000; }
    std::vector<cv::Size> sizes() const override { return {{320, 240}}; }

private:
    const std::shared_ptr<Desk> m_desk;
};

/// Cameras that all look at one desk, number 1 open, and a scanner whose time the test moves.
struct Office
{
    using MakeSource = std::function<std::unique_ptr<FrameSource>(base::Clock &)>;

    /// \param look  what the cameras look at; empty: the desk
    explicit Office(MakeSource look = {})
        : makeSource(std::move(look))
    {
        cameras.start(1);
    }

    /// Moves the sheet; the camera's next frames show it.
    void put(int x)
    {
        desk->put(x);
        awaitFrames();
    }

    void awaitFrames()
    {
        cv::Mat frame;
        for (int i = 0; i < 3; ++i) { // one may have been published, another be in progress
            QVERIFY(cameras.nextPreviewFrame(frame));
        }
    }

    /// Lets time pass for a running scan, which checks the preview as often as it would.
    void wait(std::chrono::milliseconds time)
    {
        for (auto passed = 0ms; passed < time; passed += scanInterval) {
            QVERIFY(clock.waitForWaiter());
            clock.advance(scanInterval);
        }
        QVERIFY(clock.waitForWaiter());
    }

    /// Moves the sheet and lets it rest until a scan takes its shot.
    void scan(int x)
    {
        put(x);
        wait(1s);
    }

    std::shared_ptr<Desk> desk = std::make_shared<Desk>();
    ManualClock clock;
    const MakeSource makeSource;
    CameraSet cameras{[this](int, QString *) -> std::unique_ptr<FrameSource> {
        return makeSource ? makeSource(clock) : std::make_unique<DeskSource>(desk);
    }};
    Scanner scanner{cameras,
                    [this] {
                        cv::Mat frame;
                        cameras.currentFrame(frame);
                        return Shot{frame, 85, {}};
                    },
                    clock};
};

class Observer : public QObject
{
    Q_OBJECT

public:
    QList<int> numbers;
    QThread *calledIn = nullptr;

public Q_SLOTS:
    void slot_iAutoshot(int number)
    {
        numbers << number;
        calledIn = QThread::currentThread();
    }
};

} // namespace

class TestPortableScanning : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void stillness_data()
    {
        // places: of the sheet, 0.1 s apart
        // shots: indexes of the places at which a shot is due
        const Rows<QVector<int>, QVector<int>> row("places", "shots");
        // clang-format off
        row("nothing moves",         QVector<int>{10, 10, 10, 10, 10, 10, 10}, QVector<int>{});
        row("moved once",            QVector<int>{10, 10, 90, 90, 90, 90, 90, 90, 90, 90}, QVector<int>{5});
        row("always moving",         QVector<int>{10, 50, 90, 50, 10, 50, 90, 50, 10}, QVector<int>{});
        row("moved before the rest", QVector<int>{10, 90, 90, 90, 50, 50, 50, 50, 50}, QVector<int>{7});
        row("two sheets",            QVector<int>{10, 90, 90, 90, 90, 50, 50, 50, 50}, QVector<int>{4, 8});
        row("creeps",                QVector<int>{10, 14, 18, 22, 26, 30, 34, 38, 42, 46}, QVector<int>{});
        // clang-format on
    }

    void stillness()
    {
        QFETCH(QVector<int>, places);
        QVector<int> shots;
        Stillness stillness(300ms);
        Stillness::Clock::time_point time;
        for (int i = 0; i < places.size(); ++i) {
            if (stillness.look(deskWithSheet(places[i]), time + i * 100ms)) {
                shots << i;
            }
        }
        QTEST(shots, "shots");
    }

    void smallChangesAreNoMovement()
    {
        const TestScene scene({640, 360});
        Stillness stillness(1s);
        Stillness::Clock::time_point time;
        cv::Mat noise(scene.background().size(), CV_16SC3);
        cv::setRNGSeed(1);
        for (int i = 0; i < 100; ++i) { // the clock, the light and the noise of a dim room
            cv::Mat frame = scene.background().clone();
            scene.drawClock(frame, QTime(0, 0).addSecs(i * 211));
            cv::randn(noise, i / 5.0, 6);
            frame.convertTo(frame, CV_16S);
            frame += noise;
            frame.convertTo(frame, CV_8U);
            QVERIFY(!stillness.look(frame, time += 1s));
        }
        cv::Mat card = scene.background().clone(); // as small as documents are
        cv::rectangle(card, {50, 250, 90, 57}, cv::Scalar(200, 180, 160), cv::FILLED);
        QVERIFY(!stillness.look(card, time += 1s));
        QVERIFY(stillness.look(card, time += 1s));
    }

    void automaticScan()
    {
        Office office;
        Observer observer;
        QVERIFY(office.scanner.observe(&observer, "1slot_iAutoshot(int)"));
        QVERIFY(office.scanner.startAutomatic({path("扫描/a"), line("页")}));
        for (int x = 10; x < 150; x += 20) { // never at rest for long
            office.put(x);
            office.wait(600ms);
        }
        QCoreApplication::processEvents();
        QVERIFY(observer.numbers.isEmpty());
        office.wait(200ms);
        QTRY_COMPARE(observer.numbers, (QList<int>{1}));
        QCOMPARE(observer.calledIn, QThread::currentThread());
        office.wait(3s);
        QCoreApplication::processEvents();
        QCOMPARE(observer.numbers, (QList<int>{1})); // it is the same sheet
        office.scan(100);
        QTRY_COMPARE(observer.numbers, (QList<int>{1, 2}));
        office.scanner.stop();
        QCOMPARE(m_log->lines().last(), line("automatic scan has ended, with shots: 2"));
        QCOMPARE(everythingIn(path("扫描/a")), (QStringList{line("页001.jpg"), line("页002.jpg")}));
        QString error;
        const cv::Mat sheet = readPicture(path("扫描/a/页002.jpg"), &error);
        QVERIFY(cv::norm(sheet, deskWithSheet(100), cv::NORM_INF) < 60);
    }

    void scanCanBeStartedAgain()
    {
        Office office;
        for (int i = 1; i <= 3; ++i) {
            const QString prefix = QString::number(i);
            QVERIFY(office.scanner.startAutomatic({m_folder->path(), prefix}));
            office.wait(100ms);
            office.scan(i * 40);
            QVERIFY(QFile::exists(path(prefix + line("001.jpg"))));
            if (i < 3) {
                office.scanner.stop(); // the third is ended by the next start
            }
        }
        QVERIFY(office.scanner.startTimed({m_folder->path(), line("t")}, 1s, 0));
        office.scan(200);
        QCOMPARE(
            everythingIn(m_folder->path()),
            (QStringList{line("1001.jpg"), line("2001.jpg"), line("3001.jpg"), line("t001.jpg")}));
    }

    void observersComeAndGo()
    {
        Office office;
        Observer second;
        auto first = std::make_unique<Observer>();
        QVERIFY(office.scanner.observe(first.get(), "1slot_iAutoshot(int)"));
        QVERIFY(!office.scanner.observe(first.get(), "1slot_none(int)"));
        QCOMPARE(m_log->takeLines().last(),
                 line("the automatic scan has no receiver: there is no slot \"1slot_none(int)\""));
        QVERIFY(!office.scanner.observe(first.get(), nullptr));
        QVERIFY(!office.scanner.observe(first.get(), ""));
        QVERIFY(!office.scanner.observe(first.get(), "2destroyed()"));
        QVERIFY(office.scanner.observe(nullptr, nullptr));
        QVERIFY(office.scanner.observe(&second, "1slot_iAutoshot(int)"));
        QVERIFY(office.scanner.observe(first.get(), "1slot_iAutoshot(int)"));
        QVERIFY(office.scanner.startAutomatic({m_folder->path(), {}}));
        // One that dies with a message under way, and again and again while others are sent.
        for (int shot = 1; shot <= 3; ++shot) {
            office.wait(100ms);
            office.scan(shot * 40);
            QVERIFY(QFile::exists(path("00%1.jpg").arg(shot)));
            first = std::make_unique<Observer>();
            office.scanner.observe(first.get(), "1slot_iAutoshot(int)");
        }
        office.scan(160);
        QTRY_COMPARE(first->numbers.value(first->numbers.size() - 1), 4);
        QVERIFY(second.numbers.isEmpty());
    }

    void timedScan()
    {
        Office office;
        Observer observer;
        QVERIFY(office.scanner.observe(&observer, "1slot_iAutoshot(int)"));
        QVERIFY(office.scanner.startTimed({m_folder->path(), line("t")}, 2s, 3));
        office.wait(1900ms);
        QCOMPARE(everythingIn(m_folder->path()), QStringList());
        office.wait(100ms);
        QCOMPARE(everythingIn(m_folder->path()), QStringList{line("t001.jpg")});
        office.clock.advance(6500ms); // late, the second shot is not followed by two at once
        office.wait(1900ms);
        QCOMPARE(everythingIn(m_folder->path()), (QStringList{line("t001.jpg"), line("t002.jpg")}));
        office.clock.advance(2s);
        QTRY_VERIFY(m_log->lines().contains(line("timed scan has ended, with shots: 3")));
        QCOMPARE(everythingIn(m_folder->path()),
                 (QStringList{line("t001.jpg"), line("t002.jpg"), line("t003.jpg")}));
        QCoreApplication::processEvents();
        QVERIFY(observer.numbers.isEmpty());
    }

    void bookScan_data()
    {
        const Rows<QString, BookMode> row("extension", "mode");
        row("JPEG", "jpg", BookMode::LeftFirst);
        row("PNG, right to left", "png", BookMode::RightFirst);
        row("TIFF, both in one", "tif", BookMode::BothInOne);
    }

    void bookScan()
    {
        QFETCH(QString, extension);
        QFETCH(BookMode, mode);
        Office office;
        QVERIFY(office.scanner.startBook({m_folder->path(), line("b"), extension}, mode));
        office.wait(100ms);
        office.scan(180);
        QStringList names{line("b001.") + extension};
        if (mode != BookMode::BothInOne) {
            names << line("b002.") + extension;
        }
        QCOMPARE(everythingIn(m_folder->path()), names);
        office.scanner.stop();
        QString error;
        cv::Mat whole = readPicture(path("b001.") + extension, &error);
        if (mode != BookMode::BothInOne) {
            std::array<cv::Mat, 2> pages{whole, readPicture(path("b002.") + extension, &error)};
            if (mode == BookMode::RightFirst) {
                std::swap(pages[0], pages[1]);
            }
            cv::hconcat(pages[0], pages[1], whole);
        }
        QCOMPARE(whole.cols, 320);
        QVERIFY(cv::norm(whole, deskWithSheet(180), cv::NORM_INF) < 60);
    }

    void refusals_data()
    {
        const Rows<QString, QString, QString> row("directory", "prefix", "reason");
        row("no directory", QString(), QString(), "it needs a directory");
        row("path as prefix", "%1", "../a", "it needs a directory");
        row("below a file", "%1/file/x", QString(), "Not a directory");
        row("too long", line("%1/") + QString(100000, QLatin1Char('x')), QString(),
            "File name too long");
    }

    void refusals()
    {
        QFETCH(QString, directory);
        QFETCH(QString, prefix);
        QFETCH(QString, reason);
        QFile file(path("file"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        Office office;
        m_log->takeLines();
        directory.replace(line("%1"), m_folder->path());
        QVERIFY(!office.scanner.startAutomatic({directory, prefix}));
        const QStringList lines = m_log->takeLines();
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines[0].contains(reason) && lines[0].size() < 1000,
                 qPrintable(lines[0].left(1000)));
        QCOMPARE(everythingIn(m_folder->path()), QStringList{line("file")});
    }

    void endsWithThePreview_data()
    {
        const Rows<bool, int> row("isAnnounced", "secondsLeft");
        row("announced: at once", true, 0);
        row("not announced: it could be a switch of cameras", false, 5);
    }

    void endsWithThePreview()
    {
        QFETCH(bool, isAnnounced);
        QFETCH(int, secondsLeft);
        Office office;
        QVERIFY(office.scanner.startAutomatic({m_folder->path(), {}}));
        office.wait(100ms);
        office.cameras.stopMain();
        office.wait(4s);
        QVERIFY(office.cameras.start(2));
        office.scan(100);
        QCOMPARE(everythingIn(m_folder->path()).size(), 1);
        if (isAnnounced) {
            office.cameras.announceEnd();
        }
        office.cameras.stopMain();
        const QString end = line("automatic scan ends with the preview");
        if (secondsLeft > 0) {
            office.wait(std::chrono::seconds(secondsLeft));
            QVERIFY(!m_log->lines().contains(end));
        }
        office.clock.advance(scanInterval);
        QTRY_VERIFY(m_log->lines().contains(end));
        m_log->takeLines();
        QVERIFY(!office.scanner.startTimed({m_folder->path(), {}}, 1s, 0));
        QCOMPARE(m_log->takeLines(),
                 QStringList{line("timed scan doesn't start: there is no preview")});
    }

    /// In simulation each page of the scene gives one shot, and the empty desk none.
    void pagesOfTheScene()
    {
        Office office([](base::Clock &clock) {
            return std::make_unique<TestSceneSource>(cv::Size(640, 480), 60, clock);
        });
        cv::Mat first;
        QVERIFY(office.cameras.currentFrame(first));
        std::vector<cv::Mat> pages{first};
        office.clock.advance(10s); // nothing turns by itself
        office.awaitFrames();
        cv::Mat later;
        QVERIFY(office.cameras.currentFrame(later));
        const auto differences = [](const cv::Mat &one, const cv::Mat &other) {
            const cv::Rect sheet(60, 90, 360, 300); // without the clock
            cv::Mat difference;
            cv::absdiff(one(sheet), other(sheet), difference);
            return cv::countNonZero(difference.reshape(1) > 60);
        };
        QCOMPARE(differences(first, later), 0);

        QVERIFY(office.scanner.startAutomatic({m_folder->path(), {}}));
        const auto period = sheetPeriod + emptyPeriod;
        for (auto passed = 0ms; passed < 3 * period + 1500ms; passed += scanInterval) {
            office.wait(scanInterval);
            office.awaitFrames();
        }
        office.scanner.stop();
        const QStringList files = QDir(m_folder->path()).entryList(QDir::Files, QDir::Name);
        QCOMPARE(files, (QStringList{line("001.jpg"), line("002.jpg"), line("003.jpg")}));
        for (const QString &file : files) {
            QString error;
            const cv::Mat page = readPicture(path(file), &error);
            QVERIFY(cv::mean(page(cv::Rect(100, 150, 200, 150)))[0] > 150); // paper
            for (const cv::Mat &other : pages) {
                QVERIFY(differences(page, other) > 100);
            }
            pages.push_back(page);
        }
    }

    void failedShotDoesNotEndTheScan()
    {
        Office office;
        Observer observer;
        QVERIFY(office.scanner.observe(&observer, "1slot_iAutoshot(int)"));
        QVERIFY(office.scanner.startAutomatic({m_folder->path(), {}}));
        QVERIFY(QDir().mkdir(path("001.jpg"))); // in the way
        office.wait(100ms);
        office.scan(100);
        QVERIFY(m_log->lines().last().contains(path("001.jpg")));
        QVERIFY(QDir().rmdir(path("001.jpg")));
        office.scan(50);
        QTRY_COMPARE(observer.numbers, (QList<int>{1}));
    }

    void manyCallersAtOnce()
    {
        Office office;
        office.clock.runFree();
        Repeaters callers;
        std::atomic<int> calls{0};
        const ScanFiles files{m_folder->path(), line("m")};
        callers.add([&](int) {
            office.scanner.startAutomatic(files);
            ++calls;
        });
        callers.add([&](int) {
            office.scanner.startTimed(files, 1s, 3);
            office.scanner.stop();
            ++calls;
        });
        callers.add([&](int) {
            Observer observer;
            office.scanner.observe(&observer, "1slot_iAutoshot(int)");
        });
        callers.add([&](int) {
            office.cameras.start(2);
            std::this_thread::sleep_for(20ms); // or there would hardly ever be a preview
        });
        QTRY_VERIFY_WITH_TIMEOUT(calls >= 50, 60000);
        callers.stop();
        office.scanner.stop();
    }

    void numbersOfTheInterface()
    {
        const std::string text = m_folder->path().toStdString();
        const char *directory = text.c_str();
        // Without a preview, so whatever starts fails: what ends is no failure even so.
        QCOMPARE(iAutoScan(1, directory, "a"), -1);
        QCOMPARE(iAutoScan(-1, directory, "a"), -1);
        QCOMPARE(iAutoScan(0, "", ""), 0);
        QCOMPARE(iTimerScan(1, directory, "a", 0), -1);
        QCOMPARE(iTimerScan(1, directory, "a", -1), -1);
        QCOMPARE(iTimerScan(-1, directory, "a", 0), -1);
        QCOMPARE(iTimerScan(0, "", "", 0), 0);
        QVERIFY(!bBookScanner(directory, "a", nullptr));
        QVERIFY(!bBookScanner(directory, "a", "gif"));
        QVERIFY(bBookScanner("", "", nullptr));
    }
};

QTEST_MAIN(TestPortableScanning)

#include "tst_portablescanning.moc"
