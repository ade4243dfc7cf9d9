// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/base/base64text.h"
#include "portable/base/failure.h"
#include "portable/camera/shot.h"
#include "portable/document/documentbuilder.h"
#include "portable/document/mergedimage.h"
#include "portable/document/ofddocument.h"
#include "portable/document/pageimage.h"
#include "portable/document/pdfdocument.h"

using portable::DocumentBuilder;
using portable::PageImage;

namespace {

using MaybePage = std::optional<PageImage>;

DocumentBuilder &pdf()
{
    static DocumentBuilder document(QStringLiteral(".pdf"));
    return document;
}

DocumentBuilder &ofd()
{
    static DocumentBuilder document(QStringLiteral(".ofd"));
    return document;
}

DocumentBuilder &mergedPicture()
{
    static DocumentBuilder document(QStringLiteral(".jpg"));
    return document;
}

// Pages, of a picture in memory and of an image file.

MaybePage jpeg(const cv::Mat &picture)
{
    return portable::jpegPage(picture, portable::shotQuality(), portable::shotDpi());
}

MaybePage group4(const cv::Mat &picture)
{
    return portable::group4Page(picture, portable::shotDpi());
}

MaybePage bilevelPng(const cv::Mat &picture)
{
    return portable::bilevelPngPage(picture, portable::shotDpi());
}

MaybePage bgr(const cv::Mat &picture)
{
    return portable::bgrPage(picture, portable::shotDpi());
}

MaybePage jpegOf(const QByteArray &file, QString *error)
{
    return portable::jpegPageOf(file, portable::shotQuality(), portable::shotDpi(), error);
}

MaybePage group4Of(const QByteArray &file, QString *error)
{
    return portable::group4PageOf(file, portable::shotDpi(), error);
}

// Where they come from.

bool addShot(const char *function, DocumentBuilder &document, MaybePage (*page)(const cv::Mat &))
{
    return document.addPage(function, [page](QString *error) -> MaybePage {
        const cv::Mat shot = portable::takeShot(); // which says in the log why there is none
        if (shot.empty()) {
            return {};
        }
        MaybePage made = page(shot);
        if (!made) {
            *error = QStringLiteral("the current picture can't be encoded");
        }
        return made;
    });
}

bool addFile(const char *function, DocumentBuilder &document, const QString &path, float number,
             MaybePage (*page)(const QByteArray &, QString *))
{
    const auto make = [&](QString *error) -> MaybePage {
        if (path.isEmpty()) {
            *error = QStringLiteral("it needs the path of an image");
            return {};
        }
        const QByteArray file = portable::readWholeFile(path, error);
        if (file.isNull()) {
            return {};
        }
        MaybePage made = page(file, error);
        if (!made) {
            *error = path + QStringLiteral(": ") + *error;
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
            *error = QStringLiteral("the image in base64: ") + *error;
        }
        return made;
    });
}

} // namespace

bool bSavePDFStart(const char *p1, const char *p2)
{
    return pdf().start(__func__, p1, p2, portable::writePdf);
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

bool bSaveOFDStart(const char *p1, const char *p2)
{
    return ofd().start(__func__, p1, p2, portable::writeOfd);
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

bool bSaveMergeStart(const char *p1, const char *p2, short p3, short p4, qint64 p5, qint64 p6)
{
    portable::MergePlan plan;
    QString error;
    if (!portable::readMergePlan(p3, p4, p5, p6, &plan, &error)) {
        return portable::logFailure(__func__, error);
    }
    const auto write = [plan](const portable::PageSpool &pages, const QString &path, QString *why) {
        return portable::writeMergedImage(pages, plan, portable::shotQuality(), path, why);
    };
    return mergedPicture().start(__func__, p1, p2, write);
}

bool bSaveMergePage()
{
    return addShot(__func__, mergedPicture(), bgr);
}

bool bSaveMergeEnd()
{
    return mergedPicture().end(__func__);
}
