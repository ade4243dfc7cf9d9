// SPDX-License-Identifier: MIT
#include "portable/base/failure.h"
#include "portable/system/transfermodule.h"

#include <QUrl>
#include <cups/cups.h>

#include <cstring>
#include <iterator>
#include <memory>

namespace portable {

namespace {

constexpr int connectTimeoutMs = 3000;
constexpr double responseTimeoutSeconds = 5; // for each of a job's few requests

struct Closer
{
    void operator()(http_t *server) const { httpClose(server); }
    void operator()(ipp_t *answer) const { ippDelete(answer); }
};
using Server = std::unique_ptr<http_t, Closer>;
using Answer = std::unique_ptr<ipp_t, Closer>;

/// A printer as described by the print server.
struct Printer
{
    QByteArray name;
    Sheet sheet; // its default paper
    bool isSheetKnown = false; // if not, A4 is assumed
    QString warning; // why a queued job will have to wait; else empty
};

/// CUPS's message for the last failure on this thread.
QString lastError()
{
    const char *text = cupsLastErrorString();
    return std::strcmp(text, std::strerror(0)) == 0
        ? QStringLiteral("its answer can't be understood")
        : QString::fromUtf8(text);
}

Server connectToServer(QString *error)
{
    // Otherwise CUPS asks for passwords on the terminal.
    cupsSetPasswordCB2([](const char *, http_t *, const char *, const char *,
                          void *) -> const char * { return nullptr; },
                       nullptr);
    Server server(httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1,
                               connectTimeoutMs, nullptr));
    if (!server) {
        *error = QStringLiteral("no print server answers at %1: is CUPS installed and running?")
                     .arg(QString::fromUtf8(cupsServer()));
        return nullptr;
    }
    // The callback is called on timeout; 0 gives up.
    httpSetTimeout(
        server.get(), responseTimeoutSeconds, [](http_t *, void *) { return 0; }, nullptr);
    return server;
}

/// The user's default printer, else the server's; empty, with the reason, when there is none.
QByteArray defaultPrinter(http_t *server, QString *error)
{
    QByteArray name = cupsGetDefault2(server);
    if (!name.isEmpty()) {
        return name;
    }
    *error = cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND
        ? QStringLiteral("there is no default printer; set one (lpadmin -d NAME) or name one in "
                         "devices.ini, [printing] printer=NAME")
        : QStringLiteral("the print server doesn't report its default printer: ") + lastError();
    return {};
}

QByteArray resourceOf(const QByteArray &printer)
{
    return "/printers/" + QUrl::toPercentEncoding(QString::fromUtf8(printer));
}

/// A new request for a printer (RFC 8011).
ipp_t *newRequest(ipp_op_t operation, const QByteArray &printer)
{
    const QByteArray uri = "ipp://localhost" + resourceOf(printer);
    ipp_t *request = ippNewRequest(operation);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri.constData());
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr,
                 cupsUser());
    return request;
}

/// Reads "media-col-default" (PWG 5100.7). \return false when it is missing or unusable
bool readSheet(ipp_t *answer, Sheet *sheet)
{
    const auto collection = [](ipp_t *of, const char *name) {
        ipp_attribute_t *found =
            of ? ippFindAttribute(of, name, IPP_TAG_BEGIN_COLLECTION) : nullptr;
        return found ? ippGetCollection(found, 0) : nullptr;
    };
    const auto millimeters = [](ipp_t *of, const char *name) {
        ipp_attribute_t *found = of ? ippFindAttribute(of, name, IPP_TAG_INTEGER) : nullptr;
        return found ? ippGetInteger(found, 0) / 100.0 : 0;
    };
    ipp_t *media = collection(answer, "media-col-default");
    ipp_t *size = collection(media, "media-size");
    Sheet read;
    read.size = {millimeters(size, "x-dimension"), millimeters(size, "y-dimension")};
    read.margins = {millimeters(media, "media-left-margin"), millimeters(media, "media-top-margin"),
                    millimeters(media, "media-right-margin"),
                    millimeters(media, "media-bottom-margin")};
    if (printableArea(read).isEmpty()) {
        return false;
    }
    *sheet = read;
    return true;
}

QString readWarning(ipp_t *answer)
{
    ipp_attribute_t *state = ippFindAttribute(answer, "printer-state", IPP_TAG_ENUM);
    if (!state || ippGetInteger(state, 0) != IPP_PSTATE_STOPPED) {
        return {};
    }
    ipp_attribute_t *reason = ippFindAttribute(answer, "printer-state-reasons", IPP_TAG_KEYWORD);
    return QStringLiteral(", which is stopped (%1): the job waits")
        .arg(QString::fromUtf8(reason ? ippGetString(reason, 0, nullptr) : "unknown reason"));
}

/// Queries a printer. \return a printer without name, with the reason, when it can't be used
Printer findPrinter(http_t *server, const QByteArray &name, QString *error)
{
    const char *const wanted[] = {"media-col-default", "printer-state", "printer-state-reasons"};
    ipp_t *request = newRequest(IPP_OP_GET_PRINTER_ATTRIBUTES, name);
    ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                  int(std::size(wanted)), nullptr, wanted);
    const Answer answer(cupsDoRequest(server, request, "/"));
    if (!answer || cupsLastError() >= IPP_STATUS_ERROR_BAD_REQUEST) {
        *error = cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND
            ? QStringLiteral("there is no printer \"%1\"").arg(QString::fromUtf8(name))
            : QStringLiteral("printer %1 can't be queried: ").arg(QString::fromUtf8(name))
                + lastError();
        return {};
    }
    Printer printer;
    printer.name = name;
    printer.isSheetKnown = readSheet(answer.get(), &printer.sheet);
    printer.warning = readWarning(answer.get());
    return printer;
}

/**
 * Queues a page. Doesn't use cupsCreateJob() and the like, which may reconnect internally without
 * our timeout. \return the job number, 0 on failure
 */
int queue(http_t *server, const Printer &printer, const PrintJob &job, const QByteArray &page)
{
    ipp_t *request = newRequest(IPP_OP_PRINT_JOB, printer.name);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr,
                 job.title.toUtf8().constData());
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr,
                 CUPS_FORMAT_PDF);
    ippAddInteger(request, IPP_TAG_JOB, IPP_TAG_INTEGER, "copies", job.copies);
    if (!printer.isSheetKnown) {
        ippAddString(request, IPP_TAG_JOB, IPP_TAG_KEYWORD, "media", nullptr, "iso_a4_210x297mm");
    }
    if (job.isGrey) {
        ippAddString(request, IPP_TAG_JOB, IPP_TAG_KEYWORD, "print-color-mode", nullptr,
                     "monochrome");
    }
    const QByteArray resource = resourceOf(printer.name);
    const size_t length = ippLength(request) + size_t(page.size());
    const bool isBegun =
        cupsSendRequest(server, request, resource.constData(), length) == HTTP_STATUS_CONTINUE;
    ippDelete(request);
    if (isBegun) { // may fail when the server refuses early; its response then has the reason
        cupsWriteRequestData(server, page.constData(), size_t(page.size()));
    }
    const Answer answer(isBegun ? cupsGetResponse(server, resource.constData()) : nullptr);
    ipp_attribute_t *number =
        answer ? ippFindAttribute(answer.get(), "job-id", IPP_TAG_INTEGER) : nullptr;
    return number && cupsLastError() < IPP_STATUS_ERROR_BAD_REQUEST ? ippGetInteger(number, 0) : 0;
}

} // namespace

bool printByCups(const PrintJob &job, const QString &printerName, MakePage makePage, QString *error)
{
    const Server server = connectToServer(error);
    if (!server) {
        return false;
    }
    const QByteArray name =
        printerName.isEmpty() ? defaultPrinter(server.get(), error) : printerName.toUtf8();
    if (name.isEmpty()) {
        return false;
    }
    const Printer printer = findPrinter(server.get(), name, error);
    if (printer.name.isEmpty()) {
        return false;
    }
    const int number = queue(server.get(), printer, job, makePage(job, printer.sheet));
    if (number == 0) {
        *error =
            QStringLiteral("printer %1 takes no job: ").arg(QString::fromUtf8(name)) + lastError();
        return false;
    }
    logInfo() << job.title + QStringLiteral(": print job") << number << "on printer"
              << QString::fromUtf8(name) + printer.warning;
    return true;
}

} // namespace portable
