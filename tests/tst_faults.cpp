// SPDX-License-Identifier: MIT
//
// Every command on a device library that does wrong: the page gets the command's answer, the server
// lives, and the next command is answered.

#include "dispatch/failureresult.h"
#include "dispatch/messagerun.h"
#include "tests/devicelisteners.h"
#include "tests/manualclock.h"
#include "tests/pages.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"
#include "transport/websocketservermanager.h"

#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <mutex>

namespace {

enum class Fault {
    Fails, ///< false, 0, an empty text
    ReturnsNull,
    ReturnsMuch,
    Blocks,
    CallsBackLate, ///< after the client has left
    Throws,
};

struct FaultName
{
    Fault fault;
    const char *name;
};

// Those after which the client's place is taken by another come last.
constexpr FaultName faultNames[] = {
    {Fault::Fails, "fails"},   {Fault::ReturnsNull, "returns null"},
    {Fault::Blocks, "blocks"}, {Fault::ReturnsMuch, "returns much"},
    {Fault::Throws, "throws"}, {Fault::CallsBackLate, "calls back late"},
};

// The time of all rows together is what counts: one real second of each would take minutes.
constexpr int blockMs = 2;
constexpr int muchBytes = 256 * 1024;

QStringList commandNames()
{
    return {
#define COMMAND(command, failure, ...) QStringLiteral(#command),
#include "dispatch/commandlist.h"
    };
}

/// The command with arguments with which it calls all its device functions.
QString commandText(const QString &name)
{
    const QString feature = QString::fromLatin1(QByteArray(200, 'f').toBase64());
    const QHash<QString, QString> own{
        {QStringLiteral("setResolutionXY"), QStringLiteral("640,480")},
        {QStringLiteral("setResolutionExXY"), QStringLiteral("1,640,480")},
        {QStringLiteral("vSetPreviewEnable"), QStringLiteral("1")}, // as it is at first
        {QStringLiteral("lFaceFeatureMatch"), feature + QLatin1Char(',') + feature},
        {QStringLiteral("DoGWQ_StartSign"), QStringLiteral("a.pdf,a.xml,1.2.3.4,0,5")},
        {QStringLiteral("DoGWQ_StartSignEx"), QStringLiteral("a.pdf,a.xml,1.2.3.4,0,5")},
    };
    // For an upload the last two mean: no progress, no result on the screen.
    const QString usual = QStringLiteral("1,2,3,4,5,6,7,0,0");
    return name + QLatin1Char('(') + own.value(name, usual) + QLatin1Char(')');
}

/// Warnings since the last take, instead of a terminal full of debug lines.
class Warnings
{
public:
    static void collect(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        if (type == QtWarningMsg) {
            const std::lock_guard<std::mutex> lock(mutex());
            lines() << text;
        }
    }
    static QStringList take()
    {
        const std::lock_guard<std::mutex> lock(mutex());
        return std::exchange(lines(), {});
    }

private:
    static std::mutex &mutex()
    {
        static std::mutex mutex;
        return mutex;
    }
    static QStringList &lines()
    {
        static QStringList lines;
        return lines;
    }
};

} // namespace

Q_DECLARE_METATYPE(Fault)

class TestFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("TMPDIR", QFile::encodeName(m_folder.path())); // no companion listens there
        clock().runFree();
        base::Clock::setShared(&clock());
        m_server = std::make_unique<WebSocketServerManager>(QStringLiteral("faults"),
                                                            QWebSocketServer::NonSecureMode);
        Limits limits; // none of time: the clock runs ahead of the pages
        limits.handshake = limits.stalledMessage = limits.unreadStall = limits.unreadOfAllStall =
            std::chrono::hours(100000);
        m_server->setLimits(limits);
        m_server->websocke_server_start(QHostAddress::LocalHost, 0);
        QVERIFY(m_server->running());
        qInstallMessageHandler(Warnings::collect);
    }
    void cleanupTestCase() { qInstallMessageHandler(nullptr); }
    void init()
    {
        recording::reset();
        Warnings::take();
        m_texts.clear();
        if (!m_page) {
            m_page = std::make_unique<Page>(m_server->port());
        }
    }

    void everyCommand_data()
    {
        const Rows<QString, Fault> row("command", "fault");
        const QStringList names = commandNames();
        for (const FaultName &fault : faultNames) {
            for (const QString &name : names) {
                row(QLatin1String(fault.name) + QLatin1String(": ") + name, name, fault.fault);
            }
        }
    }

    void everyCommand()
    {
        QFETCH(QString, command);
        QFETCH(Fault, fault);
        order(fault);
        m_page->send(commandText(command));
        m_page->send(QStringLiteral("getVersion()"));
        QCOMPARE(take(nextAnswer), nextAnswer);
        if (fault == Fault::CallsBackLate) {
            m_page.reset();
            reportResults("late");
            return; // the next row's page must get its answers
        }
        const int calls = recording::calls().size();
        if (fault != Fault::Throws) {
            reportFailures();
        }

        const QString begin = QLatin1String("Begin") + command;
        if (const auto failure = failureResult(command)) {
            const QString failed = MessageRun::framed(command, *failure);
            const QString answer = take(begin);
            QVERIFY(!answer.isNull());
            if (fault != Fault::ReturnsMuch) {
                QCOMPARE(answer, failed);
            }
        }
        if (fault == Fault::Throws && calls > 0) {
            const QString logged = Warnings::take().join(QLatin1Char('\n'));
            QVERIFY2(logged.contains(QLatin1Char('"') + command + QLatin1Char('"'))
                         && logged.contains(QLatin1String("the device is broken")),
                     qPrintable(logged));
        }
        for (const QString &text : m_texts + m_page->received()) {
            QVERIFY2(!text.startsWith(begin), qPrintable(text.left(100))); // once is enough
        }
    }

    void aHundredMegabytes()
    {
        recording::answerTexts(QByteArray(100'000'000, 'x'));
        m_page->send(QStringLiteral("sGetBarCode(/tmp/a.jpg)"));
        m_page->send(QStringLiteral("getVersion()"));
        const int frame = MessageRun::framed(QStringLiteral("sGetBarCode"), QString()).size();
        QCOMPARE(take(QStringLiteral("BeginsGetBarCode")).size(), frame + 100'000'000);
        QCOMPARE(take(nextAnswer), nextAnswer);
    }

    void unknownCommandsHaveNoFailureResult()
    {
        QVERIFY(!failureResult(QStringLiteral("bStartPlay7")));
        QVERIFY(!failureResult(QString()));
    }

private:
    static void order(Fault fault)
    {
        switch (fault) {
        case Fault::Fails:
            recording::answerTexts("");
            break;
        case Fault::ReturnsNull:
            break;
        case Fault::ReturnsMuch:
            recording::answerTexts(QByteArray(muchBytes, 'x'));
            break;
        case Fault::Blocks:
        case Fault::CallsBackLate:
            recording::blockAlways(blockMs);
            break;
        case Fault::Throws:
            recording::throwAlways();
            break;
        }
    }

    /// Waits for a text with this beginning and takes it; keeps those that come before it. Null if
    /// none comes.
    QString take(const QString &begin)
    {
        for (int i = 0;; ++i) {
            if (i == m_texts.size()) {
                const QString text = m_page->next();
                if (text.isNull()) {
                    return {};
                }
                m_texts << text;
            }
            if (m_texts[i].startsWith(begin)) {
                return m_texts.takeAt(i);
            }
        }
    }

    /// The server's clock: waits are over at once. Its threads use it until the process ends.
    static ManualClock &clock()
    {
        static ManualClock clock;
        return clock;
    }

    const QString nextAnswer = QStringLiteral("BegingetVersionV1.0.2EndgetVersion");
    QStringList m_texts; // received and not taken
    QTemporaryDir m_folder;
    std::unique_ptr<WebSocketServerManager> m_server;
    std::unique_ptr<Page> m_page;
};

QTEST_MAIN(TestFaults)
#include "tst_faults.moc"
