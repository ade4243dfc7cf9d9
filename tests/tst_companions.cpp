// SPDX-License-Identifier: MIT
//
// The clients of the signature service and the browser helper, with fakes on real local sockets.

#include "base/neighbor.h"
#include "companionclients/signsouthinterface.h"
#include "companionclients/webbrowser.h"
#include "companionclients/webbrowsersouthinterface.h"
#include "companions/common/requestserver.h"
#include "dispatch/messagerun.h"
#include "tests/files.h"
#include "tests/manualclock.h"
#include "tests/messages.h"
#include "tests/pages.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"
#include "tests/waitfor.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtEndian>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

const auto signSocket = QStringLiteral("SOUTHINTERFACE_ELECSIGNSERVER");
const auto browserSocket = QStringLiteral("SOUTHINTERFACE_BROWSER");

QByteArray number(qint32 value)
{
    return QByteArray(reinterpret_cast<const char *>(&value), sizeof value);
}

/// A text preceded by its length.
QByteArray sized(const QByteArray &text)
{
    return number(text.size()) + text;
}

using Pauses = std::vector<std::chrono::milliseconds>;

/// Whether the other end of a local socket has read all that was written.
bool allTaken(qintptr descriptor)
{
    int bytes = 0;
    return ioctl(int(descriptor), SIOCOUTQ, &bytes) == 0 && bytes == 0;
}

/// A companion that the test speaks for.
class FakeCompanion
{
public:
    explicit FakeCompanion(const QString &name)
    {
        QLocalServer::removeServer(name);
        if (!m_server.listen(name)) {
            qFatal("the fake companion can't listen");
        }
    }

    /// The client's connection; waits for it.
    QLocalSocket *client()
    {
        if (!m_client || m_client->state() != QLocalSocket::ConnectedState) {
            if (!waitFor([this] { return m_server.hasPendingConnections(); })) {
                qFatal("the client did not connect");
            }
            while (m_server.hasPendingConnections()) {
                m_client = m_server.nextPendingConnection();
            }
        }
        return m_client;
    }

    /// Waits for this many bytes from the client.
    QByteArray take(int length)
    {
        QByteArray bytes;
        const bool came = waitFor([&] {
            bytes += client()->read(length - bytes.size());
            return bytes.size() >= length;
        });
        if (!came) {
            return "nothing";
        }
        return bytes;
    }

    QByteArray takeSized()
    {
        const QByteArray length = take(4);
        return take(qFromLittleEndian<qint32>(length.constData()));
    }

    void say(const QByteArray &bytes)
    {
        client()->write(bytes);
        client()->flush();
    }

    /// Whether anybody has connected.
    bool isAskedFor()
    {
        m_server.waitForNewConnection(0);
        return m_server.hasPendingConnections();
    }

    /// Whether the client has read everything that was said.
    bool isHeard()
    {
        return client()->bytesToWrite() == 0 && allTaken(client()->socketDescriptor());
    }

private:
    QLocalServer m_server;
    QPointer<QLocalSocket> m_client;
};

/// While it lives, this program takes another user for its own.
class OtherUser
{
public:
    explicit OtherUser(uid_t user) { base::setOwnUser(user); }
    ~OtherUser() { base::setOwnUser(geteuid()); }
    Q_DISABLE_COPY(OtherUser)
};

/// While it lives, keeps what is logged.
class Log
{
public:
    Log()
    {
        s_lines.clear();
        m_before = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) { s_lines << text; });
    }
    ~Log() { qInstallMessageHandler(m_before); }
    Q_DISABLE_COPY(Log)

    /// Whether a line begins like this and names the user.
    static bool has(const char *beginning, uid_t user)
    {
        const QString name = QStringLiteral("uid %1").arg(user);
        return std::any_of(s_lines.cbegin(), s_lines.cend(), [&](const QString &line) {
            return line.startsWith(QString::fromUtf8(beginning)) && line.contains(name);
        });
    }

private:
    static inline QStringList s_lines;
    QtMessageHandler m_before;
};

/// A child process that does something, says whether it succeeded and then waits until it is ended.
class Process
{
public:
    template <class Act> explicit Process(Act act)
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0 || (m_id = fork()) < 0) {
            qFatal("there are no processes left");
        }
        if (m_id == 0) {
            const char result = act() ? 'y' : 'n';
            if (::write(ends[1], &result, 1) == 1) {
                pause();
            }
            _exit(0);
        }
        ::close(ends[1]);
        char result = 'n';
        m_isReady = ::read(ends[0], &result, 1) == 1 && result == 'y';
        ::close(ends[0]);
    }
    ~Process()
    {
        kill(m_id, SIGKILL);
        waitpid(m_id, nullptr, 0);
    }
    Q_DISABLE_COPY(Process)
    bool isReady() const { return m_isReady; }

private:
    pid_t m_id = -1;
    bool m_isReady = false;
};

sockaddr_un addressOf(const QString &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.toLocal8Bit().constData(), sizeof address.sun_path);
    return address;
}

int boundSocket(const QString &path)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = addressOf(path);
    return bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
        ? descriptor
        : -1;
}

bool sendTo(const QString &path, const QByteArray &bytes)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = addressOf(path);
    return connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
        && ::write(descriptor, bytes.constData(), size_t(bytes.size())) == bytes.size();
}

} // namespace

class TestCompanions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("TMPDIR", m_folder.path().toLocal8Bit()); // the folder of local sockets
        for (const char *name : {"run-elecsign.sh", "run-webbrowser.sh"}) {
            writeFile(script(name), "echo started >>\"$STARTS.$(basename \"$0\")\"\n");
        }
        m_clock.runFree();
        base::Clock::setShared(&m_clock);
        // When created, the clients connect once and disconnect again.
        FakeCompanion service(signSocket);
        FakeCompanion helper(browserSocket);
        QVERIFY(!SignSouthInterface::instance()->isConnected());
        QVERIFY(!Webbrowsersouthinterface::instance()->isConnected());
        QVERIFY(service.client() && helper.client());
    }

    void cleanupTestCase()
    {
        base::Clock::setShared(nullptr);
        QFile::remove(script("run-elecsign.sh"));
        QFile::remove(script("run-webbrowser.sh"));
    }

    void init()
    {
        recording::reset();
        // Scripts that an earlier test started may still be on their way to theirs.
        m_starts = m_folder.filePath(QStringLiteral("starts%1").arg(++m_tests));
        qputenv("STARTS", m_starts.toLocal8Bit());
        m_clock.takeWaits();
        m_pair = std::make_unique<PagePair>();
        gpWebSocket = m_pair->serverSide();
    }

    void cleanup()
    {
        SignSouthInterface::instance()->stop();
        Webbrowsersouthinterface::instance()->stopWeb();
        gpWebSocket = nullptr;
        m_pair.reset();
    }

    void signingSendsOneRequest_data()
    {
        const Rows<QString, int> row("command", "type");
        row("DoGWQ_StartSign", "DoGWQ_StartSign", 1);
        row("DoGWQ_StartSignEx", "DoGWQ_StartSignEx", 2);
    }

    void signingSendsOneRequest()
    {
        QFETCH(QString, command);
        QFETCH(int, type);
        FakeCompanion service(signSocket);
        QCOMPARE(run(command + QStringLiteral("(中.pdf,b.xml,1.2.3.4,1,30,more)")),
                 QStringLiteral("true"));
        QCOMPARE(service.take(4), number(type));
        const QByteArray json = service.takeSized();
        const QJsonObject request = QJsonDocument::fromJson(json).object();
        QCOMPARE(request,
                 QJsonObject({{QStringLiteral("pdfpath"), QStringLiteral("中.pdf")},
                              {QStringLiteral("xmlpath"), QStringLiteral("b.xml")},
                              {QStringLiteral("location"), QStringLiteral("1,2,3,4")},
                              {QStringLiteral("retain"), QStringLiteral("1")},
                              {QStringLiteral("timeout"), 30}}));
        QVERIFY(json.contains("\n    \"pdfpath\"")); // indented
        QTRY_COMPARE(starts("run-elecsign.sh"), 1);
        QVERIFY(m_clock.takeWaits().empty());

        // A second job restarts the service and the connection, with a pause for the service's end.
        QPointer<QLocalSocket> first = service.client();
        QCOMPARE(run(command + QLatin1String("(a,b,1.2.3.4,x,abc)")), QStringLiteral("true"));
        QTRY_VERIFY(!first || first->state() != QLocalSocket::ConnectedState);
        QCOMPARE(service.take(4), number(type));
        QCOMPARE(
            QJsonDocument::fromJson(service.takeSized()).object().value(QStringLiteral("timeout")),
            QJsonValue(0));
        QTRY_COMPARE(starts("run-elecsign.sh"), 2);
        QVERIFY(m_clock.takeWaits() == Pauses{2s});
    }

    void signingThatIsRefused_data()
    {
        const Rows<QString, bool> row("args", "connected");
        // clang-format off
        row("four fields",   "a.pdf,b.xml,1.2.3.4,1",  false);
        row("nothing",       QString(),                false);
        row("three numbers", "a.pdf,b.xml,1.2.3,1,30", true);
        row("no place",      "a.pdf,b.xml,,1,30",      true);
        // clang-format on
    }

    void signingThatIsRefused()
    {
        QFETCH(QString, args);
        FakeCompanion service(signSocket);
        QCOMPARE(run(QStringLiteral("DoGWQ_StartSign(%1)").arg(args)), QStringLiteral("false"));
        QTEST(SignSouthInterface::instance()->isConnected(), "connected");
    }

    void withoutAService()
    {
        QCOMPARE(run(QStringLiteral("DoGWQ_StartSign(a,b,1.2.3.4,1,30)")), QStringLiteral("false"));
        QTRY_COMPARE(starts("run-elecsign.sh"), 4); // the first, and one after each attempt
        QVERIFY(m_clock.takeWaits() == (Pauses{2s, 2s, 2s}));
        // The reply is the same without the script.
        const QString away = script("run-elecsign.sh") + QLatin1String(".away");
        QVERIFY(QFile::rename(script("run-elecsign.sh"), away));
        const QString result = run(QStringLiteral("DoGWQ_StartSign(a,b,1.2.3.4,1,30)"));
        QVERIFY(QFile::rename(away, script("run-elecsign.sh")));
        QCOMPARE(result, QStringLiteral("false"));
        // Called directly, it sends nothing.
        SignSouthInterface::instance()->DoGWQ_StartSign({}, {}, {}, {}, 0);
    }

    void aServiceThatComesUpLate()
    {
        // It listens from the second failed attempt on, which the client logs before its pause.
        static int failures;
        static std::unique_ptr<FakeCompanion> service;
        failures = 0;
        const auto before =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
                if (!text.startsWith(QLatin1String("companion:"))) {
                    return;
                }
                if (++failures == 2) {
                    service = std::make_unique<FakeCompanion>(signSocket);
                }
            });
        const bool started = SignSouthInterface::instance()->start();
        qInstallMessageHandler(before);
        QVERIFY(started);
        QVERIFY(SignSouthInterface::instance()->isConnected());
        QCOMPARE(failures, 2);
        QTRY_COMPARE(starts("run-elecsign.sh"), 3);
        service.reset();
    }

    void companionSocketsAreTheUsersOwn()
    {
        RequestServer companion(browserSocket, {});
        QCOMPARE(companion.start(), RequestServer::Start::Listening);
        const auto others = QFile::permissions(m_folder.filePath(browserSocket))
            & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther);
        QCOMPARE(int(others), 0);
        QVERIFY(Webbrowsersouthinterface::instance()->start());
    }

    void programsOfOthersAreRefused()
    {
        // As if this program ran for another user than the one who made the files.
        FakeCompanion service(signSocket);
        RequestServer companion(browserSocket, {{1, 1}});
        QCOMPARE(companion.start(), RequestServer::Start::Listening);
        QSignalSpy requests(&companion, &RequestServer::request);
        const OtherUser other(geteuid() + 1);
        const Log log;

        QLocalSocket client;
        client.connectToServer(browserSocket);
        client.write(number(1) + sized("x"));
        QTRY_COMPARE(client.state(), QLocalSocket::UnconnectedState);
        QVERIFY(requests.isEmpty());
        QVERIFY(
            Log::has("refusing a client on SOUTHINTERFACE_BROWSER - it belongs to ", geteuid()));

        QVERIFY(!SignSouthInterface::instance()->start());
        QVERIFY(!service.isAskedFor());
        QVERIFY(Log::has("companion: refusing SOUTHINTERFACE_ELECSIGNSERVER - the f", geteuid())
                || Log::has("companion: refusing SOUTHINTERFACE_ELECSIGNSERVER - /", geteuid()));

        RequestServer second(signSocket, {});
        QCOMPARE(second.start(), RequestServer::Start::Failed);
        QVERIFY(Log::has("can't listen on SOUTHINTERFACE_ELECSIGNSERVER - ", geteuid()));
    }

    void programsOfARealOtherUser()
    {
        if (geteuid() != 0) {
            QSKIP("only root can run programs of another user");
        }
        constexpr uid_t other = 65534;
        const QString path = m_folder.filePath(signSocket);
        const Log log;
        {
            // The file is ours, the listener isn't.
            const Process squatter([&] {
                const int descriptor = boundSocket(path);
                return setresuid(other, other, other) == 0 && listen(descriptor, 5) == 0;
            });
            QVERIFY(squatter.isReady());
            QVERIFY(!SignSouthInterface::instance()->start());
            QVERIFY(Log::has("companion: refusing the program on", other));
            QVERIFY(QFile::remove(path));
        }
        {
            // The file isn't ours, and neither side touches it.
            FakeCompanion service(signSocket);
            QCOMPARE(lchown(path.toLocal8Bit().constData(), other, other), 0);
            QVERIFY(!SignSouthInterface::instance()->start());
            QVERIFY(!service.isAskedFor());
            QVERIFY(Log::has("companion: refusing SOUTHINTERFACE_ELECSIGNSERVER - /", other));
            RequestServer companion(signSocket, {});
            QCOMPARE(companion.start(), RequestServer::Start::Failed);
            QVERIFY(QFile::exists(path));
            QVERIFY(QFile::remove(path));
        }
        {
            RequestServer companion(signSocket, {{1, 1}});
            QCOMPARE(companion.start(), RequestServer::Start::Listening);
            QSignalSpy requests(&companion, &RequestServer::request);
            // Lets the other user as far as the connection.
            QCOMPARE(chmod(path.toLocal8Bit().constData(), 0777), 0);
            QCOMPARE(chmod(m_folder.path().toLocal8Bit().constData(), 0711), 0);
            const QByteArray request = number(1) + sized("x");
            const Process client(
                [&] { return setresuid(other, other, other) == 0 && sendTo(path, request); });
            QCOMPARE(chmod(m_folder.path().toLocal8Bit().constData(), 0700), 0);
            QVERIFY(client.isReady());
            QTRY_VERIFY(Log::has("refusing a client on", other));
            QVERIFY(requests.isEmpty());
        }
    }

    void repliesAboveAHundredBytes()
    {
        FakeCompanion service(signSocket);
        Messages messages(SignSouthInterface::instance());
        QVERIFY(SignSouthInterface::instance()->start());
        const QByteArray longEnough(101, 'x');
        service.say(sized(QByteArray(100, 'y')));
        QTRY_VERIFY(service.isHeard()); // two replies in one read would count as none
        service.say(sized(longEnough));
        QCOMPARE(messages.next(), longEnough);
        QVERIFY(messages.list().isEmpty());
    }

    void repliesInPieces()
    {
        FakeCompanion service(signSocket);
        Messages messages(SignSouthInterface::instance());
        QVERIFY(SignSouthInterface::instance()->start());
        const QByteArray payload(300 * 1000, 'p');
        const QByteArray frame = sized(payload);
        // The client blocks the main thread for the whole reply, so another thread must write it.
        const auto descriptor = int(service.client()->socketDescriptor());
        std::thread slow([=] {
            for (int at = 0; at < frame.size();) {
                const int length = qMin(70000, frame.size() - at);
                at += qMax(0, int(::write(descriptor, frame.constData() + at, size_t(length))));
                while (!allTaken(descriptor)) {
                    std::this_thread::yield();
                }
            }
        });
        QCOMPARE(messages.next(), payload);
        slow.join();
    }

    void aServiceThatDiesWithinItsReply_data()
    {
        const Rows<QByteArray> row("said");
        row("half a reply", number(500) + QByteArray(200, 'x'));
        row("more than announced", number(150) + QByteArray(151, 'x'));
        row("a length below nothing", number(-5) + QByteArray(200, 'x'));
        row("half a length", "\x01\x02");
        row("the longest", number(INT_MAX) + QByteArray(200, 'x'));
    }

    void aServiceThatDiesWithinItsReply()
    {
        QFETCH(QByteArray, said);
        auto service = std::make_unique<FakeCompanion>(signSocket);
        Messages messages(SignSouthInterface::instance());
        QVERIFY(SignSouthInterface::instance()->start());
        service->say(said);
        service->client()->disconnectFromServer();
        service.reset();
        QTRY_VERIFY(!SignSouthInterface::instance()->isConnected());
        QCOMPARE(run(QStringLiteral("WebbrowserExit()")),
                 QStringLiteral("true")); // the server goes on
        QVERIFY(messages.list().isEmpty());
    }

    void aReplyThatDoesNotEnd()
    {
        CompanionClient::setReplyLimit(std::chrono::seconds(1));
        FakeCompanion service(signSocket);
        QVERIFY(SignSouthInterface::instance()->start());
        base::Clock::setShared(nullptr); // one that goes on by itself
        service.say(number(500) + QByteArray(200, 'x'));
        QTRY_VERIFY(!SignSouthInterface::instance()->isConnected());
        base::Clock::setShared(&m_clock);
        CompanionClient::setReplyLimit(std::chrono::seconds(0));
    }

    void pages_data()
    {
        const Rows<QString> row("page");
        row("GWQ_CallNumber", "callNo.html");
        row("GWQ_PaymentInfo", "pay.html");
        row("DoGWQ_StartInfo", "infoExchange.html");
        row("GWQ_TellerInfo", "teller.html");
        row("DoGWQ_StartEvaluator", "evaluate.html");
    }

    void pages()
    {
        const QString command = QString::fromUtf8(QTest::currentDataTag());
        QFETCH(QString, page);
        FakeCompanion helper(browserSocket);
        QCOMPARE(run(command + QStringLiteral("(no=12,name=李)")), QStringLiteral("true"));
        QCOMPARE(helper.take(4), number(2));
        QCOMPARE(QString::fromUtf8(helper.takeSized()),
                 QCoreApplication::applicationDirPath() + QLatin1String("/webSite/") + page);
        QCOMPARE(helper.takeSized(), QByteArray("no=12,name=李"));

        QCOMPARE(run(command + QLatin1String("()")), QStringLiteral("true"));
        QCOMPARE(helper.take(4), number(2));
        helper.takeSized();
        QCOMPARE(helper.takeSized(), QByteArray());

        QCOMPARE(run(QStringLiteral("OpenURL(http://a/b?c=1,2") + QChar(0) + QStringLiteral("x)")),
                 QStringLiteral("true"));
        QCOMPARE(helper.take(4), number(1));
        QCOMPARE(helper.takeSized(), QByteArray("http://a/b?c=1,2"));

        QPointer<QLocalSocket> client = helper.client();
        QCOMPARE(run(QStringLiteral("WebbrowserExit()")), QStringLiteral("true"));
        QTRY_VERIFY(!client || client->state() != QLocalSocket::ConnectedState);
        QTRY_COMPARE(starts("run-webbrowser.sh"), 3);
    }

    void withoutABrowserHelper()
    {
        QCOMPARE(run(QStringLiteral("OpenURL(http://a)")), QStringLiteral("false"));
        QVERIFY(m_clock.takeWaits() == (Pauses{300ms, 2s, 2s, 2s}));
        QCOMPARE(run(QStringLiteral("GWQ_TellerInfo(a)")), QStringLiteral("false"));
        QVERIFY(!Webbrowsersouthinterface::instance()->openURL(QStringLiteral("x")));
        QTRY_COMPARE(starts("run-webbrowser.sh"), 8);
    }

    void helperRepliesGoToTheCurrentPage()
    {
        FakeCompanion helper(browserSocket);
        QVERIFY(Webbrowsersouthinterface::instance()->start());
        helper.say(QByteArray("shown 中\0rest", 15));
        QCOMPARE(m_pair->page().next(), QStringLiteral("shown 中"));
        gpWebSocket = nullptr;
        helper.say("to nobody");
        QTRY_VERIFY(helper.isHeard());
        m_pair->serverSide()->sendTextMessage(QStringLiteral("next"));
        QCOMPARE(m_pair->page().next(), QStringLiteral("next"));
    }

    void neverBothAtOnce()
    {
        FakeCompanion service(signSocket);
        FakeCompanion helper(browserSocket);
        QCOMPARE(run(QStringLiteral("OpenURL(x)")), QStringLiteral("true"));
        QCOMPARE(run(QStringLiteral("DoGWQ_StartSign(a,b,1.2.3.4,1,30)")), QStringLiteral("true"));
        QVERIFY(!Webbrowsersouthinterface::instance()->isConnected());
        QVERIFY(SignSouthInterface::instance()->isConnected());
        QCOMPARE(run(QStringLiteral("GWQ_CallNumber(1)")), QStringLiteral("true"));
        QVERIFY(!SignSouthInterface::instance()->isConnected());
        QVERIFY(Webbrowsersouthinterface::instance()->isConnected());
    }

    void launcherArguments()
    {
        const auto url = QStringLiteral("/webSite/pay.html");
        const QVector<QRect> screens{
            {0, 0, 1920, 1080}, {1920, 0, 1280, 800}, {3200, 0, 1280, 800}, {4480, 0, 1024, 2000}};
        QStringList line = WebBrowser::arguments(url, screens.mid(0, 1), {1280, 800});
        QCOMPARE(line.takeFirst(), QStringLiteral("--window-size=1280,800"));
        QCOMPARE(line,
                 QStringList({QStringLiteral("--new-window"), url,
                              QStringLiteral("--user-data-dir=/tmp/veltrobrowser12345"),
                              QStringLiteral("--no-first-run"),
                              QStringLiteral("--no-default-browser-check"),
                              QStringLiteral("--no-announcement")}));
        QCOMPARE(WebBrowser::arguments(url, screens, {800, 600}).mid(0, 3),
                 QStringList({QStringLiteral("--kiosk"), QStringLiteral("--window-position=1920,0"),
                              QStringLiteral("--window-size=800,600")}));
    }

    void launcherShowsOnePageAtATime()
    {
        // A browser that records the page it is given, and that it was terminated.
        const QString program = m_folder.filePath(QStringLiteral("gnome-www-browser"));
        writeFile(program,
                  "#!/bin/bash\ntrap 'echo ended >>\"$TMPDIR/shown\"; kill $!; exit' TERM\n"
                  "echo \"$3\" >>\"$TMPDIR/shown\"\nsleep 60 & wait\n");
        QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner));
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", m_folder.path().toLocal8Bit() + ':' + path);
        const auto shown = [this] {
            return QString::fromUtf8(contentOf(m_folder.filePath(QStringLiteral("shown"))));
        };
        const auto asked = [this](const char *question) {
            WebBrowser::instance()->recvMessage(QString::fromUtf8(question), m_pair->serverSide());
            return m_pair->page().next();
        };
        WebBrowser::instance()->openURL(QStringLiteral("a.html"), QStringLiteral("no=12,张"));
        QTRY_COMPARE(shown(), QStringLiteral("a.html\n"));
        QCOMPARE(asked("@"), QStringLiteral("no=12,张"));
        WebBrowser::instance()->openURL(QStringLiteral("b.html"), QStringLiteral("next"));
        QTRY_COMPARE(shown(), QStringLiteral("a.html\nended\nb.html\n"));
        QCOMPARE(asked("@x"), QStringLiteral("next"));
        WebBrowser::instance()->closeURL();
        QCOMPARE(shown().count(QStringLiteral("ended")), 2);
        QCOMPARE(asked("@"), QStringLiteral("next")); // kept until the next page
        {
            const OtherUser other(geteuid() + 1);
            const Log log;
            WebBrowser::instance()->openURL(QStringLiteral("c.html"), {}); // somebody's profile
            QVERIFY(Log::has("companion: the browser isn't started: ", geteuid()));
        }
        WebBrowser::instance()->openURL(QStringLiteral("d.html"), {});
        QTRY_COMPARE(shown().section(QLatin1Char('\n'), 4), QStringLiteral("d.html\n"));
        WebBrowser::instance()->closeURL();
        qputenv("PATH", path);
    }

private:
    QString run(const QString &command)
    {
        m_dispatcher.recv_msg(command, nullptr);
        const QString name = command.section(QLatin1Char('('), 0, 0);
        const QString answer = m_pair->page().next();
        return answer.mid(5 + name.size()).chopped(3 + name.size());
    }
    QString script(const char *name) const
    {
        return QCoreApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(name);
    }

    /// How many starts of a script in this test have been recorded so far.
    int starts(const char *name) const
    {
        return contentOf(m_starts + QLatin1Char('.') + QLatin1String(name)).count('\n');
    }

    ManualClock m_clock;
    QTemporaryDir m_folder;
    QString m_starts; // files where the scripts record that they were started
    int m_tests = 0;
    MessageRun m_dispatcher;
    std::unique_ptr<PagePair> m_pair;
};

QTEST_GUILESS_MAIN(TestCompanions)
#include "tst_companions.moc"
