// SPDX-License-Identifier: MIT
//
// What happens under a library that crashes, hangs, talks garbage and eats memory: each command is
// answered as it answers a failure, and the next one, too.

#include "devicelib/biometrics.h"
#include "devicelib/doccamera.h"
#include "dispatch/messagerun.h"
#include "tests/deviceprocess/hostiletest.h"
#include "tests/rows.h"
#include "transport/websocketservermanager.h"

#include <array>
#include <atomic>
#include <csignal>
#include <mutex>
#include <thread>

using namespace deviceprocess;
using namespace std::chrono_literals;

extern "C" int deviceProcessStatus(char *json, int size); // the server looks for it at run time

namespace {

const QStringList &commands()
{
    static const QStringList names = {
#define COMMAND(command, failure, ...) QStringLiteral(#command),
#include "dispatch/commandlist.h"
    };
    return names;
}

/// These wait for companion programs, and call no device function.
bool isCompanions(const QString &command)
{
    return command.contains(QLatin1String("GWQ_")) || command == QLatin1String("OpenURL")
        || command == QLatin1String("WebbrowserExit");
}

/// Each command takes a while: a few are tried each time, all of them with DEVICE_FAULTS=all.
int step()
{
    return qgetenv("DEVICE_FAULTS") == "all" ? 1 : 30;
}

} // namespace

class TestDeviceProcess : public HostileTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        HostileTest::initTestCase();
        m_manager.websocke_server_start(QHostAddress::LocalHost, 0);
        m_page = std::make_unique<Page>(m_manager.port());
        QVERIFY(m_page->isConnected());
    }

    // Before the process has died so often that it is given a pause.
    void aFrameIsAskedForAgain()
    {
        order("getVideoFrame nap 1000");
        bool isFetched = false;
        std::thread capture([&] {
            QImage frame;
            isFetched = getVideoFrame(frame);
        });
        QTest::qWait(300);
        order("any obey");
        kill(DeviceHost::instance().processId(), SIGSTOP); // noticed before the nap is over
        capture.join();
        QVERIFY(isFetched);
    }

    // Before others: settings of other functions would be repeated to each process, and fail as
    // well.
    void everyCommand_data()
    {
        QTest::addColumn<QString>("what");
        for (const char *what : {"crash", "hang", "garbage", "memory", "throw"}) {
            if (canLimitMemory || qstrcmp(what, "memory") != 0) {
                QTest::newRow(what) << QString::fromLatin1(what);
            }
        }
    }

    void everyCommand()
    {
        QFETCH(QString, what);
        if (m_failures.isEmpty()) {
            askAll();
        }
        QStringList wrong;
        for (auto i = m_failures.cbegin(); i != m_failures.cend(); ++i) {
            const QString &command = i.key();
            order("any " + what.toLatin1());
            DeviceHost::instance().setTimeLimits({hurry, hurry});
            const QString got = answer(command);
            DeviceHost::instance().setTimeLimits(usualLimits);
            order("none none");
            if (got != i.value() || answer(QStringLiteral("iGetRotate")).isNull()) {
                wrong << i.value() + QLatin1String(" became ") + got;
            }
        }
        signalProcess(SIGKILL); // it may have no memory left
        QCOMPARE(wrong.join(QLatin1Char('\n')), QString());
    }

    void settingsAreRepeated()
    {
        order("any obey");
        vSetFlip(1);
        setResolution(1, 10, 20);
        setResolution(2, 30, 40);
        setResolution(1, 50, 60);
        vSetFlip(2);
        bStartPlay4();
        bStartPlay3(90);
        bStopPlay4();
        signalProcess(SIGKILL);
        const QList<QByteArray> lines = ordered().split('\n');
        const auto those = [&lines](const char *name) {
            QByteArray text;
            for (const QByteArray &line : lines) {
                text += line.startsWith(name) ? line : QByteArray();
            }
            return text;
        };
        QCOMPARE(those("vSetFlip("), QByteArray("vSetFlip(2.0 )"));
        QCOMPARE(those("setResolution("),
                 QByteArray("setResolution(2.0 30.0 40.0 )setResolution(1.0 50.0 60.0 )"));
        QCOMPARE(those("bStartPlay"), QByteArray("bStartPlay3(90.0 )"));
        QVERIFY(lines.indexOf("vSetFlip(2.0 )") < lines.indexOf("bStartPlay3(90.0 )"));

        // A camera that was closed stays closed, whatever came of that.
        bStopPlay();
        bStartPlay(90);
        order("bStopPlay crash");
        bStopPlay();
        order("any obey");
        signalProcess(SIGKILL);
        QVERIFY(ordered().contains("vSetFlip(") && !ordered().contains("bStartPlay"));
        bStartPlay3(90);

        // One that ends the process is not repeated once more.
        order("vSetFlip crash");
        const int restarts = DeviceHost::instance().restarts();
        signalProcess(SIGKILL);
        QCOMPARE(DeviceHost::instance().restarts(), restarts + 2);
        bStopPlay();
        order("any obey");
        signalProcess(SIGKILL);
        QVERIFY(ordered().contains("setResolution("));
        QVERIFY(!ordered().contains("vSetFlip(") && !ordered().contains("bStartPlay"));
    }

    void resultsThatAreOwed_data()
    {
        const Rows<QString, QByteArray, QString, QString, bool> row("command", "function", "event",
                                                                    "failure", "isAlwaysDelivered");
        row("a page that pauses the preview", "ShowLivingBodyPage()", "DemoUIShow",
            "ShowLivingBodyPage", "false", true);
        row("an end", "CloseLivingBody()", "CloseLivingBody", "CloseLivingBody", "true", true);
        row("a finger", "fingerCaptureRawData(5)", "fingerCaptureRawData", "fingerCaptureRawData",
            R"({"feature":"","image":"","msg":"","score":-1})", true);
        row("a score", "bImageMatchOnline(a,1,1,1)", "bImageMatchOnline", "AfterbImageMatchOnline",
            "-1", false);
        row("a feature", "bFaceFeatureGetOnline(1,1)", "bFaceFeatureGetOnline",
            "AfterbFaceFeatureGetOnline", "", false);
        row("a check", "bLivingBodyDetectOnline(1,1)", "bLivingBodyDetectOnline",
            "AfterbLivingBodyDetectOnline", "false", false);
    }

    /// Each comes once, at the latest when the process has gone, and nothing stays paused.
    void resultsThatAreOwed()
    {
        QFETCH(QString, command);
        QFETCH(QByteArray, function);
        QFETCH(QString, event);
        QFETCH(QString, failure);
        QFETCH(bool, isAlwaysDelivered);
        for (const QByteArray deed : {"promise", "later", "crash", "throw"}) {
            order(function + ' ' + deed);
            m_page->send(command);
            QStringList texts = textsUntil(QStringLiteral("sGetTempPath"));
            order("none none");
            if (deed == "promise" || deed == "later") {
                signalProcess(SIGKILL);
            }
            texts = (texts + textsUntil(QStringLiteral("bStopPlay")))
                        .filter(QLatin1String("Begin") + event);
            const bool isPromised = deed == "promise" || deed == "later" || isAlwaysDelivered;
            QVERIFY2(texts.size() == (isPromised ? 1 : 0),
                     (deed + texts.join(QLatin1Char(' ')).toUtf8()).constData());
            if (isPromised && deed != "later") {
                QCOMPARE(texts.first(), MessageRun::framed(event, failure));
            }
        }
    }

    void badEventsEndTheProcess_data()
    {
        const Rows<QByteArray, bool> row("order", "ends");
        row("a context that nobody gave", "bFaceFeatureGet stranger", true);
        row("a flood", "bFaceFeatureGet flood 20000", true);
        row("many", "bFaceFeatureGet flood 1900", false);
    }

    void badEventsEndTheProcess()
    {
        QFETCH(QByteArray, order);
        QFETCH(bool, ends);
        this->order(order);
        s_heard = 0;
        const int restarts = DeviceHost::instance().restarts();
        bFaceFeatureGet(
            true, "a", "b", [](const char *, void *) { ++s_heard; }, &s_heard);
        this->order("none none");
        if (ends) {
            QVERIFY(waitFor([=] { return DeviceHost::instance().restarts() > restarts; }));
        } else {
            QVERIFY(waitFor([] { return s_heard == 1900; }));
            QCOMPARE(DeviceHost::instance().restarts(), restarts);
        }
    }

    void aSlowListenerIsNotTheProcesssFault()
    {
        static std::mutex slow;
        std::unique_lock<std::mutex> lock(slow);
        const int restarts = DeviceHost::instance().restarts();
        order("bFaceFeatureGet later");
        const auto listener = [](const char *, void *) { std::lock_guard<std::mutex> wait(slow); };
        bFaceFeatureGet(true, "a", "b", listener, nullptr);
        order("iGetRotate nap 1600"); // long enough to be asked whether it is there
        DeviceHost::instance().setTimeLimits({0.5, hurry});
        QVERIFY(isAnswered());
        lock.unlock();
        QCOMPARE(DeviceHost::instance().restarts(), restarts);
    }

    void theStatusNamesCallsAndWhyTheLastProcessEnded()
    {
        const auto status = [](const QByteArray &part) {
            std::array<char, 4096> json{};
            const int length = deviceProcessStatus(json.data(), int(json.size()));
            return length > 0 && QByteArray(json.data(), length).contains(part);
        };
        order("iGetRotate nap 500");
        std::thread caller(isAnswered);
        QVERIFY(waitFor([&] { return status(R"("function":"iGetRotate")"); }));
        caller.join();
        order("none none");
        QVERIFY(status(R"("calls":[])") && status(R"("missing":)"));
        signalProcess(SIGKILL);
        QVERIFY(status(": signal 9, "));
        const QByteArray pid = QByteArray::number(DeviceHost::instance().processId());
        QVERIFY(status("\"pid\":" + pid));
        char small[8];
        QCOMPARE(deviceProcessStatus(small, sizeof small), 0);
    }

    void linesAreLogged()
    {
        order("iGetFlip log");
        static std::mutex mutex;
        static QMap<QtMsgType, QString> logged;
        const auto before = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext &, const QString &text) {
                const std::lock_guard<std::mutex> lock(mutex);
                logged[type] += text + QLatin1Char(';');
            });
        iGetFlip();
        const bool came = waitFor([] {
            const std::lock_guard<std::mutex> lock(mutex);
            return logged.value(QtWarningMsg).contains(QLatin1String("warning line"));
        });
        qInstallMessageHandler(before);
        QVERIFY(came);
        const std::lock_guard<std::mutex> lock(mutex); // a last line may be under way
        QCOMPARE(logged.value(QtDebugMsg), QStringLiteral("debug line;"));
        QCOMPARE(logged.value(QtInfoMsg), QStringLiteral("info line;"));
    }

    void itIsStartedBeforeTheFirstCall()
    {
        DeviceHost host(QCoreApplication::applicationDirPath()
                        + QStringLiteral("/../../devicehost"));
        host.begin();
        const pid_t process = host.processId();
        QVERIFY(process > 0);
        Message reply;
        QVERIFY(host.call(FunctionId::iGetRotate, FunctionKind::Query, Writer(), &reply));
        QCOMPARE(host.processId(), process);
    }

    void aProgramThatCannotBeStarted()
    {
        DeviceHost host(QStringLiteral("/nowhere/devicehost"));
        host.setTimeLimits({0.001, 0.001});
        host.begin();
        Message reply;
        QVERIFY(!host.call(FunctionId::iGetRotate, FunctionKind::Query, Writer(), &reply));
        QVERIFY(waitFor([&] { return host.restarts() > 3; }));
        QCOMPARE(host.processId(), 0);
        const auto status = host.status();
        QVERIFY(!status || (status->running.count() == 0 && !status->missing));
        host.stop();
        QVERIFY(!host.call(FunctionId::iGetRotate, FunctionKind::Query, Writer(), &reply));
    }

    void stoppingEndsThePauseBeforeARestart()
    {
        DeviceHost host(QStringLiteral("/nowhere/devicehost"));
        host.setTimeLimits({0.001, 1000});
        Message reply;
        host.call(FunctionId::iGetRotate, FunctionKind::Query, Writer(), &reply);
        QVERIFY(waitFor([&] { return host.restarts() > 0; })); // the next one is a long time off
        host.stop();
    }

    /// The time of a call begins when the process is ready.
    void aCallWaitsForASlowStart()
    {
        order("load nap 1500"); // longer than the call may take
        DeviceHost::instance().setTimeLimits({0.2, hurry});
        const int restarts = DeviceHost::instance().restarts();
        kill(DeviceHost::instance().processId(), SIGKILL);
        QVERIFY(waitFor([=] { return DeviceHost::instance().restarts() > restarts; }));
        QVERIFY(isAnswered());
    }

    void aProcessThatIsNotReadyInTimeIsReplaced()
    {
        QTest::ignoreMessage(
            QtWarningMsg,
            QRegularExpression(QStringLiteral("ended during .*not ready in 0.2 s\\); restart")));
        order("load hang");
        DeviceHost::instance().setTimeLimits({1, hurry, 200ms});
        const int restarts = DeviceHost::instance().restarts();
        kill(DeviceHost::instance().processId(), SIGKILL);
        QVERIFY(waitFor([=] { return DeviceHost::instance().restarts() > restarts; }));
        QElapsedTimer time;
        time.start();
        QVERIFY(!isAnswered());
        QVERIFY2(time.elapsed() < 3000, "that is the limit of the call, not of the start");
        QVERIFY(waitFor([=] { return DeviceHost::instance().restarts() > restarts + 1; }));
        order("none none");
        DeviceHost::instance().setTimeLimits(usualLimits);
        QVERIFY(waitFor(isAnswered));
    }

    void withoutMemoryForAThreadTheProcessIsReplaced()
    {
        if (!canLimitMemory) {
            QSKIP("memory can't be limited");
        }
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("no thread for another caller: ")));
        signalProcess(SIGKILL); // a new one keeps few stacks of former threads
        order("iGetFlip fill");
        const int restarts = DeviceHost::instance().restarts();
        iGetFlip();
        order("iGetRotate nap 500"); // all of them need a thread at once
        std::array<std::thread, 4> callers;
        for (std::thread &caller : callers) {
            caller = std::thread([] { isAnswered(); });
        }
        for (std::thread &caller : callers) {
            caller.join();
        }
        order("none none");
        QVERIFY(waitFor([=] { return DeviceHost::instance().restarts() > restarts; }));
    }

    void aProcessThatStopsIsReplaced() { signalProcess(SIGSTOP); }

private:
    /// What each answers when the library fails quietly; some are answered, if at all, by events.
    void askAll()
    {
        for (int i = 0; i < commands().size(); i += step()) {
            const QString &command = commands()[i];
            if (isCompanions(command)) {
                continue;
            }
            m_page->send(command + arguments);
            m_page->send(QStringLiteral("sGetTempPath()"));
            for (QString text; !text.startsWith(QLatin1String("BeginsGetTempPath"));) {
                text = m_page->next();
                if (isAnswer(text, command)) {
                    m_failures[command] = text;
                }
            }
            while (!m_failures.contains(command)
                   && waitFor([&] { return !m_page->received().isEmpty(); }, 200)) {
                const QString text = m_page->next();
                if (isAnswer(text, command)) { // by another thread
                    m_failures[command] = text;
                }
            }
        }
        signalProcess(SIGKILL); // the library has kept no promise: what waits for one goes on now
        QVERIFY2(m_failures.size() >= 90 / step(), qPrintable(QString::number(m_failures.size())));
    }

    static bool isAnswer(const QString &text, const QString &command)
    {
        return text.startsWith(QLatin1String("Begin") + command)
            || text.contains(QLatin1String("lRet"));
    }

    /// Sends a command. \return all that comes up to its answer; null at the end without one
    QStringList textsUntil(const QString &command, const QString &fields = QStringLiteral("()"))
    {
        m_page->send(command + fields);
        QStringList texts;
        do {
            texts << m_page->next();
        } while (!texts.last().isNull() && !isAnswer(texts.last(), command));
        return texts;
    }

    /// Sends a command with arguments of all kinds. \return its answer; null without one
    QString answer(const QString &command) { return textsUntil(command, arguments).last(); }

    static inline std::atomic<int> s_heard{0};
    const QString arguments = QStringLiteral("(1,1,1,1,1,1,1,1,1)");
    WebSocketServerManager m_manager{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::unique_ptr<Page> m_page;
    QMap<QString, QString> m_failures; ///< Of the commands that are tried: their answers.
};

QTEST_MAIN(TestDeviceProcess)
#include "tst_deviceprocess.moc"
