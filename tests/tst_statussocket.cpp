// SPDX-License-Identifier: MIT
#include "access/accesscontrol.h"
#include "base/neighbor.h"
#include "base/statuspath.h"
#include "camera/captureimgthread.h"
#include "dispatch/messagerun.h"
#include "log/qlog.h"
#include "statussocket/statuslistener.h"
#include "statussocket/statusreport.h"
#include "tests/files.h"
#include "tests/pages.h"
#include "tests/recordingdevice.h"
#include "transport/websocketservermanager.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <memory>
#include <vector>

using statussocket::StatusListener;
using statussocket::StatusReport;

namespace {

/// Everything that the socket says, while the event loop runs.
QByteArray answerOf(const QString &path)
{
    QLocalSocket socket;
    QEventLoop loop; // without pauses: the server waits for the main thread for 2 ms only
    QObject::connect(&socket, &QLocalSocket::disconnected, &loop, &QEventLoop::quit);
    QTimer::singleShot(patienceMs, &loop, &QEventLoop::quit);
    socket.connectToServer(path, QIODevice::ReadOnly);
    if (socket.state() != QLocalSocket::UnconnectedState) {
        loop.exec();
    }
    return socket.readAll();
}

QJsonObject objectOf(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).object();
}

/// Whether the main thread had its say.
bool answers(const QByteArray &report)
{
    const QJsonObject mainThread = objectOf(report).value(QStringLiteral("mainThread")).toObject();
    return mainThread.value(QStringLiteral("answers")).toBool();
}

sockaddr_un addressOf(const QString &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrcpy(address.sun_path, QFile::encodeName(path).constData());
    return address;
}

/// A connection that neither reads nor writes.
int silentPeer(const QString &path)
{
    const sockaddr_un address = addressOf(path);
    const int peer = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isConnected =
        connect(peer, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return isConnected ? peer : -1;
}

/// A server without an access policy, whose socket reports on it at each connection.
struct ReportingServer
{
    ReportingServer(const QString &folder, const QString &path)
        : access({folder + QStringLiteral("/none.ini"), 0, {}, {}}, folder, folder)
        , report({QStringLiteral("9.9"), {}, folder, {}, {}}, manager, access)
        , listener(
              path, [this] { return report.make(); }, std::chrono::milliseconds(0))
    {
    }

    WebSocketServerManager manager{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    const accesspolicy::AccessControl access;
    StatusReport report;
    const StatusListener listener;
};

} // namespace

class TestStatusSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { CaptureImgThread::instance()->setPause(true); }
    void init()
    {
        recording::reset();
        m_folder = std::make_unique<QTemporaryDir>();
        m_path = m_folder->filePath(QStringLiteral("run/status"));
    }

    void onlyItsUserGetsAnAnswer()
    {
        const StatusListener listener(m_path, [] { return QByteArray("well"); });
        QVERIFY(listener.isListening());
        struct stat status = {};
        QCOMPARE(::stat(Utf8(m_path), &status), 0);
        QCOMPARE(int(status.st_mode & 0777), 0600);
        QCOMPARE(::stat(Utf8(QFileInfo(m_path).path()), &status), 0);
        QCOMPARE(int(status.st_mode & 0777), 0700);
        QCOMPARE(answerOf(m_path), QByteArray("well"));
        base::setOwnUser(4711); // the peer is another user now
        const QByteArray answer = answerOf(m_path);
        base::setOwnUser(geteuid());
        QCOMPARE(answer, QByteArray());
        QCOMPARE(answerOf(m_path), QByteArray("well")); // it goes on
    }

    void aServersSocketIsNotReplacedButAStaleOneIs()
    {
        {
            const StatusListener first(m_path, [] { return QByteArray("first"); });
            const StatusListener second(m_path, [] { return QByteArray("second"); });
            QVERIFY(!second.isListening());
            QCOMPARE(answerOf(m_path), QByteArray("first"));
        }
        QVERIFY(!QFileInfo::exists(m_path)); // it has tidied up
        const sockaddr_un address = addressOf(m_path);
        const int left = socket(AF_UNIX, SOCK_STREAM, 0);
        QCOMPARE(bind(left, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        ::close(left);
        const StatusListener third(m_path, [] { return QByteArray("third"); });
        QCOMPARE(answerOf(m_path), QByteArray("third"));
    }

    void nobodyKeepsItFromOthers()
    {
        int made = 0;
        const QByteArray large(200 * 1024, 'x');
        std::vector<int> peers;
        {
            const StatusListener listener(
                m_path, [&] { return QByteArray::number(++made) + large; }, std::chrono::hours(1));
            for (int i = 0; i < 200; ++i) {
                peers.push_back(silentPeer(m_path));
                QVERIFY(peers.back() >= 0);
            }
            QCOMPARE(answerOf(m_path), "1" + large); // the same for all: made once
        }
        for (const int peer : peers) {
            ::close(peer);
        }
    }

    void noSocketWhereItCannotBe_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("no folder") << QStringLiteral("/proc/no/status");
        QTest::newRow("a file in its place") << QStringLiteral("FOLDER/file/status");
        QTest::newRow("a link in its place") << QStringLiteral("FOLDER/link/status");
        QTest::newRow("a folder of the name") << QStringLiteral("FOLDER/run");
        QTest::newRow("another user's folder") << QStringLiteral("/proc/1/status");
        QTest::newRow("too long") << QStringLiteral("FOLDER/run/") + QString(120, QLatin1Char('x'));
    }
    void noSocketWhereItCannotBe()
    {
        QFETCH(QString, path);
        writeFile(m_folder->filePath(QStringLiteral("file")));
        writeFile(m_folder->filePath(QStringLiteral("run/file")));
        QVERIFY(QFile::link(m_folder->path(), m_folder->filePath(QStringLiteral("link"))));
        path.replace(QLatin1String("FOLDER"), m_folder->path());
        const StatusListener listener(path, [] { return QByteArray(); });
        QVERIFY(!listener.isListening());
    }

    void thePathFollowsTheSession()
    {
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder->path()));
        QCOMPARE(base::statusSocketPath(),
                 m_folder->filePath(QStringLiteral("rvowebsocketserver/status")));
        qputenv("XDG_RUNTIME_DIR", "/nowhere");
        QVERIFY(base::statusSocketPath().startsWith(QDir::tempPath()));
    }

    void theReportHasPagesCameraAndProblems()
    {
        QLog::instance()->setLogPath(m_folder->path());
        QLog::instance()->handler(QLog::LogToFile);
        for (int i = 0; i < QLog::mostProblems + 5; ++i) {
            qWarning("trouble %d", i);
        }
        qInfo("no trouble");
        ReportingServer server(m_folder->path(), m_path);
        server.manager.websocke_server_start(QHostAddress::Any, 0);

        Page page(server.manager.port());
        page.send(QStringLiteral("SetPersonInfo(MARK)")); // no known command: its name isn't shown
        page.send(QStringLiteral("bSaveJPG(/MARK,MARK)"));
        page.nextReply();
        const auto fetched = base::Clock::shared().now() - std::chrono::milliseconds(40);
        CaptureImgThread::instance()->pushFrame("/9j/AAAA", fetched);
        page.next();
        recording::reset();
        QByteArray text;
        QVERIFY(waitFor([&] { return answers(text = answerOf(m_path)); }));
        const QJsonObject status = objectOf(text);
        QLog::instance()->handler({});

        QVERIFY2(!text.contains("MARK"), text.constData());
        QCOMPARE(recording::takeText(), QString()); // nothing of the device library
        QCOMPARE(status.value(QStringLiteral("version")).toString(), QStringLiteral("9.9"));
        QCOMPARE(status.value(QStringLiteral("port")).toInt(), int(server.manager.port()));
        const QJsonArray pages = status.value(QStringLiteral("pages")).toArray();
        QCOMPARE(pages.size(), 1);
        QCOMPARE(status.value(QStringLiteral("pageCount")).toInt(), 1);
        const QJsonObject one = pages.first().toObject();
        QCOMPARE(one.value(QStringLiteral("lastCommand")).toString(), QStringLiteral("bSaveJPG"));
        QCOMPARE(one.value(QStringLiteral("framesSent")).toInt(), 1);
        QCOMPARE(one.value(QStringLiteral("framesDropped")).toInt(), 0);
        QVERIFY(one.value(QStringLiteral("frameAgeMs")).toDouble() >= 40);
        const QJsonObject camera = status.value(QStringLiteral("camera")).toObject();
        QCOMPARE(camera.value(QStringLiteral("source")).toInt(), 0);
        QVERIFY(camera.value(QStringLiteral("paused")).toBool());
        const QJsonArray problems = status.value(QStringLiteral("problems")).toArray();
        QCOMPARE(problems.size(), QLog::mostProblems);
        QCOMPARE(problems.first().toObject().value(QStringLiteral("text")).toString(),
                 QStringLiteral("trouble 5"));
        QCOMPARE(problems.last().toObject().value(QStringLiteral("text")).toString(),
                 QStringLiteral("trouble 54"));
        QCOMPARE(objectOf(text)
                     .value(QStringLiteral("access"))
                     .toObject()
                     .value(QStringLiteral("mode"))
                     .toString(),
                 QStringLiteral("none"));
        QVERIFY(status.value(QStringLiteral("memory"))
                    .toObject()
                    .value(QStringLiteral("residentKiB"))
                    .toDouble()
                > 1000);
    }

    void itAnswersWhileTheMainThreadIsBusy()
    {
        const ReportingServer server(m_folder->path(), m_path);
        QVERIFY(waitFor([this] { return answers(answerOf(m_path)); }));

        QLocalSocket socket; // without an event loop: nobody serves the main thread's events
        socket.connectToServer(m_path, QIODevice::ReadOnly);
        QVERIFY(socket.waitForConnected());
        QByteArray text;
        while (socket.waitForReadyRead(patienceMs)) {
            text += socket.readAll();
        }
        QCOMPARE(objectOf(text).value(QStringLiteral("version")).toString(), QStringLiteral("9.9"));
        QVERIFY(!answers(text));
        QVERIFY(waitFor([this] { return answers(answerOf(m_path)); })); // and again once it is free
    }

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_path;
};

QTEST_GUILESS_MAIN(TestStatusSocket)
#include "tst_statussocket.moc"
