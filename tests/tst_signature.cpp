// SPDX-License-Identifier: MIT
//
// The signature service: its frames, what it does to PDFs, its window, and the program as the
// server uses it.

#include "companionclients/signsouthinterface.h"
#include "companions/common/requestserver.h"
#include "companions/signature/failure.h"
#include "companions/signature/pageview.h"
#include "companions/signature/pdfdocument.h"
#include "companions/signature/signaturepad.h"
#include "companions/signature/signatureservice.h"
#include "companions/signature/signwindow.h"
#include "tests/manualclock.h"
#include "tests/messages.h"
#include "tests/waitfor.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLocalSocket>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QScreen>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <tuple>

namespace {

const auto socketName = QStringLiteral("SOUTHINTERFACE_ELECSIGNSERVER");
const QMap<int, int> partsOfType{{1, 1}, {2, 2}};

QByteArray number(qint32 value)
{
    return QByteArray(reinterpret_cast<const char *>(&value), sizeof value);
}

QByteArray sized(const QByteArray &text)
{
    return number(text.size()) + text;
}

/// Runs a program to its end. \return its standard output and a line end; null if it failed
QByteArray run(const QString &program, const QStringList &arguments, const QByteArray &input = {})
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished() || process.exitCode() != 0) {
        qWarning() << program << arguments << process.errorString()
                   << process.readAllStandardError() << process.readAllStandardOutput();
        return {};
    }
    return process.readAllStandardOutput() + '\n';
}

/// What a page of a test PDF consists of.
struct PageParts
{
    QByteArray entries; ///< of the page's dictionary
    QByteArray content = "BT /F1 12 Tf 60 120 Td (Text) Tj ET 0.5 0 0 0.5 90 40 cm 2 0 0 2 0 0 cm";
    QByteArray contents = "5 0 R"; ///< the value of /Contents
};

/// A page of 300 x 200 points that inherits its size, font and hidden layer; a classic xref table.
QByteArray pdf(const PageParts &parts = {})
{
    const QByteArrayList objects{
        ("<< /Type /Catalog /Pages 2 0 R /OCProperties << /OCGs [ 6 0 R ] /D << /OFF [ 6 0 R ] >> "
         ">> >>"),
        ("<< /Type /Pages /Kids [ 4 0 R ] /Count 1 /MediaBox [ 0 0 300 200 ]"
         " /Resources << /Font << /F1 3 0 R >> /Properties << /Hidden 6 0 R >> >> >>"),
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
        "<< /Type /Page /Parent 2 0 R " + parts.entries
            + (parts.contents.isEmpty() ? "" : " /Contents " + parts.contents) + " >>",
        "<< /Length " + QByteArray::number(parts.content.size()) + " >>\nstream\n" + parts.content
            + "\nendstream",
        "<< /Type /OCG /Name (hidden) >>",
    };
    QByteArray bytes = "%PDF-1.5\n";
    QByteArray table = "0000000000 65535 f \n";
    for (int i = 0; i < objects.size(); ++i) {
        table += QByteArray::number(bytes.size()).rightJustified(10, '0') + " 00000 n \n";
        bytes += QByteArray::number(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const QByteArray start = QByteArray::number(bytes.size());
    return bytes + "xref\n0 7\n" + table + "trailer\n<< /Size 7 /Root 1 0 R /ID [ <aa> <bb> ] >>\n"
        + "startxref\n" + start + "\n%%EOF\n";
}

QByteArray throughQpdf(QStringList options, const QByteArray &bytes)
{
    QTemporaryFile file;
    if (!file.open() || file.write(bytes) != bytes.size() || !file.flush()) {
        return {};
    }
    return run(QStringLiteral("qpdf"), options << file.fileName() << QStringLiteral("-"));
}

PageParts with(const QByteArray &entries)
{
    PageParts parts;
    parts.entries = entries;
    return parts;
}

PageParts withContent(const QByteArray &content, const QByteArray &contents = "5 0 R")
{
    PageParts parts;
    parts.content = content;
    parts.contents = contents;
    return parts;
}

/// An L: down the pad's left edge, then along its lower edge.
Ink letterL()
{
    return Ink::fromJson("[[[0.1,0.1],[0.1,0.5],[0.1,0.9]],[[0.1,0.9],[0.5,0.9],[0.9,0.9]]]");
}

QImage rendered(const QByteArray &bytes)
{
    const QByteArray picture = run(QStringLiteral("pdftoppm"),
                                   {QStringLiteral("-cropbox"), QStringLiteral("-r"),
                                    QStringLiteral("72"), QStringLiteral("-")},
                                   bytes);
    return QImage::fromData(picture, "PPM").convertToFormat(QImage::Format_Grayscale8);
}

int darkPixels(const QImage &image, const QRect &area)
{
    int dark = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            dark += qGray(image.pixel(x, y)) < 160;
        }
    }
    return dark;
}

int failureCode(const std::function<void()> &attempt)
{
    try {
        attempt();
        return 0;
    } catch (const SigningFailure &failure) {
        return failure.code;
    }
}

QString beside(const char *name)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(name);
}

/// Lets connections and bytes that the system already has for this process arrive.
void processArrivals()
{
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::processEvents();
    }
}

/// The signing window on the screen; null without one.
SignWindow *shownWindow()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        auto *window = qobject_cast<SignWindow *>(widget);
        if (window && window->isVisible()) {
            return window;
        }
    }
    return nullptr;
}

/// Waits for a signing window other than the one before. \return null when none comes
SignWindow *nextWindow(const SignWindow *before = nullptr)
{
    const auto comes = [before] { return shownWindow() && shownWindow() != before; };
    return waitFor(comes) ? shownWindow() : nullptr;
}

QString timeLeft(const SignWindow &window)
{
    for (const QLabel *label : window.findChildren<QLabel *>()) {
        if (label->text().contains(QStringLiteral("剩余"))) {
            return label->text();
        }
    }
    return {};
}

void drawOn(SignaturePad *pad)
{
    pad->penDown({{0.1, 0.5}});
    pad->penMove({{0.9, 0.5}});
    pad->penUp();
}

/// The server's end of the service's socket.
class Client
{
public:
    Client()
    {
        m_socket.connectToServer(socketName);
        m_socket.waitForConnected();
    }

    void send(const QJsonObject &request)
    {
        m_socket.write(number(1) + sized(QJsonDocument(request).toJson()));
        m_socket.flush();
    }

    /// Waits for a reply. \return empty when none comes
    QJsonObject reply()
    {
        qint32 length = 0;
        const auto isComplete = [&] {
            const QByteArray head = m_socket.peek(sizeof length);
            if (head.size() < int(sizeof length)) {
                return false;
            }
            std::memcpy(&length, head.constData(), sizeof length);
            return m_socket.bytesAvailable() >= int(sizeof length) + length;
        };
        if (!waitFor(isComplete)) {
            return {};
        }
        return QJsonDocument::fromJson(m_socket.readAll().mid(sizeof length)).object();
    }

    bool isConnected() const { return m_socket.state() == QLocalSocket::ConnectedState; }
    bool hasReply() const { return m_socket.bytesAvailable() > 0; }

private:
    QLocalSocket m_socket;
};

} // namespace

class TestSignature : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void frames_data();
    void frames();
    void theLatestRequestHasTheClient();
    void idleConnectionsAreLimited();
    void oneInstance();
    void theScriptStartsOne();

    void requests_data();
    void requests();
    void inkOnAPage_data();
    void inkOnAPage();
    void documentsThatCantBeSigned_data();
    void documentsThatCantBeSigned();

    void pageSizes_data();
    void pageSizes();
    void pressureMakesThickLines();
    void thePadShowsItsInk();
    void anEnlargedPageShowsThePlace();
    void confirmNeedsASignature();
    void oneFingerDraws();

    void service_data();
    void service();
    void theTimeRunsOut();
    void onlyTheLatestRequestIsCarriedOut();
    void theServerUsesTheProgram();

private:
    QString inFolder(const QString &name) const { return m_folder->filePath(name); }
    QByteArray fileContent(const QString &name) const;
    void writeFile(const QString &name, const QByteArray &content) const;
    QJsonObject request() const;
    void start(const std::optional<Ink> &script);

    QTemporaryDir m_around;
    std::unique_ptr<QTemporaryDir> m_folder;
    QProcess m_service;
    std::unique_ptr<SignatureService> m_ownService;
};

void TestSignature::initTestCase()
{
    static ManualClock clock;
    clock.runFree();
    base::Clock::setShared(&clock);
    QFile::remove(beside("elecsign"));
    QVERIFY(QFile::copy(beside("../../elecsign"), beside("elecsign")));
}

void TestSignature::init()
{
    m_folder = std::make_unique<QTemporaryDir>(m_around.filePath(QStringLiteral("XXXXXX")));
    qputenv("TMPDIR", m_folder->path().toLocal8Bit()); // for local sockets
    writeFile(QStringLiteral("a.pdf"), pdf());
}

void TestSignature::cleanup()
{
    SignSouthInterface::instance()->stop();
    m_service.kill();
    m_service.waitForFinished();
    m_ownService.reset();
}

QByteArray TestSignature::fileContent(const QString &name) const
{
    QFile file(inFolder(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void TestSignature::writeFile(const QString &name, const QByteArray &content) const
{
    QFile file(inFolder(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

/// A request to sign a.pdf.
QJsonObject TestSignature::request() const
{
    return {{QStringLiteral("pdfpath"), inFolder(QStringLiteral("a.pdf"))},
            {QStringLiteral("location"), QStringLiteral("1,40,60,100")}};
}

/// Starts a service in this process.
void TestSignature::start(const std::optional<Ink> &script)
{
    m_ownService = std::make_unique<SignatureService>(script);
    QCOMPARE(m_ownService->start(), RequestServer::Start::Listening);
}

void TestSignature::frames_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("requests");
    QTest::addColumn<bool>("fails");
    const QByteArray one = number(1) + sized("{}");
    const QByteArray two = number(2) + sized("url") + sized("");
    // clang-format off
    QTest::newRow("nothing")                     << QByteArray()                             << QByteArray()      << false;
    QTest::newRow("one part")                    << one                                      << QByteArray("1:{}|;")     << false;
    QTest::newRow("two parts, one empty, twice") << two + two                                << QByteArray("2:url||;2:url||;") << false;
    QTest::newRow("one that is not whole")       << one + two.chopped(1)                     << QByteArray("1:{}|;")     << false;
    QTest::newRow("unknown type")                << one + number(3) + one                    << QByteArray("1:{}|;")     << true;
    QTest::newRow("negative length")             << number(1) + number(-1) + one             << QByteArray()      << true;
    QTest::newRow("length above the limit")      << number(1) + number(FrameReader::maxPartSize + 1) << QByteArray()      << true;
    // clang-format on
}

void TestSignature::frames()
{
    QFETCH(QByteArray, bytes);
    for (const int piece : {1, 3, 1000}) {
        FrameReader reader(partsOfType);
        QByteArray requests;
        for (int at = 0; at < bytes.size(); at += piece) {
            for (const Request &request : reader.feed(bytes.mid(at, piece))) {
                requests += QByteArray::number(request.type) + ':' + request.parts.join('|') + "|;";
            }
        }
        QTEST(requests, "requests");
        QTEST(!reader.error().isEmpty(), "fails");
    }
}

void TestSignature::theLatestRequestHasTheClient()
{
    RequestServer server(socketName, partsOfType);
    QCOMPARE(server.start(), RequestServer::Start::Listening);
    QSignalSpy requests(&server, &RequestServer::request);
    QSignalSpy gone(&server, &RequestServer::clientGone);
    const auto connected = [](QLocalSocket *socket) {
        socket->connectToServer(socketName);
        return socket->waitForConnected();
    };
    QLocalSocket first;
    QVERIFY(connected(&first));
    first.write(number(1) + sized("a"));
    QTRY_COMPARE(requests.size(), 1);

    QLocalSocket probe; // as the server does at its start
    QVERIFY(connected(&probe));
    probe.abort();
    QLocalSocket second;
    QVERIFY(connected(&second));
    second.write(number(1) + sized("b").chopped(1));
    QVERIFY(second.waitForBytesWritten());
    processArrivals();
    QVERIFY(server.reply("to the first"));
    QTRY_COMPARE(first.bytesAvailable(), 12);

    second.write("b");
    QTRY_COMPARE(requests.size(), 2);
    QVERIFY(server.reply("to the second"));
    QTRY_COMPARE(second.bytesAvailable(), 13);
    QTRY_COMPARE(first.state(), QLocalSocket::UnconnectedState);
    QCOMPARE(gone.size(), 0);
    second.write(number(7));
    QTRY_COMPARE(second.state(), QLocalSocket::UnconnectedState);
    QTRY_COMPARE(gone.size(), 1);
    QVERIFY(!server.reply("to nobody"));
}

void TestSignature::idleConnectionsAreLimited()
{
    RequestServer server(socketName, partsOfType);
    QCOMPARE(server.start(), RequestServer::Start::Listening);
    QSignalSpy requests(&server, &RequestServer::request);
    std::array<QLocalSocket, 10> sockets;
    for (QLocalSocket &socket : sockets) {
        socket.connectToServer(socketName);
        QVERIFY(socket.waitForConnected());
        if (&socket == &sockets.front()) { // the client, which stays
            socket.write(number(1) + sized("a"));
            QTRY_COMPARE(requests.size(), 1);
        }
    }
    QTRY_COMPARE(sockets[1].state(), QLocalSocket::UnconnectedState);
    QTRY_COMPARE(sockets[2].state(), QLocalSocket::UnconnectedState);
    processArrivals();
    QCOMPARE(sockets[3].state(), QLocalSocket::ConnectedState);
    QVERIFY(server.reply("to the client"));
    QTRY_COMPARE(sockets[0].bytesAvailable(), 13);
}

void TestSignature::oneInstance()
{
    { // the socket file of a crashed instance
        const int left = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, inFolder(socketName).toLocal8Bit().constData(),
                 sizeof address.sun_path);
        QCOMPARE(::bind(left, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        ::close(left);
    }
    RequestServer first(socketName, partsOfType);
    QCOMPARE(first.start(), RequestServer::Start::Listening);
    RequestServer second(socketName, partsOfType);
    QCOMPARE(second.start(), RequestServer::Start::AnotherRuns);
    QLocalSocket client;
    client.connectToServer(socketName);
    QVERIFY(client.waitForConnected());
}

void TestSignature::theScriptStartsOne()
{
    QFile::remove(beside("log/elecsign.log"));
    QFile::remove(beside("run-elecsign.sh"));
    QVERIFY(QFile::copy(beside("../../run-elecsign.sh"), beside("run-elecsign.sh")));
    // Removed at the end: the server's client would start it in other tests and leave it running.
    const auto remove = qScopeGuard([] { QFile::remove(beside("run-elecsign.sh")); });
    const auto logged = [](const char *text) {
        QFile log(beside("log/elecsign.log"));
        return log.open(QIODevice::ReadOnly) && log.readAll().contains(text);
    };
    for (const char *text : {"listening on", "another instance listens"}) {
        QVERIFY(!run(QStringLiteral("/bin/bash"), {beside("run-elecsign.sh")}).isNull());
        QTRY_VERIFY_WITH_TIMEOUT(logged(text), 20000);
    }
    QLocalSocket client;
    client.connectToServer(socketName);
    QVERIFY(client.waitForConnected());
    ucred service{};
    socklen_t size = sizeof service;
    QCOMPARE(::getsockopt(int(client.socketDescriptor()), SOL_SOCKET, SO_PEERCRED, &service, &size),
             0);
    QCOMPARE(QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(service.pid)),
             beside("elecsign"));
    QCOMPARE(::kill(service.pid, SIGTERM), 0);
}

void TestSignature::requests_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QRectF>("place"); // null: refused
    QTest::addColumn<double>("aspect");
    const QRectF refused;
    // clang-format off
    QTest::newRow("width alone")        << QStringLiteral("1,100,200,50")     << QRectF(100, 200, 50, 20) << 2.5;
    QTest::newRow("width and height")   << QStringLiteral("2, 10.5,0,60,30")  << QRectF(10.5, 0, 60, 30)  << 2.0;
    QTest::newRow("a strip")            << QStringLiteral("1,0,0,200,2")      << QRectF(0, 0, 200, 2)     << 6.0;
    QTest::newRow("six numbers")        << QStringLiteral("1,10,20,60,30,7")  << QRectF(10, 20, 60, 30)   << 2.0;
    QTest::newRow("three numbers")      << QStringLiteral("1,2,3")            << refused << 0.0;
    QTest::newRow("no number")          << QStringLiteral("1,2,3,x")          << refused << 0.0;
    QTest::newRow("not a finite one")   << QStringLiteral("1,2,3,nan")        << refused << 0.0;
    QTest::newRow("page 0")             << QStringLiteral("0,2,3,4")          << refused << 0.0;
    QTest::newRow("page 1.5")           << QStringLiteral("1.5,2,3,4")        << refused << 0.0;
    QTest::newRow("no width")           << QStringLiteral("1,2,3,-4")         << refused << 0.0;
    QTest::newRow("nothing")            << QString()                          << refused << 0.0;
    // clang-format on
}

void TestSignature::requests()
{
    QFETCH(QString, location);
    QFETCH(QRectF, place);
    const QJsonObject object{{QStringLiteral("pdfpath"), QStringLiteral("a.pdf")},
                             {QStringLiteral("location"), location}};
    SigningRequest request;
    const int code = failureCode([&] { request.read(1, QJsonDocument(object).toJson()); });
    QCOMPARE(code, place.isNull() ? int(SigningFailure::BadRequest) : 0);
    QCOMPARE(request.pdfPath, QStringLiteral("a.pdf")); // for the reply, in any case
    if (place.isNull()) {
        return;
    }
    QCOMPARE(request.place, place);
    QTEST(request.padAspect(), "aspect");
    QVERIFY(place.contains(request.inkPlace()));
    QCOMPARE(failureCode([] { SigningRequest().read(1, "[]"); }), int(SigningFailure::BadRequest));
}

void TestSignature::inkOnAPage_data()
{
    QTest::addColumn<QByteArray>("original");
    QTest::newRow("plain") << pdf();
    QTest::newRow("in object streams")
        << throughQpdf({QStringLiteral("--object-streams=generate")}, pdf(with("/Rotate 90")));
    QTest::newRow("linearized") << throughQpdf({QStringLiteral("--linearize")}, pdf());
    QTest::newRow("upside down") << pdf(with("/Rotate 180"));
    QTest::newRow("turned, cropped") << pdf(with("/Rotate 90 /CropBox [ 20 10 280 190 ]"));
    QTest::newRow("turned back, below 0")
        << pdf(with("/Rotate -90 /MediaBox [ -50 -60 250 140 ] /CropBox [ -40 -50 240 130 ]"));
    QTest::newRow("restores too much") << pdf(withContent("q Q Q Q 3 0 0 3 9 9 cm"));
    QTest::newRow("saves too much") << pdf(withContent("q 3 0 0 3 9 9 cm q 2 0 0 2 0 0 cm"));
    QTest::newRow("ends in a text") << pdf(withContent("BT /F1 12 Tf 60 120 Td (Text) Tj"));
    QTest::newRow("ends in a hidden layer") << pdf(withContent("/OC /Hidden BDC 9 9 9 9 re f"));
    QTest::newRow("below a field, turned")
        << pdf(with("/Rotate 90 /Annots [ << /Type /Annot /Subtype /Square /Rect [ 80 20 160 160 ] "
                    "/IC [ 1 1 1 ] /C [ 1 1 1 ] >> ]"));
    QTest::newRow("list of contents") << pdf(withContent("q", "[ 5 0 R 5 0 R ]"));
    QTest::newRow("no contents") << pdf(withContent("q", ""));
    QTest::newRow("junk before, no line end") << "junk\n" + pdf().chopped(1);
}

void TestSignature::inkOnAPage()
{
    QFETCH(QByteArray, original);
    const QRect area(40, 90, 100, 50); // from the upper left corner
    QByteArray all = original;
    for (int times = 1; times <= 2; ++times) { // what was signed is signed again
        const PdfDocument document(all);
        const QSizeF size = document.pageSize(1);
        const QRectF place(area.x(), size.height() - area.y() - area.height(), area.width(),
                           area.height());
        const QByteArray bytes = document.withInk(1, place, letterL());
        QVERIFY(bytes.startsWith(all));
        all = bytes;
    }
    writeFile(QStringLiteral("signed.pdf"), all);
    QVERIFY(!run(QStringLiteral("qpdf"),
                 {QStringLiteral("--check"), inFolder(QStringLiteral("signed.pdf"))})
                 .isNull());

    QImage before = rendered(original);
    QImage after = rendered(all);
    QVERIFY(!after.isNull());
    QCOMPARE(after.size(), before.size());
    QVERIFY(darkPixels(after, {45, 95, 10, 40}) > 20); // the L's upright
    QVERIFY(darkPixels(after, {50, 130, 80, 10}) > 50); // its foot
    QCOMPARE(darkPixels(after, {60, 92, 78, 34}), 0);
    for (QImage *image : {&before, &after}) {
        for (int y = area.top(); y <= area.bottom(); ++y) {
            std::fill_n(image->scanLine(y) + area.left(), area.width(), uchar(0));
        }
    }
    QVERIFY2(before == after, "the page has changed outside of the place");
}

void TestSignature::documentsThatCantBeSigned_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("page");
    QTest::addColumn<int>("code");
    QByteArray movedTable = pdf();
    movedTable.replace("startxref\n", "startxref\n1");
    const QStringList password{QStringLiteral("--encrypt"), QStringLiteral("user"),
                               QStringLiteral("owner"), QStringLiteral("256"),
                               QStringLiteral("--")};
    QStringList noPassword = password;
    noPassword[1].clear();
    // clang-format off
    QTest::newRow("encrypted")        << throughQpdf(password, pdf())      << 1 << int(SigningFailure::Encrypted);
    QTest::newRow("without password") << throughQpdf(noPassword, pdf())    << 1 << int(SigningFailure::Encrypted);
    QTest::newRow("no such page")     << pdf()                             << 2 << int(SigningFailure::Place);
    QTest::newRow("empty")            << QByteArray()                      << 1 << int(SigningFailure::Broken);
    QTest::newRow("a text")           << QByteArray("hello").repeated(500) << 1 << int(SigningFailure::Broken);
    QTest::newRow("cut off")          << pdf().left(500)                   << 1 << int(SigningFailure::Broken);
    QTest::newRow("a table elsewhere")<< movedTable                        << 1 << int(SigningFailure::Broken);
    QTest::newRow("an open text")     << pdf(withContent("BT (Text"))      << 1 << int(SigningFailure::Broken);
    QTest::newRow("endless content")  << pdf(withContent(QByteArray(17 << 20, ' '))) << 1 << int(SigningFailure::Broken);
    QTest::newRow("no size")          << pdf(with("/MediaBox [ 0 0 0 0 ]"))<< 1 << int(SigningFailure::Broken);
    QTest::newRow("turned a little")  << pdf(with("/Rotate 45"))           << 1 << int(SigningFailure::Broken);
    // clang-format on
}

void TestSignature::documentsThatCantBeSigned()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, page);
    QTEST(failureCode([&] {
              PdfDocument(bytes).withInk(page, {0, 0, 50, 20}, letterL());
          }),
          "code");
}

void TestSignature::pageSizes_data()
{
    QTest::addColumn<QByteArray>("entries");
    QTest::addColumn<QSizeF>("size");
    QTest::newRow("inherited") << QByteArray() << QSizeF(300, 200);
    QTest::newRow("turned") << QByteArray("/Rotate 270") << QSizeF(200, 300);
    QTest::newRow("cropped") << QByteArray("/CropBox [ 280 190 20 10 ]") << QSizeF(260, 180);
    QTest::newRow("cropped beyond the page")
        << QByteArray("/CropBox [ -9 -9 100 999 ]") << QSizeF(100, 200);
    QTest::newRow("cropped elsewhere")
        << QByteArray("/CropBox [ 400 300 500 400 ]") << QSizeF(300, 200);
}

void TestSignature::pageSizes()
{
    QFETCH(QByteArray, entries);
    QTEST(PdfDocument(pdf(with(entries))).pageSize(1), "size");
}

void TestSignature::pressureMakesThickLines()
{
    const auto widths = [](double pressure) {
        Ink ink;
        ink.begin({{0, 0.5}, 0, pressure});
        for (int i = 1; i <= 20; ++i) {
            ink.add({{i / 20.0, 0.5}, i / 100.0, pressure});
        }
        const QVector<InkLine> lines = ink.lines({250, 100});
        return std::make_tuple(lines.first().width, lines.last().width, lines.size());
    };
    const auto [heavyStart, heavyEnd, heavyLines] = widths(1);
    const auto [lightStart, lightEnd, lightLines] = widths(0);
    QVERIFY(qAbs(heavyStart - 2.1) < 0.07 && qAbs(heavyEnd - 3.0) < 0.07); // of 100 high
    QVERIFY(qAbs(lightStart - 0.77) < 0.07 && qAbs(lightEnd - 1.1) < 0.07);
    QVERIFY(heavyLines > 5 && heavyLines < 20 && lightLines < 20); // not one a sample
}

void TestSignature::thePadShowsItsInk()
{
    SignaturePad pad(2.5);
    pad.resize(800, 200); // 490 wide, from 155 to 645
    QCOMPARE(pad.grab().toImage().pixelColor(160, 20), QColor(Qt::white));
    pad.penDown({{0.1, 0.5}});
    pad.penMove({{0.9, 0.5}});
    const QRect line(204, 90, 392, 20);
    const QRect before(0, 90, 200, 20);
    QVERIFY(darkPixels(pad.grab().toImage(), line) > 392);
    pad.penUp();
    QVERIFY(darkPixels(pad.grab().toImage(), line) > 392);
    QCOMPARE(darkPixels(pad.grab().toImage(), before), 0);
    pad.clear();
    QCOMPARE(darkPixels(pad.grab().toImage(), line), 0);
}

void TestSignature::anEnlargedPageShowsThePlace()
{
    PageView view;
    view.resize(200, 200);
    view.show();
    QImage page(300, 300, QImage::Format_RGB32);
    page.fill(Qt::white);
    view.setPage(page);
    QCOMPARE(view.widget()->size(), view.viewport()->size());
    view.setPlace({0.7, 0.8, 0.2, 0.1});
    view.setEnlarged(true);
    QCOMPARE(view.widget()->size(), 2 * view.viewport()->size());
    QVERIFY(view.horizontalScrollBar()->value() > 100);
    QVERIFY(view.verticalScrollBar()->value() > 100);
    view.setEnlarged(false);
    QCOMPARE(view.widget()->size(), view.viewport()->size());
}

void TestSignature::confirmNeedsASignature()
{
    SigningRequest request;
    request.read(2, R"({"pdfpath":"a.pdf","location":"3,10,10,100","timeout":30})");
    request.pdfPath = QString(100, QChar(0x5408)); // takes no room from the time
    SignWindow window(request, 5, {300, 200});
    QSignalSpy needed(&window, &SignWindow::pageNeeded);
    QSignalSpy confirmed(&window, &SignWindow::confirmed);
    window.open();
    QCOMPARE(window.geometry(), QGuiApplication::primaryScreen()->geometry());
    QCOMPARE(window.page(), 1); // the whole document, from its beginning
    for (const QLabel *label : window.findChildren<QLabel *>()) {
        if (label->text().contains(QStringLiteral("剩余"))) {
            QTRY_VERIFY(label->width() >= label->sizeHint().width());
        }
    }
    const QPoint center = window.pad()->rect().center();
    QTest::mouseClick(window.pad(), Qt::LeftButton, {}, center);
    QCOMPARE(window.page(), 3); // a signing customer sees where the ink goes
    window.confirm();
    QCOMPARE(confirmed.size(), 0); // a dot is no signature

    const auto draw = [&] { // by the window: widgets get no moves from QtTest here
        const QPoint from = window.pad()->mapTo(&window, center);
        QTest::mousePress(window.windowHandle(), Qt::LeftButton, {}, from);
        QTest::mouseMove(window.windowHandle(), from + QPoint(100, 20));
        QTest::mouseRelease(window.windowHandle(), Qt::LeftButton, {}, from + QPoint(100, 20));
    };
    draw();
    QVERIFY(window.pad()->holdsSignature());
    window.pad()->clear();
    window.confirm();
    QCOMPARE(confirmed.size(), 0);
    draw();
    window.confirm();
    window.close(); // once is enough
    QCOMPARE(confirmed.size(), 1);
    QCOMPARE(needed.size(), 2);
}

void TestSignature::oneFingerDraws()
{
    SignaturePad pad(2.5);
    pad.resize(500, 200);
    pad.show();
    QTouchDevice *screen = QTest::createTouchDevice();
    QTest::touchEvent(&pad, screen).press(1, {100, 100}, &pad);
    QTest::touchEvent(&pad, screen).move(1, {200, 120}, &pad).press(2, {400, 150}, &pad);
    QTest::touchEvent(&pad, screen).stationary(1).move(2, {420, 190}, &pad);
    QTest::mousePress(&pad, Qt::LeftButton, {}, {300, 50});
    QTest::touchEvent(&pad, screen).move(1, {250, 100}, &pad).release(2, {420, 190}, &pad);
    QTest::touchEvent(&pad, screen).release(1, {250, 100}, &pad);
    QCOMPARE(pad.ink().strokes().size(), 1);
    const Ink::Stroke stroke = pad.ink().strokes().first();
    QCOMPARE(stroke.size(), 3);
    QVERIFY(qAbs(stroke[0].at.x() - 0.2) < 0.02 && qAbs(stroke[2].at.x() - 0.5) < 0.02);
}

void TestSignature::service_data()
{
    QTest::addColumn<QByteArray>("strokes"); // a customer if empty
    QTest::addColumn<QString>("document");
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("record");
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("code");
    const QByteArray signature = letterL().toJson();
    const auto place = QStringLiteral("1,40,60,100");
    const auto ours = QStringLiteral("a.pdf");
    const auto record = QStringLiteral("b.xml");
    const auto error = QStringLiteral("error");
    // clang-format off
    QTest::newRow("signed")        << signature << ours << place << record << QStringLiteral("signed") << 0;
    QTest::newRow("cancelled")     << QByteArray("[]") << ours << place << record << QStringLiteral("cancelled") << 1;
    QTest::newRow("bad location")  << signature << ours << QStringLiteral("1,2,3,x") << record << error << 10;
    QTest::newRow("no document")   << signature << QStringLiteral("none.pdf") << place << record << error << 11;
    QTest::newRow("off the page")  << signature << ours << QStringLiteral("1,250,60,100") << record << error << 14;
    QTest::newRow("no display")    << QByteArray() << ours << place << record << error << 15;
    QTest::newRow("the record is a folder") << signature << ours << place << QStringLiteral(".") << error << 17;
    QTest::newRow("no folder for the record") << signature << ours << place << QStringLiteral("none/b.xml") << error << 17;
    // clang-format on
}

void TestSignature::service()
{
    QFETCH(QByteArray, strokes);
    QFETCH(QString, document);
    QFETCH(QString, location);
    QFETCH(QString, record);
    start(strokes.isEmpty() ? std::nullopt : std::make_optional(Ink::fromJson(strokes)));
    Client client;
    client.send({{QStringLiteral("pdfpath"), inFolder(document)},
                 {QStringLiteral("xmlpath"), inFolder(record)},
                 {QStringLiteral("location"), location},
                 {QStringLiteral("retain"), QStringLiteral("1")}});
    const QJsonObject reply = client.reply();
    QTEST(reply.value(QStringLiteral("status")).toString(), "status");
    QTEST(reply.value(QStringLiteral("code")).toInt(), "code");
    QVERIFY(!reply.value(QStringLiteral("message")).toString().isEmpty());

    const bool isSigned = reply.contains(QStringLiteral("signedpath"));
    QCOMPARE(isSigned, reply.value(QStringLiteral("code")) == 0);
    QCOMPARE(fileContent(QStringLiteral("b.xml")).contains("<signing "), isSigned);
    if (!isSigned) {
        return;
    }
    const QByteArray bytes = fileContent(QStringLiteral("a-signed.pdf"));
    QVERIFY(bytes.startsWith(pdf()));
    QVERIFY(darkPixels(rendered(bytes), {40, 100, 100, 40}) > 50);
    const QByteArray png =
        QByteArray::fromBase64(reply.value(QStringLiteral("png")).toString().toLatin1());
    QCOMPARE(QImage::fromData(png, "PNG").size(), QSize(900, 360));
    QCOMPARE(fileContent(QStringLiteral("a-signed.png")), png);
    QCOMPARE(Ink::fromJson(fileContent(QStringLiteral("a-signed.json"))).toJson(), strokes);
    for (const char *name : {"a-signed.png", "a-signed.json"}) {
        QCOMPARE(QFile::permissions(inFolder(QLatin1String(name)))
                     & (QFile::ReadGroup | QFile::ReadOther),
                 QFile::Permissions());
    }
    const QByteArray xml = fileContent(QStringLiteral("b.xml"));
    for (const QByteArray &file : {pdf(), bytes}) {
        const QByteArray sum = QCryptographicHash::hash(file, QCryptographicHash::Sha256).toHex();
        QVERIFY(xml.contains("bytes=\"" + QByteArray::number(file.size()) + "\" sha256=\"" + sum));
    }
    QVERIFY(xml.contains(R"(<place page="1" x="40" y="60" width="100" height="40"/>)"));
    QVERIFY(xml.contains(R"(<ink strokes="2" points="6"/>)"));
}

void TestSignature::theTimeRunsOut()
{
    start(Ink::fromJson("[[[0.1,0.1,0],[0.9,0.9,3000]]]"));
    QJsonObject late = request();
    late.insert(QStringLiteral("timeout"), 2);
    Client client;
    client.send(late);
    SignWindow *window = nextWindow();
    QVERIFY(window);
    QVERIFY(timeLeft(*window).endsWith(QStringLiteral("2 s")));
    QMetaObject::invokeMethod(window, "tick"); // as its timer does each second
    QVERIFY(timeLeft(*window).endsWith(QStringLiteral("1 s")));
    QMetaObject::invokeMethod(window, "tick");
    const QJsonObject reply = client.reply();
    QCOMPARE(reply.value(QStringLiteral("status")).toString(), QStringLiteral("timeout"));
    QCOMPARE(reply.value(QStringLiteral("code")).toInt(), 2);
    QVERIFY(!shownWindow());
}

void TestSignature::onlyTheLatestRequestIsCarriedOut()
{
    start(Ink::fromJson("[[[0.1,0.1,0],[0.9,0.9,3000]]]"));
    Client first;
    first.send(request());
    SignWindow *firstWindow = nextWindow();
    QVERIFY(firstWindow);
    auto second = std::make_unique<Client>();
    second->send(request());
    SignWindow *secondWindow = nextWindow(firstWindow);
    QVERIFY(secondWindow);
    QTRY_VERIFY(!first.isConnected());
    QCOMPARE(timeLeft(*secondWindow), QString()); // as much as it takes

    auto *view = secondWindow->findChild<PageView *>();
    const QImage empty = view->grab().toImage();
    drawOn(secondWindow->pad());
    QVERIFY(view->grab().toImage() != empty);
    secondWindow->confirm();
    QCOMPARE(second->reply().value(QStringLiteral("status")).toString(), QStringLiteral("signed"));
    QVERIFY(!first.hasReply());
    QVERIFY(!shownWindow());

    second->send(request());
    QVERIFY(nextWindow());
    second.reset(); // takes its request along
    QTRY_VERIFY(!shownWindow());
    const QStringList written =
        QDir(m_folder->path()).entryList({QStringLiteral("*.pdf")}, QDir::Files | QDir::Hidden);
    QCOMPARE(written, QStringList({QStringLiteral("a-signed.pdf"), QStringLiteral("a.pdf")}));
}

void TestSignature::theServerUsesTheProgram()
{
    writeFile(QStringLiteral("strokes.json"), letterL().toJson());
    m_service.setProcessChannelMode(QProcess::ForwardedChannels);
    m_service.start(beside("elecsign"),
                    {QStringLiteral("--strokes"), inFolder(QStringLiteral("strokes.json"))});
    QVERIFY(m_service.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(inFolder(socketName)), 20000);

    auto *client = SignSouthInterface::instance();
    Messages replies(client);
    QVERIFY(client->start());
    const QString document = inFolder(QStringLiteral("a.pdf"));
    const auto location = QStringLiteral("1,40,60,100");
    client->DoGWQ_StartSign(document, inFolder(QStringLiteral("b.xml")), location,
                            QStringLiteral("1"), 60);
    const QJsonObject reply = QJsonDocument::fromJson(replies.next()).object();
    QCOMPARE(reply.value(QStringLiteral("status")).toString(), QStringLiteral("signed"));
    const QByteArray bytes = fileContent(QStringLiteral("a-signed.pdf"));
    QVERIFY(bytes.startsWith(pdf()));
    QVERIFY(QFile::exists(inFolder(QStringLiteral("a-signed.png"))));

    QVERIFY(client->start());
    client->DoGWQ_StartSignEx(document, {}, location, {}, 0);
    QVERIFY(replies.next().contains("a-signed-2.pdf")); // no file is overwritten
    QCOMPARE(fileContent(QStringLiteral("a-signed.pdf")), bytes);
    QVERIFY(!QFile::exists(inFolder(QStringLiteral("a-signed-2.png"))));
}

QTEST_MAIN(TestSignature)
#include "tst_signature.moc"
