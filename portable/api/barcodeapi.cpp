// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/camera/shot.h"
#include "portable/picture/barcodereader.h"
#include "portable/picture/picturereader.h"

using portable::logFailure;
using portable::prefixError;

namespace {

/// The codes in a picture as the interface returns them.
char *codesIn(const cv::Mat &picture, long kind = portable::anyBarcode)
{
    return portable::heapText(portable::readBarcodes(picture, kind).join(QLatin1Char('|')));
}

char *codesInFile(const char *function, const char *localPath, long kind)
{
    QString error;
    const QString path = QString::fromLocal8Bit(localPath);
    const cv::Mat picture = portable::readPicture(path, &error);
    if (picture.empty()) {
        prefixError(path, &error);
        logFailure(function, error);
        return nullptr;
    }
    return codesIn(picture, kind);
}

} // namespace

namespace portable::api {

char *sGetBarCode(const char *image)
{
    return codesInFile(__func__, image, portable::anyBarcode);
}

char *sGetBarCodeEx(long kind, const char *image)
{
    if (!portable::isBarcodeKind(kind)) {
        logFailure(__func__, QStringLiteral("there is no kind %1").arg(kind));
        return nullptr;
    }
    return codesInFile(__func__, image, kind);
}

char *sGetBarCodeOnline()
{
    const cv::Mat picture = portable::takePlainShot();
    return picture.empty() ? nullptr : codesIn(picture);
}

} // namespace portable::api
