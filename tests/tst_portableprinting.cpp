// SPDX-License-Identifier: MIT
// What reaches a print server, and what the log says when nothing does.
#include "devicelib/doccamera.h"
#include "tests/portabletest.h"

#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>
#include <cups/cups.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <thread>

namespace {

/// What came of a print job.
struct PrintedJob
{
    QByteArray document;
    QString title;
    int copies = 0;
    QString colorMode;
    QString media; ///< Empty unless the job names it.
};

/**
 * As much of a print server as a print job needs, on a thread of its own; libcups implements the
 * protocol. Its printers: "A5" (with that paper), "Full" (which accepts no jobs) and "Stopped"
 * (which doesn't report its paper).
 */
class PrintServer
{
public:
    explicit PrintServer(const char *defaultPrinter)
        : m_default(defaultPrinter)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *general = reinterpret_cast<sockaddr *>(&address);
        const bool ok = ::pipe(m_stop) == 0 && ::bind(m_socket, general, size) == 0
            && ::listen(m_socket, 5) == 0 && ::getsockname(m_socket, general, &size) == 0;
        m_name = ok ? "127.0.0.1:" + QByteArray::number(ntohs(address.sin_port)) : QByteArray();
        m_thread = std::thread(&PrintServer::run, this);
    }

    ~PrintServer()
    {
        ::close(m_stop[1]);
        m_thread.join();
        ::close(m_stop[0]);
        ::close(m_socket);
    }

    const char *name() const { return m_name.constData(); }

    /// What was printed; to ask when a print command has returned.
    QList<PrintedJob> jobs() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_jobs;
    }

private:
    /// Waits for a socket. \return false when the server is to stop
    bool isReady(int socket) const
    {
        pollfd waiting[] = {{socket, POLLIN, 0}, {m_stop[0], POLLIN, 0}};
        return ::poll(waiting, 2, -1) > 0 && waiting[1].revents == 0;
    }

    void run()
    {
        while (isReady(m_socket)) {
            http_t *client = httpAcceptConnection(m_socket, 1);
            while (isReady(httpGetFd(client)) && answer(client)) { }
            httpClose(client);
        }
    }

    bool answer(http_t *client)
    {
        char path[1024];
        if (httpReadRequest(client, path, sizeof path) != HTTP_STATE_POST) {
            return false;
        }
        while (httpUpdate(client) == HTTP_STATUS_CONTINUE) { }
        if (httpGetExpect(client) == HTTP_STATUS_CONTINUE) {
            httpWriteResponse(client, HTTP_STATUS_CONTINUE);
        }
        ipp_t *request = ippNew();
        while (ippRead(client, request) != IPP_STATE_DATA) { }
        QByteArray document;
        char buffer[65536];
        ssize_t count = 0;
        while ((count = httpRead2(client, buffer, sizeof buffer)) > 0) {
            document.append(buffer, int(count));
        }
        ipp_t *response = ippNewResponse(request);
        ippSetStatusCode(response, carryOut(request, document, response));
        httpClearFields(client);
        httpSetField(client, HTTP_FIELD_CONTENT_TYPE, "application/ipp");
        httpSetLength(client, ippLength(response));
        httpWriteResponse(client, HTTP_STATUS_OK);
        const bool ok = ippWrite(client, response) == IPP_STATE_DATA;
        httpFlushWrite(client);
        ippDelete(request);
        ippDelete(response);
        return ok;
    }

    ipp_status_t carryOut(ipp_t *request, const QByteArray &document, ipp_t *response)
    {
        const QString printer =
            text(request, "printer-uri", IPP_TAG_URI).section(QLatin1Char('/'), -1);
        switch (ippGetOperation(request)) {
        case IPP_OP_CUPS_GET_DEFAULT:
            if (m_default.isEmpty()) {
                return IPP_STATUS_ERROR_NOT_FOUND;
            }
            ippAddString(response, IPP_TAG_PRINTER, IPP_TAG_NAME, "printer-name", nullptr,
                         m_default.constData());
            return IPP_STATUS_OK;
        case IPP_OP_GET_PRINTER_ATTRIBUTES:
            return describe(printer, response);
        case IPP_OP_PRINT_JOB:
            return printer == QLatin1String("Full") ? IPP_STATUS_ERROR_NOT_ACCEPTING_JOBS
                                                    : takeJob(request, document, response);
        default:
            return IPP_STATUS_ERROR_OPERATION_NOT_SUPPORTED;
        }
    }

    static ipp_status_t describe(const QString &printer, ipp_t *response)
    {
        if (printer == QLatin1String("Stopped")) {
            ippAddInteger(response, IPP_TAG_PRINTER, IPP_TAG_ENUM, "printer-state",
                          IPP_PSTATE_STOPPED);
            ippAddString(response, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "printer-state-reasons",
                         nullptr, "media-jam-error");
            return IPP_STATUS_OK;
        }
        if (printer != QLatin1String("A5") && printer != QLatin1String("Full")) {
            return IPP_STATUS_ERROR_NOT_FOUND;
        }
        ipp_t *size = ippNew();
        ippAddInteger(size, IPP_TAG_ZERO, IPP_TAG_INTEGER, "x-dimension", 14800);
        ippAddInteger(size, IPP_TAG_ZERO, IPP_TAG_INTEGER, "y-dimension", 21000);
        ipp_t *media = ippNew();
        ippAddCollection(media, IPP_TAG_ZERO, "media-size", size);
        ippAddInteger(media, IPP_TAG_ZERO, IPP_TAG_INTEGER, "media-left-margin", 2400);
        ippAddInteger(media, IPP_TAG_ZERO, IPP_TAG_INTEGER, "media-top-margin", 1000);
        ippAddCollection(response, IPP_TAG_PRINTER, "media-col-default", media);
        ippAddInteger(response, IPP_TAG_PRINTER, IPP_TAG_ENUM, "printer-state", IPP_PSTATE_IDLE);
        ippDelete(size);
        ippDelete(media);
        return IPP_STATUS_OK;
    }

    ipp_status_t takeJob(ipp_t *request, const QByteArray &document, ipp_t *response)
    {
        PrintedJob job;
        job.document = document;
        job.title = text(request, "job-name", IPP_TAG_NAME);
        job.colorMode = text(request, "print-color-mode", IPP_TAG_KEYWORD);
        job.media = text(request, "media", IPP_TAG_KEYWORD);
        ipp_attribute_t *copies = ippFindAttribute(request, "copies", IPP_TAG_INTEGER);
        job.copies = copies ? ippGetInteger(copies, 0) : 0;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs << job;
        ippAddInteger(response, IPP_TAG_JOB, IPP_TAG_INTEGER, "job-id", m_jobs.size());
        return IPP_STATUS_OK;
    }

    static QString text(ipp_t *request, const char *name, ipp_tag_t type)
    {
        ipp_attribute_t *found = ippFindAttribute(request, name, type);
        return found ? QString::fromUtf8(ippGetString(found, 0, nullptr)) : QString();
    }

    const QByteArray m_default;
    const int m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_stop[2] = {-1, -1};
    QByteArray m_name;
    mutable std::mutex m_mutex;
    QList<PrintedJob> m_jobs; // guarded by m_mutex
    std::thread m_thread;
};

} // namespace

class TestPortablePrinting : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        qputenv("HOME", m_folder->path().toLocal8Bit()); // where CUPS seeks a user's default
        qunsetenv("LPDEST");
        qunsetenv("PRINTER");
    }

    void cleanup()
    {
        bStopPlay();
        PortableTest::cleanup();
        cupsSetServer(nullptr);
    }

    void pictureOnPaper()
    {
        if (QStandardPaths::findExecutable(line("pdftoppm")).isEmpty()) {
            QSKIP("the package poppler-utils is not installed");
        }
        const PrintServer server("A5");
        cupsSetServer(server.name());
        const QByteArray file = savedPicture("图.png");
        QVERIFY(bPrintImageFile(file.constData(), 0));
        QCOMPARE(m_log->takeLines(), QStringList(line("图.png: print job 1 on printer A5")));
        QVERIFY(bPrintImage(7, file.constData(), 1));
        QCOMPARE(server.jobs().size(), 2);
        const PrintedJob inColor = server.jobs().first();
        QCOMPARE(inColor.title, line("图.png"));
        QCOMPARE(inColor.copies, 1);
        QCOMPARE(inColor.colorMode, QString());
        QCOMPARE(inColor.media, QString());

        // 148 x 210 mm at ten pixels per millimeter. Margins are 24 mm on the left, 10 at the top
        // and 5 elsewhere. The picture, rotated clockwise, fills the height: 97.5 x 195 mm.
        const QImage paper = rasterized(inColor.document);
        QVERIFY2(qAbs(paper.width() - 1480) <= 2 && qAbs(paper.height() - 2100) <= 2,
                 qPrintable(line("%1 %2").arg(paper.width()).arg(paper.height())));
        const auto isNear = [](const QColor &a, const QColor &b) {
            return qAbs(a.red() - b.red()) < 12 && qAbs(a.green() - b.green()) < 12
                && qAbs(a.blue() - b.blue()) < 12;
        };
        const int left = 348, right = 1322, top = 100, bottom = 2050, inside = 12, outside = -12;
        for (const int by : {inside, outside}) {
            const bool isInside = by == inside;
            const auto isAt = [&](int x, int y, Qt::GlobalColor color) {
                return isNear(paper.pixelColor(x, y), isInside ? color : Qt::white);
            };
            QVERIFY(isAt(left + by, top + by, Qt::blue)); // was bottom left
            QVERIFY(isAt(right - by, top + by, Qt::red)); // was top left
            QVERIFY(isAt(right - by, bottom - by, Qt::green)); // was top right
            QVERIFY(isAt(left + by, bottom - by, Qt::yellow)); // was bottom right
        }

        const PrintedJob inGrey = server.jobs().last();
        QCOMPARE(inGrey.copies, 7);
        QCOMPARE(inGrey.colorMode, line("monochrome"));
        const QColor red = rasterized(inGrey.document).pixelColor(right - inside, top + inside);
        QVERIFY(isNear(red, QColor(76, 76, 76)));
    }

    void printerThatIsStoppedAndOfUnknownPaper()
    {
        const PrintServer server("");
        cupsSetServer(server.name());
        useIni("[printing]\nprinter=Stopped\n");
        QVERIFY(bPrintImageFile(savedPicture("a.png").constData(), 1));
        QCOMPARE(m_log->takeLines(),
                 QStringList(line("a.png: print job 1 on printer Stopped, which is stopped "
                                  "(media-jam-error): the job waits")));
        const PrintedJob job = server.jobs().value(0);
        QCOMPARE(job.media, line("iso_a4_210x297mm"));
        const QImage paper = rasterized(job.document);
        QVERIFY(qAbs(paper.width() - 2100) <= 2 && qAbs(paper.height() - 2970) <= 2);
        // Between margins of 5 mm the rotated picture is 143.5 x 287 mm.
        QVERIFY(paper.pixelColor(322, 100) == Qt::white && paper.pixelColor(342, 100) != Qt::white);
        QVERIFY(paper.pixelColor(900, 40) == Qt::white && paper.pixelColor(900, 60) != Qt::white);
    }

    void currentPicture()
    {
        const PrintServer server("");
        cupsSetServer(server.name());
        useIni("[cameras]\n1=scene\n[printing]\nprinter=A5\n");
        QVERIFY(!bPrint(1)); // without a camera
        QVERIFY(server.jobs().isEmpty());
        QVERIFY(bStartPlay(0));
        QVERIFY(bPrint(99));
        QCOMPARE(server.jobs().size(), 1);
        QCOMPARE(server.jobs().first().copies, 99);
        QVERIFY(server.jobs().first().document.startsWith("%PDF-"));
    }

    void whatCannotBePrinted()
    {
        const PrintServer server("");
        cupsSetServer(server.name());
        const QByteArray picture = savedPicture("a.png");
        const QByteArray absent = picture + "x";

        QVERIFY(!bPrintImageFile(picture.constData(), 1));
        expectLine("bPrintImageFile: a.png: there is no default printer");
        useIni("[printing]\nprinter=Nobody\n");
        QVERIFY(!bPrintImageFile(picture.constData(), 1));
        expectLine("bPrintImageFile: a.png: there is no printer \"Nobody\"");
        useIni("[printing]\nprinter=Full\n");
        QVERIFY(!bPrintImage(1, picture.constData(), 0));
        expectLine("bPrintImage: a.png: printer Full takes no job: ");
        useIni("[printing]\nprinter=A5\n");
        QVERIFY(!bPrintImageFile(absent.constData(), 1));
        expectLine("bPrintImageFile: " + absent + ": ");
        QVERIFY(!bPrintImage(1, m_folder->path().toLocal8Bit().constData(), 0));
        expectLine("bPrintImage: " + m_folder->path().toLocal8Bit() + ": ");
        QVERIFY(!bPrintImageFile(picture.constData(), 100));
        expectLine("bPrintImageFile: 100 copies");
        QVERIFY(!bPrintImage(-1, picture.constData(), 0));
        expectLine("bPrintImage: -1 copies");
        QVERIFY(!bPrintImage(1, picture.constData(), 2));
        expectLine("bPrintImage: there is no color mode 2");
        cupsSetServer("127.0.0.1:9");
        QVERIFY(!bPrintImageFile(picture.constData(), 1));
        expectLine("bPrintImageFile: a.png: no print server answers at 127.0.0.1: ");
        QVERIFY(server.jobs().isEmpty());
    }

private:
    /// 400 x 200: red, green, blue and yellow, as one reads.
    QByteArray savedPicture(const char *name) const
    {
        QImage picture(400, 200, QImage::Format_RGB32);
        QPainter painter(&picture);
        painter.fillRect(0, 0, 200, 100, Qt::red);
        painter.fillRect(200, 0, 200, 100, Qt::green);
        painter.fillRect(0, 100, 200, 100, Qt::blue);
        painter.fillRect(200, 100, 200, 100, Qt::yellow);
        painter.end();
        return picture.save(path(name)) ? utf8(name).bytes : QByteArray();
    }

    /// The only page of a PDF at 254 dpi, ten pixels per millimeter.
    QImage rasterized(const QByteArray &pdf) const
    {
        writeFile(path("job.pdf"), pdf);
        outputOf("pdftoppm", words("-r 254 -png -singlefile") << path("job.pdf") << path("page"));
        return QImage(path("page.png"));
    }

    /// The log has one new line, with this beginning.
    void expectLine(const QByteArray &begin)
    {
        const QStringList lines = m_log->takeLines();
        QVERIFY2(lines.size() == 1 && lines.first().startsWith(QString::fromUtf8(begin)),
                 qPrintable(lines.join(QLatin1Char('\n'))));
    }
};

QTEST_MAIN(TestPortablePrinting)
#include "tst_portableprinting.moc"
