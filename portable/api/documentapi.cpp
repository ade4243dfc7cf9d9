// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/base/base64text.h"
#include "portable/base/deviceini.h"
#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inifile.h"
#include "portable/base/inputlimits.h"
#include "portable/camera/shot.h"
#include "portable/document/documentbuilder.h"
#include "portable/document/mergedimage.h"
#include "portable/document/ofddocument.h"
#include "portable/document/pageimage.h"
#include "portable/document/pdfdocument.h"

using portable::DocumentBuilder;
using portable::PageImage;
using portable::Shot;

namespace {

using MaybePage = std::optional<PageImage>;

DocumentBuilder &pdf()
{
    static DocumentBuilder document(QStringLiteral(".pdf"));
    return document;
}

/// As [documents] of devices.ini has it when the document is complete.
bool writeConfiguredPdf(const portable::PageSpool &pages, const QString &path, QString *error)
{
    const portable::IniFile ini(portable::deviceConfigPath());
    const bool isArchive = ini.isOn(QStringLiteral("documents/pdfa"));
    return portable::writePdf(
        pages, path, isArchive ? portable::PdfKind::Archive : portable::PdfKind::Plain, error);
}

DocumentBuilder &ofd()
{
    static DocumentBuilder document(QStringLiteral(".ofd"));
    return document;
}

DocumentBuilder &mergedPicture()
{
    static DocumentBuilder document(
        QStringLiteral(".jpg"), {portable::limits::documentPages, portable::limits::mergedBytes});
    return document;
}

// Pages of a capture.

MaybePage jpeg(const Shot &shot)
{
    return portable::jpegPage(shot.picture, shot.quality, shot.dpi);
}

MaybePage group4(const Shot &shot)
{
    return portable::group4Page(shot.picture, shot.dpi);
}

MaybePage bilevelPng(const Shot &shot)
{
    return portable::bilevelPngPage(shot.picture, shot.dpi);
}

MaybePage bgr(const Shot &shot)
{
    return portable::bgrPage(shot.picture, shot.dpi);
}

// Pages of an image file.

MaybePage jpegOf(const QByteArray &file, QString *error)
{
    const portable::CaptureSettings settings = portable::captureSettings();
    return portable::jpegPageOf(file, settings.quality, settings.dpi, error);
}

MaybePage group4Of(const QByteArray &file, QString *error)
{
    return portable::group4PageOf(file, portable::captureSettings().dpi, error);
}

bool addShot(const char *function, DocumentBuilder &document, MaybePage (*page)(const Shot &))
{
    return document.addPage(function, [page](QString *error) -> MaybePage {
        const Shot shot = portable::takeShot();
        if (shot.picture.empty()) {
            return {}; // the reason is in the log
        }
        MaybePage made = page(shot);
        if (!made) {
            portable::setError(QStringLiteral("the current picture can't be encoded"), error);
        }
        return made;
    });
}

bool addFile(const char *function, DocumentBuilder &document, const QString &path, float number,
             MaybePage (*page)(const QByteArray &, QString *))
{
    const auto make = [&](QString *error) -> MaybePage {
        if (path.isEmpty()) {
            portable::setError(QStringLiteral("it needs the path of an image"), error);
            return {};
        }
        const QByteArray file = portable::readWholeFile(path, portable::limits::pictureFile, error);
        MaybePage made = file.isNull() ? MaybePage() : page(file, error);
        if (!made) {
            portable::prefixError(path, error);
        }
        return made;
    };
    return document.addPage(function, make, number);
}

bool addBase64(const char *function, DocumentBuilder &document, const char *base64)
{
    return document.addPage(function, [base64](QString *error) -> MaybePage {
        const QByteArray file = portable::bytesOfBase64(base64, error);
        MaybePage made = file.isEmpty() ? MaybePage() : jpegOf(file, error);
        if (!made) {
            portable::prefixError(QStringLiteral("the image in base64"), error);
        }
        return made;
    });
}

} // namespace

namespace portable::api {

bool bSavePDFStart(const char *directory, const char *name)
{
    return pdf().start(__func__, directory, name, writeConfiguredPdf);
}

bool bSavePDFColorPage()
{
    return addShot(__func__, pdf(), jpeg);
}

bool bSavePDFBWPage()
{
    return addShot(__func__, pdf(), group4);
}

bool bSavePDFEnd()
{
    return pdf().end(__func__);
}

bool bAddPDFColorPage(const char *image, float number)
{
    return addFile(__func__, pdf(), QString::fromLocal8Bit(image), number, jpegOf);
}

bool bAddPDFBWPage(const char *image, float number)
{
    return addFile(__func__, pdf(), QString::fromLocal8Bit(image), number, group4Of);
}

bool bAddPDFBase64ColorPage(const char *base64)
{
    return addBase64(__func__, pdf(), base64);
}

bool bSaveOFDStart(const char *directory, const char *name)
{
    return ofd().start(__func__, directory, name, portable::writeOfd);
}

bool bSaveOFDColorPage()
{
    return addShot(__func__, ofd(), jpeg);
}

bool bSaveOFDBWPage()
{
    return addShot(__func__, ofd(), bilevelPng);
}

bool bSaveOFDEnd()
{
    return ofd().end(__func__);
}

bool bAddOFDPage(const char *image, float number)
{
    return addFile(__func__, ofd(), portable::pathOf(image), number, jpegOf);
}

bool bAddOFDBase64ColorPage(const char *base64)
{
    return addBase64(__func__, ofd(), base64);
}

bool bSaveMergeStart(const char *directory, const char *name, short direction, short gap,
                     qint64 maxWidth, qint64 maxHeight)
{
    portable::MergePlan plan;
    QString error;
    if (!portable::readMergePlan(direction, gap, maxWidth, maxHeight, &plan, &error)) {
        return portable::logFailure(__func__, error);
    }
    const auto write = [plan](const portable::PageSpool &pages, const QString &path, QString *why) {
        return portable::writeMergedImage(pages, plan, portable::captureSettings().quality, path,
                                          why);
    };
    return mergedPicture().start(__func__, directory, name, write);
}

bool bSaveMergePage()
{
    return addShot(__func__, mergedPicture(), bgr);
}

bool bSaveMergeEnd()
{
    return mergedPicture().end(__func__);
}

} // namespace portable::api
