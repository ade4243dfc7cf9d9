// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/deviceini.h"
#include "portable/base/failure.h"
#include "portable/camera/shot.h"
#include "portable/picture/picturereader.h"
#include "portable/system/printer.h"

#include <QFileInfo>

using portable::logFailure;
using portable::PrintJob;

namespace {

/// Prints what `makeJob` puts into a job; 0 copies stand for 1.
template <class MakeJob> bool printCopies(const char *function, int copies, MakeJob makeJob)
{
    if (copies < 0 || copies > portable::maxCopies) {
        return logFailure(function, QStringLiteral("%1 copies are none or too many").arg(copies));
    }
    PrintJob job;
    job.copies = copies > 0 ? copies : 1;
    if (!makeJob(job)) {
        return false;
    }
    QString error;
    const QString printer = portable::deviceSetting(QStringLiteral("printing/printer"));
    return portable::print(job, printer, &error)
        || logFailure(function, job.title + QStringLiteral(": ") + error);
}

bool printFile(const char *function, const QString &path, int copies, bool isGrey)
{
    return printCopies(function, copies, [&](PrintJob &job) {
        QString error;
        job.picture = portable::readPicture(path, &error);
        job.title = QFileInfo(path).fileName();
        job.isGrey = isGrey;
        return !job.picture.empty() || logFailure(function, path + QStringLiteral(": ") + error);
    });
}

} // namespace

namespace portable::api {

bool bPrint(int copies)
{
    return printCopies(__func__, copies, [](PrintJob &job) {
        job.picture = portable::takeShot().picture;
        job.title = QStringLiteral("document camera");
        return !job.picture.empty(); // the reason is in the log already
    });
}

bool bPrintImage(short copies, const char *image, short colorMode)
{
    if (colorMode != 0 && colorMode != 1) {
        return logFailure(__func__, QStringLiteral("there is no color mode %1").arg(colorMode));
    }
    return printFile(__func__, QString::fromLocal8Bit(image), copies, colorMode == 1);
}

bool bPrintImageFile(const char *image, int copies)
{
    return printFile(__func__, QString::fromUtf8(image), copies, false);
}

} // namespace portable::api
