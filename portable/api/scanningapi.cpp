// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/base/failure.h"
#include "portable/recording/scanner.h"

using portable::CameraSet;
using portable::logFailure;
using portable::pathOf;
using portable::ScanFiles;
using portable::Scanner;

namespace {

constexpr int done = 0;
constexpr int failed = -1;

/// The extension that a page asks for by any of its names; empty for one that we don't write.
QString extensionOf(const QString &format)
{
    const QString name = format.toLower();
    if (name.isEmpty() || name == QLatin1String("jpg") || name == QLatin1String("jpeg")) {
        return QStringLiteral("jpg");
    }
    if (name == QLatin1String("tif") || name == QLatin1String("tiff")) {
        return QStringLiteral("tif");
    }
    return name == QLatin1String("png") ? name : QString();
}

} // namespace

void iAutoScan_observr(QObject *receiver, const char *slot)
{
    Scanner::instance().observe(receiver, slot);
}

int iAutoScan(int number, const char *text1, const char *text2)
{
    if (number == 0) {
        Scanner::instance().stop();
        return done;
    }
    if (number < 0) {
        logFailure(__func__, QStringLiteral("%1 neither starts nor ends a scan").arg(number));
        return failed;
    }
    return Scanner::instance().startAutomatic({pathOf(text1), pathOf(text2)}) ? done : failed;
}

int iTimerScan(int number1, const char *text1, const char *text2, int number2)
{
    if (number1 == 0) {
        Scanner::instance().stop();
        return done;
    }
    if (number1 < 0 || number2 < 0) {
        logFailure(
            __func__,
            QStringLiteral("every %1 seconds, %2 times, makes no scan").arg(number1).arg(number2));
        return failed;
    }
    return Scanner::instance().startTimed({pathOf(text1), pathOf(text2)},
                                          std::chrono::seconds(number1), number2)
        ? done
        : failed;
}

bool bBookScanner(const char *t1, const char *t2, const char *t3OrNull)
{
    const QString directory = pathOf(t1);
    if (directory.isEmpty()) {
        Scanner::instance().stop();
        return true;
    }
    const QString extension = extensionOf(pathOf(t3OrNull));
    if (extension.isEmpty()) {
        return logFailure(__func__, QStringLiteral("the format is none of jpg, png, tif"));
    }
    return Scanner::instance().startBook({directory, pathOf(t2), extension},
                                         CameraSet::instance().settings().bookMode());
}
