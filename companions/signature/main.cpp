// SPDX-License-Identifier: MIT
//
// The signature service.

#include "base/datafolder.h"
#include "base/memorylimit.h"
#include "companions/common/companionprogram.h"
#include "companions/signature/signatureservice.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDebug>
#include <QDir>
#include <QFile>

namespace {

constexpr rlim_t memoryLimit = rlim_t(3) << 30; // bytes; some documents unpack endlessly

QString strokesFile()
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The signature service, see docs/signature.md."));
    parser.addHelpOption();
    const QCommandLineOption strokes(
        QStringLiteral("strokes"),
        QStringLiteral("Sign with the strokes in this file instead of a customer's, for tests. The "
                       "environment variable ELECSIGN_STROKES does the same."),
        QStringLiteral("file"), qEnvironmentVariable("ELECSIGN_STROKES"));
    parser.addOption(strokes);
    parser.process(*QCoreApplication::instance());
    return parser.value(strokes);
}

/// \throws QString
std::optional<Ink> script(const QString &path)
{
    if (path.isEmpty()) {
        return {};
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw file.errorString();
    }
    return Ink::fromJson(file.readAll());
}

} // namespace

int main(int argc, char *argv[])
{
    limitMemory(memoryLimit);
    prepareCompanion();
    QApplication application(argc, argv);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    const QString strokes = strokesFile();
    try {
        SignatureService service(script(strokes));
        QDir::setCurrent(base::dataFolder()); // requests may name files relative to it
        return runCompanion(service.start());
    } catch (const QString &error) {
        qCritical() << "the strokes file" << strokes << "-" << error;
        return 1;
    }
}
