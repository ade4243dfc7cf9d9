// SPDX-License-Identifier: MIT
// The portable library's uploads to a web server in this process.
#include "devicelib/doccamera.h"
#include "portable/system/uploader.h"
#include "tests/manualclock.h"
#include "tests/portabletest.h"

#include <QScopeGuard>
#include <QSslSocket>
#include <QTcpServer>
#include <QtTest>

#include <atomic>
#include <cstdlib>
#include <future>
#include <map>

using namespace portable;
using namespace std::chrono_literals;

namespace {

QByteArray httpAnswer(const QByteArray &status, const QByteArray &body,
                      const QByteArray &headers = {})
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\nConnection: close\r\n" + headers + "\r\n" + body;
}

struct Request
{
    QByteArray head; ///< First line and headers.
    QByteArray body;

    bool isWhole() const
    {
        static const QRegularExpression length(QStringLiteral("\r\nContent-Length: (\\d+)\r\n"));
        const auto match = length.match(QString::fromLatin1(head));
        return match.hasMatch() && body.size() == match.captured(1).toInt();
    }
    QByteArray path() const { return head.split(' ').value(1); }
};

/// Sends each path the answer that a test has set for it; to other paths none at all.
class WebServer : public QTcpServer
{
public:
    WebServer() { listen(QHostAddress::LocalHost); }

    std::map<QByteArray, QByteArray> answers;
    std::vector<Request> requests; ///< Complete ones.
    QTcpSocket *lastSocket = nullptr; ///< Of the last request.
    std::chrono::milliseconds delay{0};

    QString address(const char *path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(serverPort()).arg(line(path));
    }

protected:
    void incomingConnection(qintptr handle) override
    {
        auto *socket = newSocket();
        socket->setParent(this);
        socket->setSocketDescriptor(handle);
        auto received = std::make_shared<QByteArray>();
        connect(socket, &QTcpSocket::readyRead, this, [=] {
            *received += socket->readAll();
            const int end = received->indexOf("\r\n\r\n");
            const Request request{received->left(end + 2), received->mid(end + 4)};
            if (end >= 0 && request.isWhole()) {
                requests.push_back(request);
                lastSocket = socket;
                answer(socket, request.path());
            }
        });
        start(socket);
    }

    virtual QTcpSocket *newSocket() { return new QTcpSocket; }
    virtual void start(QTcpSocket *) { }

private:
    void answer(QTcpSocket *socket, const QByteArray &path)
    {
        const auto found = answers.find(path);
        if (found != answers.end()) {
            QTimer::singleShot(delay, socket, [socket, text = found->second] {
                socket->write(text);
                socket->disconnectFromHost();
            });
        }
    }
};

/// The same with TLS and a self-signed certificate.
class TlsServer : public WebServer
{
public:
    explicit TlsServer(const QString &pem)
        : m_pem(pem)
    {
    }

protected:
    QTcpSocket *newSocket() override
    {
        auto *socket = new QSslSocket;
        socket->setLocalCertificate(m_pem);
        socket->setPrivateKey(m_pem);
        return socket;
    }
    void start(QTcpSocket *socket) override
    {
        static_cast<QSslSocket *>(socket)->startServerEncryption();
    }

private:
    const QString m_pem;
};

/// Runs a call on another thread while this one serves.
template <class Call> auto served(Call call)
{
    auto result = std::async(std::launch::async, call);
    while (result.wait_for(0s) != std::future_status::ready) {
        QTest::qWait(1);
    }
    return result.get();
}

/// A clock whose time the test moves, and which counts how often it was read.
class WatchedClock : public ManualClock
{
public:
    TimePoint now() const override
    {
        ++reads;
        return ManualClock::now();
    }
    mutable std::atomic<int> reads{0};
};

} // namespace

Q_DECLARE_METATYPE(portable::UploadLimits)

class TestPortableUpload : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        for (const char *name :
             {"http_proxy", "https_proxy", "all_proxy", "HTTPS_PROXY", "ALL_PROXY"}) {
            qunsetenv(name);
        }
    }

    void init()
    {
        PortableTest::init();
        m_server = std::make_unique<WebServer>();
        m_server->answers["/up"] = httpAnswer("200 OK", "收到");
        m_server->answers["/broken"] = httpAnswer("500 Internal Server Error", "数据库");
        m_file = path("身份证 正面.jpg");
        m_content.resize(300'000);
        for (int i = 0; i < m_content.size(); ++i) {
            m_content[i] = char(i * 7 + i / 256);
        }
        writeFile(m_file, m_content);
    }

    void sendsAFormWithTheFile()
    {
        const Utf8 address(m_server->address("/up"));
        const QString answer = served([&] {
            return taken(sUpLoadImage(address, Utf8(m_file), "image", false,
                                      "no=12%263&name=%E5%BC%A0+三&=x&empty="));
        });
        QCOMPARE(answer, line("收到"));
        QCOMPARE(m_server->requests.size(), size_t(1));
        const Request &request = m_server->requests.front();
        QVERIFY(request.head.startsWith("POST /up HTTP/1.1\r\n"));
        QCOMPARE(
            parts(request),
            (std::vector<QByteArray>{
                "Content-Disposition: form-data; name=\"no\"\r\n\r\n12&3",
                "Content-Disposition: form-data; name=\"name\"\r\n\r\n张+三",
                "Content-Disposition: form-data; name=\"empty\"\r\n\r\n",
                "Content-Disposition: form-data; name=\"image\"; filename=\"身份证 正面.jpg\"\r\n"
                "Content-Type: image/jpeg\r\n\r\n"
                    + m_content}));
        QVERIFY(QFile::exists(m_file));
        QCOMPARE(PortableLog::takeLines(), QStringList());
    }

    void hostPageAndPort()
    {
        const Utf8 file(m_file);
        const long port = m_server->serverPort();
        m_server->answers["/app/up.do?branch=7"] = httpAnswer("200 OK", "ok");
        QCOMPARE(served([&] {
                     return taken(sUpLoadImageEx2("127.0.0.1", "app/up.do?branch=7", port, file));
                 }),
                 line("ok"));
        QVERIFY(served([&] { return bUpLoadImage("http://127.0.0.1/", "/up", port, file); }));
        QString answer;
        QVERIFY(served(
            [&] { return sUpLoadImageEx5("127.0.0.1", "up", port, file, "a=1", "pic", &answer); }));
        QCOMPARE(answer, line("收到"));
        const auto last = parts(m_server->requests.back());
        QCOMPARE(last.size(), size_t(2));
        QCOMPARE(last[0], QByteArray("Content-Disposition: form-data; name=\"a\"\r\n\r\n1"));
        QVERIFY(last[1].startsWith("Content-Disposition: form-data; name=\"pic\"; "));
        QVERIFY(parts(m_server->requests[1])[0].startsWith(
            "Content-Disposition: form-data; name=\"file\"; "));
    }

    void refusedByTheServer()
    {
        const Utf8 file(m_file);
        const long port = m_server->serverPort();
        const Utf8 address(m_server->address("/broken?token=secret"));
        m_server->answers["/broken?token=secret"] = m_server->answers["/broken"];
        QVERIFY(served([&] { return taken(sUpLoadImage(address, file, "", true, "")); }).isNull());
        QVERIFY(QFile::exists(m_file));
        QCOMPARE(PortableLog::takeLines(),
                 QStringList{line("sUpLoadImage: \"%1\" to \"http://127.0.0.1:%2/broken\": the "
                                  "server answered with HTTP status 500")
                                 .arg(m_file)
                                 .arg(port)});
        QVERIFY(served([&] {
                    return taken(sUpLoadImageEx2("127.0.0.1", "broken", port, file));
                }).isNull());
        QVERIFY(!served([&] { return bUpLoadImage("127.0.0.1", "broken", port, file); }));
        QString answer;
        QVERIFY(!served(
            [&] { return sUpLoadImageEx5("127.0.0.1", "broken", port, file, "", "", &answer); }));
        QCOMPARE(answer, line("数据库"));
        QCOMPARE(PortableLog::takeLines().size(), 3);
    }

    void withoutAnAnswer_data()
    {
        const Rows<QString, UploadLimits, QString> row("path", "limits", "reason");
        UploadLimits soonOver;
        soonOver.total = 200ms;
        UploadLimits shortHeaders;
        shortHeaders.headerBytes = 20;
        UploadLimits shortAnswer;
        shortAnswer.answerBytes = 5;
        // clang-format off
        row("slow server",    "/silent", soonOver,       "timed out");
        row("half an answer", "/cut",    UploadLimits(), "5 bytes"); // missing, or remaining
        row("no web server",  "/noise",  UploadLimits(), "HTTP/0.9");
        row("endless answer", "/up",     shortAnswer,    "longer than 5 bytes");
        row("long headers",   "/up",     shortHeaders,   "headers are longer than 20 bytes");
        row("slow redirects", "/loop",   soonOver,       "timed out");
        // clang-format on
    }

    void withoutAnAnswer()
    {
        QFETCH(QString, path);
        QFETCH(UploadLimits, limits);
        QFETCH(QString, reason);
        m_server->answers["/cut"] = httpAnswer("200 OK", "0123456789").chopped(5);
        m_server->answers["/loop"] = httpAnswer("308 Moved", "there", "Location: /loop\r\n");
        m_server->delay = path == line("/loop") ? 50ms : 0ms; // six of them exceed the time
        m_server->answers["/noise"] = "SSH-2.0-OpenSSH_9.2\r\n";
        UploadRequest request = requestTo(path);
        request.removeFile = true;
        const UploadResult result = served([&] { return upload(request, limits); });
        QVERIFY(!result.accepted);
        QCOMPARE(result.answer, QString());
        QVERIFY2(result.error.contains(reason), qPrintable(result.error));
        QVERIFY(QFile::exists(m_file));
    }

    void stalledUploadIsAborted()
    {
        WatchedClock clock;
        auto result = std::async(std::launch::async,
                                 [&] { return upload(requestTo(line("/silent")), {}, clock); });
        QTRY_COMPARE(m_server->requests.size(), size_t(1));
        // The second look at the clock from now on comes after whatever was received before.
        const auto letItLook = [&clock] {
            const int reads = clock.reads;
            QTRY_VERIFY(clock.reads >= reads + 2);
        };
        letItLook();
        clock.advance(29s);
        m_server->lastSocket->write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nx");
        QVERIFY(m_server->lastSocket->waitForBytesWritten());
        letItLook();
        clock.advance(29s);
        letItLook();
        QVERIFY(result.wait_for(0s) == std::future_status::timeout);
        clock.advance(1s);
        QCOMPARE(result.get().error, line("nothing was sent or received for 30 s"));
    }

    void refusedConnection()
    {
        const Utf8 address(m_server->address("/up"));
        m_server->close();
        QVERIFY(taken(sUpLoadImage(address, Utf8(m_file), "", true, "")).isNull());
        QVERIFY(QFile::exists(m_file));
        const QStringList lines = PortableLog::takeLines();
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().contains(line("Failed to connect")), qPrintable(lines.first()));
    }

    void nothingIsSentWithoutFileOrAddress_data()
    {
        const Rows<QString, QString> row("address", "file");
        const QString good = line("http://127.0.0.1:%1/up");
        // clang-format off
        row("no file",      good,                             "/absent.jpg");
        row("folder",       good,                             "/tmp");
        row("device",       good,                             "/dev/zero");
        row("resource",     good,                             ":/qt-project.org/qmime/packages/freedesktop.org.xml");
        row("empty path",   good,                             "");
        row("long path",    good,                             QString(5000, QLatin1Char('x')));
        row("no address",   "",                               QString());
        row("other scheme", "ftp://127.0.0.1:%1/up",          QString());
        row("local file",   "file:///etc/passwd",             QString());
        row("no port",      "http://127.0.0.1:99999/up",      QString());
        row("line break",   "http://127.0.0.1:%1\r\nX: y/up", QString());
        // clang-format on
    }

    void nothingIsSentWithoutFileOrAddress()
    {
        QFETCH(QString, address);
        QFETCH(QString, file); // null: the existing one
        const Utf8 to(address.replace(line("%1"), QString::number(m_server->serverPort())));
        const Utf8 path(file.isNull() ? m_file : file);
        QVERIFY(served([&] { return taken(sUpLoadImage(to, path, "", true, "")); }).isNull());
        QCOMPARE(PortableLog::takeLines().size(), 1);
        QVERIFY(m_server->requests.empty());
        QVERIFY(QFile::exists(m_file));
    }

    void longAnswer()
    {
        const QByteArray text = QByteArray("0123456789").repeated(500'000);
        m_server->answers["/up"] = httpAnswer("200 OK", text);
        const UploadResult result = served([&] { return upload(requestTo(line("/up"))); });
        QVERIFY(result.accepted);
        QVERIFY(result.answer.toUtf8() == text);
    }

    void answerInAnotherEncoding()
    {
        m_server->answers["/up"] = httpAnswer("201 Created", "\xca\xd5\xb5\xbd",
                                              "Content-Type: text/plain; charset=GBK\r\n");
        const UploadResult result = served([&] { return upload(requestTo(line("/up"))); });
        QCOMPARE(result.answer, line("收到"));
    }

    void fileIsRemovedOnceTheServerHasIt()
    {
        const Utf8 address(m_server->address("/up"));
        QCOMPARE(served([&] { return taken(sUpLoadImage(address, Utf8(m_file), "", true, "")); }),
                 line("收到"));
        QVERIFY(!QFile::exists(m_file));
    }

    void redirections_data()
    {
        const Rows<QString, QString, int, bool> row("status", "to", "posts", "accepted");
        // clang-format off
        row("moved",               "301", "/up",                2, true);
        row("for now",             "307", "/up",                2, true);
        row("for good",            "308", "/broken",            2, false);
        row("in a loop",           "308", "/moved",             6, false);
        row("to a result page",    "303", "/up",                1, false);
        row("to a login, perhaps", "302", "/up",                1, false);
        row("to a local file",     "307", "file:///etc/passwd", 1, false);
        // clang-format on
    }

    void redirections()
    {
        QFETCH(QString, status);
        QFETCH(QString, to);
        QFETCH(int, posts);
        QFETCH(bool, accepted);
        m_server->answers["/moved"] =
            httpAnswer(status.toLatin1() + " Moved", "there", "Location: " + to.toUtf8() + "\r\n");
        const UploadResult result = served([&] { return upload(requestTo(line("/moved"))); });
        QCOMPARE(result.accepted, accepted);
        QCOMPARE(int(m_server->requests.size()), posts);
        for (const Request &request : m_server->requests) {
            QVERIFY(request.head.startsWith("POST "));
            QVERIFY(request.body.contains(m_content));
        }
    }

    void redirectionsKeepTheEncryption()
    {
        const QUrl plain(line("http://h/a"));
        const QUrl secure(line("https://h/a"));
        QVERIFY(mayFollowRedirection(plain, QUrl(line("http://other/b"))));
        QVERIFY(mayFollowRedirection(plain, secure));
        QVERIFY(mayFollowRedirection(secure, QUrl(line("https://other/b"))));
        QVERIFY(!mayFollowRedirection(secure, plain));
        QVERIFY(!mayFollowRedirection(plain, QUrl(line("ftp://h/a"))));
        QVERIFY(!mayFollowRedirection(plain, QUrl(line("http:///a"))));
        qputenv("DEVICEHOST_FOLDERS", "r /tmp"); // an access policy restricts the device process
        const auto end = qScopeGuard([] { qunsetenv("DEVICEHOST_FOLDERS"); });
        QVERIFY(mayFollowRedirection(plain, QUrl(line("http://h:80/b"))));
        for (const char *other : {"http://other/a", "http://h:81/a", "https://h/a"}) {
            QVERIFY2(!mayFollowRedirection(plain, QUrl(line(other))), other);
        }
    }

    void severalAtOnce()
    {
        constexpr int uploads = 8;
        std::vector<std::future<QString>> results;
        std::atomic<int> running{uploads};
        for (int i = 0; i < uploads; ++i) {
            const QByteArray page = "/up" + QByteArray::number(i);
            m_server->answers[page] = httpAnswer("200 OK", page);
            results.push_back(std::async(std::launch::async, [&, page] {
                QString answer = taken(sUpLoadImageEx2("127.0.0.1", page.constData(),
                                                       m_server->serverPort(), Utf8(m_file)));
                --running;
                return answer;
            }));
        }
        QTRY_COMPARE_WITH_TIMEOUT(running.load(), 0, 60000);
        for (int i = 0; i < uploads; ++i) {
            QCOMPARE(results[size_t(i)].get(), line("/up%1").arg(i));
        }
        QCOMPARE(m_server->requests.size(), size_t(uploads));
    }

    void selfSignedCertificateIsRefused()
    {
        const QString pem = m_folder->path() + line("/server.pem");
        QProcess openssl;
        openssl.start(line("openssl"),
                      line("req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -addext "
                           "subjectAltName=IP:127.0.0.1 -keyout %1 -out %1")
                          .arg(pem)
                          .split(QLatin1Char(' ')));
        if (!openssl.waitForFinished() || openssl.exitCode() != 0 || !QSslSocket::supportsSsl()) {
            QSKIP("no openssl to make a certificate with");
        }
        TlsServer server(pem);
        server.answers["/up"] = m_server->answers["/up"];
        UploadRequest request = requestTo(line("/up"));
        request.address.setScheme(line("https"));
        request.address.setPort(server.serverPort());
        const UploadResult result = served([&] { return upload(request); });
        QVERIFY(!result.accepted);
        QVERIFY2(result.error.contains(line("certificate")), qPrintable(result.error));
        QVERIFY(server.requests.empty());
    }

    void addresses_data()
    {
        // address: empty: none
        const Rows<QString, QString, int, QString> row("host", "page", "port", "address");
        // clang-format off
        row("whole",          "https://h/a?b=c#d", "",         0,     "https://h/a?b=c");
        row("bare host",      " h ",               "p.jsp",    0,     "http://h/p.jsp");
        row("host:port",      "h:8080",            "/p",       0,     "http://h:8080/p");
        row("port replaced",  "http://h:8080",     "",         81,    "http://h:81");
        row("below a path",   "https://h/app/",    "//p?x=1",  444,   "https://h:444/app/p?x=1");
        row("not a host",     "http://h",          "//evil/p", 0,     "http://h/evil/p");
        row("Chinese",        "http://h",          "上传 页",  0,     "http://h/%E4%B8%8A%E4%BC%A0%20%E9%A1%B5");
        row("encoded",        "http://h/%2Fa",     "b%20c",    0,     "http://h/%2Fa/b%20c");
        row("IPv6",           "[::1]",             "p",        8000,  "http://[::1]:8000/p");
        row("address inside", "h/p?to=http://x/",  "",         0,     "http://h/p?to=http://x/");
        row("negative port",  "h",                 "p",        -1,    QString());
        row("large port",     "h",                 "p",        65536, QString());
        row("no host",        "http:///p",         "p",        80,    QString());
        row("other scheme",   "gopher://h",        "p",        0,     QString());
        // clang-format on
    }

    void addresses()
    {
        QFETCH(QString, host);
        QFETCH(QString, page);
        QFETCH(int, port);
        QFETCH(QString, address);
        QString error;
        const QUrl url = uploadAddress(host, page, port, &error);
        QCOMPARE(QString::fromLatin1(url.toEncoded()), address);
        QCOMPARE(error.isEmpty(), !address.isEmpty());
    }

    void fields()
    {
        const UploadFields expected{
            {line("a"), line("1&2")}, {line("b"), line("x+y=z")}, {line("c"), QString()}};
        QCOMPARE(uploadFields(line("a=1%262&b=x+y=z&=nokey&&c=")), expected);
        QVERIFY(uploadFields(QString()).empty());
    }

    void logShowsNoSecrets()
    {
        QCOMPARE(uploadLabel(QUrl(line("https://user:pw@h:8443/a?token=x#y"))),
                 line("\"https://h:8443/a\""));
    }

private:
    UploadRequest requestTo(const QString &path) const
    {
        UploadRequest request;
        request.address = QUrl(m_server->address("") + path);
        request.file = m_file;
        return request;
    }

    /// The parts of a form (RFC 2046, 5.1.1), headers and content.
    static std::vector<QByteArray> parts(const Request &request)
    {
        const QByteArray key = "Content-Type: multipart/form-data; boundary=";
        const int start = request.head.indexOf(key) + key.size();
        const QByteArray boundary =
            request.head.mid(start, request.head.indexOf("\r\n", start) - start);
        std::vector<QByteArray> result;
        QByteArray rest = "\r\n" + request.body;
        const QByteArray delimiter = "\r\n--" + boundary;
        int from = delimiter.size() + 2;
        for (int to = rest.indexOf(delimiter, from); to >= 0; to = rest.indexOf(delimiter, from)) {
            result.push_back(rest.mid(from, to - from));
            from = to + delimiter.size() + 2;
        }
        return result;
    }

    std::unique_ptr<WebServer> m_server;
    QString m_file;
    QByteArray m_content;
};

QTEST_GUILESS_MAIN(TestPortableUpload)
#include "tst_portableupload.moc"
