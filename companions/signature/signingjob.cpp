// SPDX-License-Identifier: MIT
#include "companions/signature/signingjob.h"

#include "companions/common/companionprogram.h"
#include "companions/signature/failure.h"
#include "companions/signature/newfiles.h"
#include "companions/signature/pagerenderer.h"
#include "companions/signature/pdfdocument.h"
#include "companions/signature/signaturepad.h"
#include "companions/signature/signwindow.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDebug>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QXmlStreamWriter>

#include <cmath>
#include <new>

namespace {

constexpr qint64 maxDocument = qint64(256) * 1024 * 1024; // bytes
constexpr int pictureWidth = 900; // pixels
constexpr auto privateFile = QFile::ReadOwner | QFile::WriteOwner; // handwriting is personal

QByteArray contentOf(const QString &path)
{
    const QFileInfo info(path);
    QFile file(path);
    if (!info.isFile() || info.size() > maxDocument) {
        throw SigningFailure{SigningFailure::NoDocument,
                             QStringLiteral("there is no file %1, or it is above 256 MB")
                                 .arg(info.absoluteFilePath())};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        throw SigningFailure{
            SigningFailure::NoDocument,
            QStringLiteral("can't read %1: %2").arg(info.absoluteFilePath(), file.errorString())};
    }
    return file.read(maxDocument);
}

/// Checked before the customer signs in vain.
void checkWritable(const QString &path)
{
    const QFileInfo info(path);
    const QFileInfo folder(info.path());
    if (info.fileName().isEmpty() || path.contains(QChar(0)) || (info.exists() && !info.isFile())
        || (info.isSymLink() && !info.exists())) {
        throw SigningFailure{SigningFailure::NotWritten, path + QStringLiteral(" names no file")};
    }
    if (!folder.isDir() || !folder.isWritable()) {
        throw SigningFailure{
            SigningFailure::NotWritten,
            QStringLiteral("nothing can be written into %1").arg(folder.absoluteFilePath())};
    }
}

void checkPlace(const QRectF &place, const QSizeF &page)
{
    constexpr double slack = 0.5; // points, for rounded numbers
    if (!QRectF(QPointF(0, 0), page).adjusted(-slack, -slack, slack, slack).contains(place)) {
        throw SigningFailure{
            SigningFailure::Place,
            QStringLiteral("the rectangle %1,%2 %3x%4 is not on the page, which has %5x%6 points")
                .arg(place.x())
                .arg(place.y())
                .arg(place.width())
                .arg(place.height())
                .arg(page.width())
                .arg(page.height())};
    }
}

/// Whether two sizes have the same aspect ratio.
bool isSameShape(const QSizeF &a, const QSizeF &b)
{
    return std::abs(a.width() * b.height() / (a.height() * b.width()) - 1) < 0.01;
}

QByteArray pngOf(const Ink &ink, double aspect)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    ink.image(QSize(pictureWidth, qRound(pictureWidth / aspect))).save(&buffer, "PNG");
    return png;
}

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

QString now()
{
    return QDateTime::currentDateTime()
        .toOffsetFromUtc(QDateTime::currentDateTime().offsetFromUtc())
        .toString(Qt::ISODate);
}

void writeFileElement(QXmlStreamWriter *xml, const QString &name, const QString &path,
                      const QByteArray &bytes)
{
    xml->writeEmptyElement(name);
    xml->writeAttribute(QStringLiteral("path"), QFileInfo(path).absoluteFilePath());
    xml->writeAttribute(QStringLiteral("bytes"), QString::number(bytes.size()));
    xml->writeAttribute(QStringLiteral("sha256"), sha256(bytes));
}

} // namespace

SigningJob::SigningJob(int type, const QByteArray &json, const std::optional<Ink> &script)
    : m_type(type)
    , m_json(json)
    , m_script(script)
{
    m_scriptTimer.setInterval(5);
    connect(&m_scriptTimer, &QTimer::timeout, this,
            [this] { playUpTo(double(m_scriptClock.elapsed()) / 1000); });
}

SigningJob::~SigningJob() = default;

void SigningJob::start()
{
    attempt([this] { open(); });
}

/// No exception may get past it, into the event loop.
void SigningJob::attempt(const std::function<void()> &step)
{
    try {
        step();
    } catch (const SigningFailure &failure) {
        fail(failure.code, failure.message);
    } catch (const std::bad_alloc &) {
        fail(SigningFailure::Broken, QStringLiteral("the document takes more memory than it may"));
    }
}

void SigningJob::stop()
{
    m_finished = true;
    m_scriptTimer.stop();
    if (m_window) {
        m_window->hide();
    }
}

void SigningJob::open()
{
    m_request.read(m_type, m_json);
    m_original = contentOf(m_request.pdfPath);
    m_document = std::make_unique<PdfDocument>(m_original);
    const QSizeF pageSize = m_document->pageSize(m_request.page);
    checkPlace(m_request.place, pageSize);
    // Fail now rather than after the customer has signed.
    m_document->withInk(m_request.page, m_request.inkPlace(), Ink());
    checkWritable(m_request.pdfPath);
    if (!m_request.xmlPath.isEmpty()) {
        checkWritable(m_request.xmlPath);
    }
    if (!m_script && !hasDisplay()) {
        throw SigningFailure{SigningFailure::NoDisplay,
                             QStringLiteral("there is no display to show the document on, and no "
                                            "file of strokes was given")};
    }

    m_renderer = std::make_unique<PageRenderer>(m_original);
    m_window = std::make_unique<SignWindow>(m_request, m_document->pageCount(), pageSize);
    connect(m_renderer.get(), &PageRenderer::rendered, this,
            [this](int page, const QImage &image) { attempt([&] { pageDrawn(page, image); }); });
    connect(m_renderer.get(), &PageRenderer::failed, this,
            [this](int, const QString &reason) { fail(SigningFailure::NotShown, reason); });
    connect(m_window.get(), &SignWindow::pageNeeded, m_renderer.get(), &PageRenderer::render);
    connect(m_window.get(), &SignWindow::confirmed, this, [this] {
        attempt([this] {
            finish(QStringLiteral("signed"), 0, QStringLiteral("signed"), writeSigned());
        });
    });
    connect(m_window.get(), &SignWindow::cancelled, this, [this] {
        finish(QStringLiteral("cancelled"), 1, QStringLiteral("the customer does not sign"));
    });
    connect(m_window.get(), &SignWindow::timedOut, this, [this] {
        finish(QStringLiteral("timeout"), 2, QStringLiteral("the customer has not signed in time"));
    });
    m_renderer->render(m_window->page());
}

void SigningJob::pageDrawn(int page, const QImage &image)
{
    if (m_finished) {
        return;
    }
    // pdftoppm and other viewers differ on a crop box that extends beyond the page.
    if (!isSameShape(m_document->pageSize(page), image.size())) {
        throw SigningFailure{
            SigningFailure::NotShown,
            QStringLiteral("the page's box is odd: it can't be shown where it will be signed")};
    }
    m_window->showPage(page, image);
    if (m_opened) {
        return;
    }
    m_opened = true; // the customer's time starts once there is a page to see
    m_window->open();
    if (m_script) {
        playScript();
    }
}

void SigningJob::playScript()
{
    m_scriptClock.start();
    m_scriptTimer.start();
}

/// Draws the script's points up to this time.
void SigningJob::playUpTo(double seconds)
{
    const QVector<Ink::Stroke> &strokes = m_script->strokes();
    SignaturePad *pad = m_window->pad();
    for (; m_scriptStroke < strokes.size(); ++m_scriptStroke, m_scriptPoint = 0) {
        const Ink::Stroke &stroke = strokes[m_scriptStroke];
        for (; m_scriptPoint < stroke.size(); ++m_scriptPoint) {
            if (stroke[m_scriptPoint].seconds > seconds) {
                return;
            }
            if (m_scriptPoint == 0) {
                pad->penDown(stroke.first());
            } else {
                pad->penMove(stroke[m_scriptPoint]);
            }
        }
        pad->penUp();
    }
    m_scriptTimer.stop();
    if (pad->holdsSignature()) {
        m_window->confirm();
    } else {
        m_window->cancel();
    }
}

/// \return members of the reply besides the status
QJsonObject SigningJob::writeSigned()
{
    const Ink &ink = m_window->pad()->ink();
    const QByteArray signedBytes = m_document->withInk(m_request.page, m_request.inkPlace(), ink);
    const QByteArray png = pngOf(ink, m_request.padAspect());
    const QFileInfo original(m_request.pdfPath);
    const QString base =
        original.path() + QLatin1Char('/') + original.completeBaseName() + QLatin1String("-signed");

    NewFiles files;
    QJsonObject details;
    const auto addPath = [&details](const char *key, const QString &path) {
        details.insert(QLatin1String(key), QFileInfo(path).absoluteFilePath());
    };
    const QString signedPath =
        files.write(base + QLatin1String(".pdf"), signedBytes, original.permissions());
    addPath("signedpath", signedPath);
    if (m_request.retain) {
        const QString kept = signedPath.chopped(4);
        addPath("pngpath", files.write(kept + QLatin1String(".png"), png, privateFile));
        addPath("strokespath",
                files.write(kept + QLatin1String(".json"), ink.toJson(), privateFile));
    }
    if (!m_request.xmlPath.isEmpty()) {
        addPath("recordpath",
                files.write(m_request.xmlPath, record(signedBytes, signedPath),
                            original.permissions()));
    }
    files.keep();
    details.insert(QStringLiteral("png"), QString::fromLatin1(png.toBase64()));
    return details;
}

QByteArray SigningJob::record(const QByteArray &signedBytes, const QString &signedPath) const
{
    QByteArray text;
    QXmlStreamWriter xml(&text);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("signing"));
    xml.writeAttribute(QStringLiteral("time"), now());
    xml.writeAttribute(QStringLiteral("by"),
                       m_script ? QStringLiteral("strokes file") : QStringLiteral("customer"));
    writeFileElement(&xml, QStringLiteral("original"), m_request.pdfPath, m_original);
    writeFileElement(&xml, QStringLiteral("signed"), signedPath, signedBytes);
    xml.writeEmptyElement(QStringLiteral("place"));
    xml.writeAttribute(QStringLiteral("page"), QString::number(m_request.page));
    const QJsonObject place = placeAsJson();
    for (const char *key : {"x", "y", "width", "height"}) {
        xml.writeAttribute(QLatin1String(key),
                           QString::number(place.value(QLatin1String(key)).toDouble()));
    }
    xml.writeEmptyElement(QStringLiteral("ink"));
    int points = 0;
    for (const Ink::Stroke &stroke : m_window->pad()->ink().strokes()) {
        points += stroke.size();
    }
    xml.writeAttribute(QStringLiteral("strokes"),
                       QString::number(m_window->pad()->ink().strokes().size()));
    xml.writeAttribute(QStringLiteral("points"), QString::number(points));
    xml.writeEndElement();
    xml.writeEndDocument();
    return text;
}

QJsonObject SigningJob::placeAsJson() const
{
    return {{QStringLiteral("x"), m_request.place.x()},
            {QStringLiteral("y"), m_request.place.y()},
            {QStringLiteral("width"), m_request.place.width()},
            {QStringLiteral("height"), m_request.place.height()}};
}

void SigningJob::fail(int code, const QString &message)
{
    finish(QStringLiteral("error"), code, message);
}

void SigningJob::finish(const QString &status, int code, const QString &message,
                        QJsonObject details)
{
    if (m_finished) {
        return;
    }
    stop();
    qInfo() << "request" << m_type << m_request.pdfPath << "-" << status << message;
    details.insert(QStringLiteral("service"), QStringLiteral("elecsign"));
    details.insert(QStringLiteral("status"), status);
    details.insert(QStringLiteral("code"), code);
    details.insert(QStringLiteral("message"), message);
    details.insert(QStringLiteral("time"), now());
    details.insert(QStringLiteral("pdfpath"), m_request.pdfPath);
    details.insert(QStringLiteral("page"), m_request.page);
    details.insert(QStringLiteral("place"), placeAsJson());
    Q_EMIT finished(details);
}
