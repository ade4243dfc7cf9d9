// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/barcodes.h"
#include "portable/failure.h"
#include "portable/picturefile.h"
#include "portable/shot.h"

#include <cstring>
#include <exception>

using portable::failed;

namespace {

/** The codes in a picture as the interface wants them. */
char *codesIn(const cv::Mat &picture, long kind = portable::anyBarcode)
{
    const QStringList texts = portable::readBarcodes(picture, kind);
    return ::strdup(texts.join(QLatin1Char('|')).toUtf8().constData());
}

/** Runs `read`, whose failure is an exception. \return null then, with a line in the log */
template <class Read> char *guarded(const char *function, Read read)
{
    try {
        return read();
    } catch (const std::exception &failure) { // OpenCV's and ZXing's, or too little memory
        failed(function, QString::fromLocal8Bit(failure.what()));
        return nullptr;
    }
}

char *codesInFile(const char *function, const char *localPath, long kind)
{
    return guarded(function, [&]() -> char * {
        const QString path = QString::fromLocal8Bit(localPath);
        QString error;
        const cv::Mat picture = portable::readPicture(path, &error);
        if (picture.empty()) {
            failed(function, path + QStringLiteral(": ") + error);
            return nullptr;
        }
        return codesIn(picture, kind);
    });
}

} // namespace

char *sGetBarCode(const char *image)
{
    return codesInFile(__func__, image, portable::anyBarcode);
}

char *sGetBarCodeEx(long kind, const char *image)
{
    if (!portable::isBarcodeKind(kind)) {
        failed(__func__, QStringLiteral("there is no kind %1").arg(kind));
        return nullptr;
    }
    return codesInFile(__func__, image, kind);
}

char *sGetBarCodeOnline()
{
    return guarded(__func__, []() -> char * {
        const cv::Mat picture = portable::takePlainShot();
        return picture.empty() ? nullptr : codesIn(picture);
    });
}
