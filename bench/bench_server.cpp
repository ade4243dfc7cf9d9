// SPDX-License-Identifier: MIT
//
// What the server costs as a whole: start, memory at rest, and the CPU time of a pushed frame of
// the 1920x1080 test scene with one page; with [library] process=own and inside, the two and a bare
// Qt server taking turns. Needs port 1818. Arguments: rounds and frames in each.

#include "bench/serverprocess.h"
#include "bench/table.h"

#include <QBuffer>
#include <QEventLoop>
#include <QImage>
#include <QTimer>

#include <chrono>
#include <map>
#include <thread>

namespace {

constexpr int usualRounds = 5;
constexpr int settleMs = 2000;
constexpr int firstFrames = 30;
constexpr int usualFrames = 240; // eight seconds
constexpr int compressions = 50;
constexpr std::chrono::milliseconds frameInterval{33};
constexpr int documentPages = 200;

/// What is measured of a server, by name; a value a round.
using Figures = std::map<std::string, std::vector<double>>;

void measureStart(ServerProcess &server, Figures &figures)
{
    server.call("sGetTempPath");
    figures["first answer, ms"].push_back(server.msSinceStart());
}

void measureMemory(const ServerProcess &server, Figures &figures)
{
    QEventLoop settled;
    QTimer::singleShot(settleMs, &settled, &QEventLoop::quit);
    settled.exec();
    double others = 0;
    for (const qint64 process : server.family()) {
        others += process == server.process() ? 0 : residentMiB(process);
    }
    figures["server, MiB"].push_back(residentMiB(server.process()));
    figures["device process, MiB"].push_back(others);
}

double cpuMsOf(const std::vector<qint64> &processes)
{
    double sum = 0;
    for (const qint64 process : processes) {
        sum += cpuMs(process);
    }
    return sum;
}

/**
 * CPU time of compressing a picture of the preview again, which is what can't be saved: as often as
 * the server does it. One after the other they would have the caches for themselves.
 */
double compressionMs(ServerProcess &server)
{
    std::string text;
    while (text.size() < 4096) { // until a frame
        if (!server.page.next(text, 1 << 24)) {
            fail("no frame");
        }
    }
    const QImage picture =
        QImage::fromData(QByteArray::fromBase64(QByteArray::fromStdString(text)), "JPG")
            .convertToFormat(QImage::Format_RGB32);
    std::clock_t used = 0;
    for (int i = 0; i < compressions; ++i) {
        std::this_thread::sleep_for(frameInterval);
        const std::clock_t before = std::clock();
        QBuffer file;
        file.open(QIODevice::WriteOnly);
        if (!picture.save(&file, "JPG")) {
            fail("can't compress");
        }
        used += std::clock() - before;
    }
    return double(used) * 1000 / CLOCKS_PER_SEC / compressions;
}

void measureFrames(ServerProcess &server, int frames, Figures &figures)
{
    if (!server.page.call("bStartPlay()", "BeginbStartPlaytrue")) {
        fail("no preview");
    }
    server.frames(firstFrames);
    const std::vector<qint64> all = server.family();
    const double before = cpuMsOf(all);
    const double beforeOwn = cpuMs(server.process());
    const double seconds = server.frames(frames);
    figures["CPU of a frame, ms"].push_back((cpuMsOf(all) - before) / frames);
    figures["CPU of a frame in the server, ms"].push_back((cpuMs(server.process()) - beforeOwn)
                                                          / frames);
    figures["frames a second"].push_back(frames / seconds);
    figures["compression, ms"].push_back(compressionMs(server));
}

/// The most memory that the device process has had, which isn't the server.
double peakOfDevicesMiB(const ServerProcess &server)
{
    double peak = 0;
    for (const qint64 process : server.family()) {
        peak = std::max(peak, process == server.process() ? 0 : peakMiB(process));
    }
    return peak;
}

/// A PDF of captures, beside the preview that they need.
void measureDocument(ServerProcess &server, const Product &product, Figures &figures)
{
    const auto call = [&server](const std::string &name, const std::string &arguments) {
        if (!server.page.call(name + '(' + arguments + ')', "Begin" + name + "true")) {
            fail("no PDF");
        }
    };
    figures["peak of the preview, MiB"].push_back(peakOfDevicesMiB(server));
    call("bSavePDFStart", product.folder().toStdString() + ",pages");
    for (int page = 0; page < documentPages; ++page) {
        call("bSavePDFColorPage", "");
    }
    call("bSavePDFEnd", "");
    figures["peak of a PDF, MiB"].push_back(peakOfDevicesMiB(server));
}

Figures measured(const Product &product, const char *mode, int frames, Figures figures)
{
    product.configure(mode);
    ServerProcess server(product.folder(), product.program());
    measureStart(server, figures);
    figures["first device answer, ms"].push_back(server.call("iGetRotate"));
    measureMemory(server, figures);
    measureFrames(server, frames, figures);
    measureDocument(server, product, figures);
    return figures;
}

Figures measuredBare(const Product &product, Figures figures)
{
    ServerProcess server(product.folder(),
                         QCoreApplication::applicationDirPath() + QStringLiteral("/bareserver"));
    measureStart(server, figures);
    measureMemory(server, figures);
    return figures;
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QCoreApplication application(argc, argv);
    const Product product;
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : usualRounds;
    const int frames = argc > 2 ? std::max(1, std::atoi(argv[2])) : usualFrames;
    Figures own;
    Figures inside;
    Figures bare;
    for (int i = 0; i < rounds; ++i) {
        own = measured(product, "own", frames, own);
        inside = measured(product, "inside", frames, inside);
        bare = measuredBare(product, bare);
    }
    std::printf("median of %-34d %8s %8s\n", rounds, "own", "inside");
    for (const auto &figure : own) {
        std::printf("%-44s %8.2f %8.2f\n", figure.first.c_str(), median(figure.second),
                    median(inside[figure.first]));
    }
    const auto of = [](Figures &figures, const char *name) { return median(figures[name]); };
    printRow("start to the first answer / bare Qt server", of(own, "first answer, ms"),
             of(bare, "first answer, ms"), "ms", "<= 1.5");
    printRow("server at rest / bare Qt server", of(own, "server, MiB"), of(bare, "server, MiB"),
             "MiB", "<= 45 MiB");
    printRow("device process at rest / bare Qt server", of(own, "device process, MiB"),
             of(bare, "server, MiB"), "MiB", "<= 60 MiB");
    printRow("CPU of a pushed frame: device process own / inside", of(own, "CPU of a frame, ms"),
             of(inside, "CPU of a frame, ms"), "ms", "<= 1.03");
    printRow("device process's peak: a PDF of 200 captures / the preview alone",
             of(own, "peak of a PDF, MiB"), of(own, "peak of the preview, MiB"), "MiB",
             "<= 60 MiB more");
    // Of the server alone: its device process makes the picture.
    printRow("CPU of a pushed frame in the server / Qt's compression of its picture",
             of(own, "CPU of a frame in the server, ms"), of(own, "compression, ms"), "ms",
             "<= 1.35");
    return 0;
}
