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

/// The extension for the name of a format; empty for a format that isn't supported.
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

namespace portable::api {

void iAutoScan_observr(QObject *receiver, const char *slot)
{
    Scanner::instance().observe(receiver, slot);
}

int iAutoScan(int mode, const char *directory, const char *prefix)
{
    if (mode == 0) {
        Scanner::instance().stop();
        return done;
    }
    if (mode < 0) {
        logFailure(__func__, QStringLiteral("%1 neither starts nor ends a scan").arg(mode));
        return failed;
    }
    return Scanner::instance().startAutomatic({pathOf(directory), pathOf(prefix)}) ? done : failed;
}

int iTimerScan(int intervalSeconds, const char *directory, const char *prefix, int shotCount)
{
    if (intervalSeconds == 0) {
        Scanner::instance().stop();
        return done;
    }
    if (intervalSeconds < 0 || shotCount < 0) {
        logFailure(__func__,
                   QStringLiteral("every %1 seconds, %2 times, makes no scan")
                       .arg(intervalSeconds)
                       .arg(shotCount));
        return failed;
    }
    return Scanner::instance().startTimed({pathOf(directory), pathOf(prefix)},
                                          std::chrono::seconds(intervalSeconds), shotCount)
        ? done
        : failed;
}

bool bBookScanner(const char *directory, const char *prefix, const char *formatOrNull)
{
    const QString folder = pathOf(directory);
    if (folder.isEmpty()) {
        Scanner::instance().stop();
        return true;
    }
    const QString extension = extensionOf(pathOf(formatOrNull));
    if (extension.isEmpty()) {
        return logFailure(__func__, QStringLiteral("the format is none of jpg, png, tif"));
    }
    return Scanner::instance().startBook({folder, pathOf(prefix), extension},
                                         CameraSet::instance().settings().bookMode());
}

} // namespace portable::api
