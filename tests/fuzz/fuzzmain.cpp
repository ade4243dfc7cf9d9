// SPDX-License-Identifier: MIT
#include "tests/fuzz/fuzztarget.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

/// Formats and forgets: log lines are made, but don't fill the terminal.
void dropMessage(QtMsgType, const QMessageLogContext &, const QString &) { }

[[noreturn]] void writeSeeds(const QString &target)
{
    int number = 0;
    for (const QByteArray &seed : fuzz::seeds()) {
        QFile file(QDir(target).filePath(QStringLiteral("seed%1").arg(++number)));
        if (!file.open(QIODevice::WriteOnly) || file.write(seed) != seed.size()) {
            std::fprintf(stderr, "can't write %s\n", qPrintable(file.fileName()));
            std::_Exit(EXIT_FAILURE);
        }
    }
    QDir(fuzz::folder()).removeRecursively();
    std::_Exit(EXIT_SUCCESS);
}

} // namespace

QString fuzz::folder()
{
    static QTemporaryDir folder;
    return folder.path();
}

void fuzz::require(bool holds, const char *what)
{
    if (!holds) {
        std::fprintf(stderr, "doesn't hold: %s\n", what);
        std::abort();
    }
}

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("OPENCV_LOG_LEVEL", "SILENT");
    qputenv("TMPDIR", QFile::encodeName(fuzz::folder()));
    static int argumentCount = 1; // libFuzzer's options are none of Qt's
    static auto &application = *new QApplication(argumentCount, *argv);
    Q_UNUSED(application)
    fuzz::prepare();
    const QByteArray seeds = qgetenv("FUZZ_SEEDS");
    if (!seeds.isEmpty()) {
        writeSeeds(QFile::decodeName(seeds));
    }
    qInstallMessageHandler(dropMessage);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::run(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    return 0;
}
