// SPDX-License-Identifier: MIT
// The cost of a log line through the installed message handler, relative to a plain text stream.
#include "bench/ratios.h"
#include "log/qlog.h"
#include "tests/textstreamlog.h"

#include <QCoreApplication>
#include <QTemporaryDir>

namespace {

constexpr int MaxLogSize = 50 * 1024 * 1024;

// Of typical length.
QString commandLine()
{
    return QStringLiteral(
        "214 websocket_recv websocketservermanager \"bSaveJPG(/tmp/柜台,扫描1)\"");
}

void BM_textStream(benchmark::State &state)
{
    const QTemporaryDir folder;
    TextStreamLog log(folder.path(), MaxLogSize, &QDateTime::currentMSecsSinceEpoch);
    const QString line = commandLine();
    for (auto _ : state) {
        log.write(line);
    }
}
BENCHMARK(BM_textStream);

void BM_logLine(benchmark::State &state)
{
    const QTemporaryDir folder;
    QLog::instance()->setLogPath(folder.path());
    QLog::instance()->handler(QLog::LogToFile);
    const QtMessageHandler handler = qInstallMessageHandler(nullptr);
    const QMessageLogContext context;
    const QString line = commandLine();
    for (auto _ : state) {
        handler(QtDebugMsg, context, line);
    }
    QLog::instance()->handler({});
}
BENCHMARK(BM_logLine);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const RatioRun run(argc, argv);
    run.printRatio("log line: ours / text stream", "BM_logLine", "BM_textStream", 0.25);
}
