// SPDX-License-Identifier: MIT
//
// The signature service: its frames, what it does to PDFs, and the program as the server meets it.

#include "companionclients/signsouthinterface.h"
#include "companions/common/requestserver.h"
#include "companions/signature/failure.h"
#include "companions/signature/pdfdocument.h"
#include "companions/signature/signaturepad.h"
#include "companions/signature/signwindow.h"
#include "tests/manualclock.h"
#include "tests/messages.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLocalSocket>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>

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

/// Runs a program to its end. \return its standard output and a line end; null when it failed
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

/// What a page of a PDF for the tests has beside its text.
struct PageParts
{
    QByteArray entries; ///< of the page's dictionary
    QByteArray content = "BT /F1 12 Tf 60 120 Td (Text) Tj ET 0.5 0 0 0.5 90 40 cm 2 0 0 2 0 0 cm";
    QByteArray contents = "5 0 R"; ///< the value of /Contents
};

/// One page of 300 x 200 points whose size, font and hidden layer are inherited; a classic table.
QByteArray pdf(const PageParts &parts = {})
{
    const QByteArrayList objects{
        "<< /Type /Catalog /Pages 2 0 R /OCProperties << /OCGs [ 6 0 R ] /D << /OFF [ 6 0 R ] >> "
        ">> >>",
        "<< /Type /Pages /Kids [ 4 0 R ] /Count 1 /MediaBox [ 0 0 300 200 ]"
        " /Resources << /Font << /F1 3 0 R >> /Properties << /Hidden 6 0 R >> >> >>",
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
    void oneInstance();
    void theScriptStartsOne();

    void requests_data();
    void requests();
    void inkOnAPage_data();
    void inkOnAPage();
    void documentsThatCantBeSigned_data();
    void documentsThatCantBeSigned();

    void confirmNeedsASignature();
    void oneFingerDraws();

    void service_data();
    void service();
    void serviceKeepsNothingOfAJobThatIsReplaced();

private:
    QString inFolder(const QString &name) const { return m_folder->filePath(name); }
    QByteArray fileContent(const QString &name) const;
    void startService(const QByteArray &strokes);

    QTemporaryDir m_around;
    std::unique_ptr<QTemporaryDir> m_folder;
    QProcess m_service;
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
    qputenv("TMPDIR", m_folder->path().toLocal8Bit()); // where local sockets lie
}

void TestSignature::cleanup()
{
    SignSouthInterface::instance()->stop();
    m_service.kill();
    m_service.waitForFinished();
}

QByteArray TestSignature::fileContent(const QString &name) const
{
    QFile file(inFolder(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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
    QTest::newRow("length above the limit")      << number(1) + number(16 * 1024 * 1024 + 1) << QByteArray()      << true;
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
    QTest::qWait(50);
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

void TestSignature::oneInstance()
{
    { // a socket file that a crash has left behind
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
    // Away again at the end: the server's client would start it in other tests, for good.
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
    const int code =
        failureCode([&] { request = SigningRequest::fromJson(1, QJsonDocument(object).toJson()); });
    QCOMPARE(code, place.isNull() ? int(SigningFailure::BadRequest) : 0);
    if (place.isNull()) {
        return;
    }
    QCOMPARE(request.place, place);
    QTEST(request.padAspect(), "aspect");
    QVERIFY(place.contains(request.inkPlace()));
    QCOMPARE(failureCode([] { SigningRequest::fromJson(1, "[]"); }),
             int(SigningFailure::BadRequest));
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
    QFile file(inFolder(QStringLiteral("signed.pdf")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(all);
    file.close();
    QVERIFY(!run(QStringLiteral("qpdf"), {QStringLiteral("--check"), file.fileName()}).isNull());

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

void TestSignature::confirmNeedsASignature()
{
    SigningRequest request =
        SigningRequest::fromJson(2, R"({"pdfpath":"a.pdf","location":"3,10,10,100","timeout":30})");
    request.pdfPath = QString(100, QChar(0x5408)); // takes no room from the time
    SignWindow window(request, 5, {300, 200});
    QSignalSpy wanted(&window, &SignWindow::pageWanted);
    QSignalSpy confirmed(&window, &SignWindow::confirmed);
    window.open();
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
    QCOMPARE(wanted.size(), 2);
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

/// \param strokes  an empty text: none are given
void TestSignature::startService(const QByteArray &strokes)
{
    QStringList arguments;
    if (!strokes.isEmpty()) {
        QFile file(inFolder(QStringLiteral("strokes.json")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(strokes);
        arguments << QStringLiteral("--strokes") << file.fileName();
    }
    QFile document(inFolder(QStringLiteral("a.pdf")));
    QVERIFY(document.open(QIODevice::WriteOnly));
    document.write(pdf());
    document.close();
    m_service.setProcessChannelMode(QProcess::ForwardedChannels);
    m_service.start(beside("elecsign"), arguments);
    QVERIFY(m_service.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(inFolder(socketName)), 20000);
}

void TestSignature::service_data()
{
    QTest::addColumn<QByteArray>("strokes");
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
    QTest::newRow("too late")      << QByteArray("[[[0.1,0.1,0],[0.9,0.9,3000]]]") << ours << place << record << QStringLiteral("timeout") << 2;
    QTest::newRow("bad location")  << signature << ours << QStringLiteral("1,2,3,x") << record << error << 10;
    QTest::newRow("no document")   << signature << QStringLiteral("none.pdf") << place << record << error << 11;
    QTest::newRow("off the page")  << signature << ours << QStringLiteral("1,250,60,100") << record << error << 14;
    QTest::newRow("a folder as record") << signature << ours << place << QStringLiteral(".") << error << 17;
    QTest::newRow("no folder for it") << signature << ours << place << QStringLiteral("none/b.xml") << error << 17;
    QTest::newRow("nobody to see") << QByteArray() << ours << place << record << error << 15;
    // clang-format on
}

void TestSignature::service()
{
    QFETCH(QByteArray, strokes);
    QFETCH(QString, document);
    QFETCH(QString, location);
    QFETCH(QString, record);
    startService(strokes);
    auto *client = SignSouthInterface::instance();
    Messages replies(client);
    QVERIFY(client->start());
    client->DoGWQ_StartSign(inFolder(document), inFolder(record), location, QStringLiteral("1"), 2);
    const QJsonObject reply = QJsonDocument::fromJson(replies.next()).object();
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
    QVERIFY(!QImage::fromData(png, "PNG").isNull());
    QCOMPARE(fileContent(QStringLiteral("a-signed.png")), png);
    QCOMPARE(Ink::fromJson(fileContent(QStringLiteral("a-signed.json"))).strokes().size(), 2);

    // Again: nothing is written over.
    QVERIFY(client->start());
    client->DoGWQ_StartSignEx(inFolder(document), {}, location, {}, 0);
    QVERIFY(replies.next().contains("a-signed-2.pdf"));
    QCOMPARE(fileContent(QStringLiteral("a-signed.pdf")), bytes);
    QVERIFY(!QFile::exists(inFolder(QStringLiteral("a-signed-2.png"))));
}

void TestSignature::serviceKeepsNothingOfAJobThatIsReplaced()
{
    startService("[[[0.1,0.1,0],[0.9,0.9,1.5]]]");
    const QByteArray request = R"({"pdfpath":")" + inFolder(QStringLiteral("a.pdf")).toUtf8()
        + R"(","location":"1,40,60,100"})";
    QLocalSocket first;
    QLocalSocket second;
    for (QLocalSocket *socket : {&first, &second}) {
        socket->connectToServer(socketName);
        QVERIFY(socket->waitForConnected());
        socket->write(number(1) + sized(request));
        QVERIFY(socket->waitForBytesWritten());
        QTest::qWait(300);
    }
    QTRY_COMPARE(first.state(), QLocalSocket::UnconnectedState);
    QTRY_VERIFY_WITH_TIMEOUT(second.bytesAvailable() > 104, 20000);
    QCOMPARE(first.bytesAvailable(), 0);
    const QStringList written =
        QDir(m_folder->path()).entryList({QStringLiteral("*.pdf")}, QDir::Files | QDir::Hidden);
    QCOMPARE(written, QStringList({QStringLiteral("a-signed.pdf"), QStringLiteral("a.pdf")}));
}

QTEST_MAIN(TestSignature)
#include "tst_signature.moc"
