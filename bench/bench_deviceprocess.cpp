// SPDX-License-Identifier: MIT
//
// What the device process costs: the same calls through the stub and in this process, side by side.

#include "bench/table.h"
#include "devicelib/doccamera.h"
#include "deviceprocess/stub/devicehost.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using deviceprocess::DeviceHost;

constexpr int calls = 20000;
constexpr int frames = 150; // five seconds

/// The functions looked at, through the stub or of the library in this process.
struct Functions
{
    decltype(&iGetRotate) getRotate;
    decltype(&bStartPlay) start;
    decltype(&bStopPlay) stop;
    decltype(&getVideoFrame) getFrame;
};

double microseconds(Clock::duration time)
{
    return std::chrono::duration<double, std::micro>(time).count();
}

/// CPU seconds of a process so far, all threads.
double cpuSeconds(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    long user = 0;
    long system = 0;
    const std::size_t behindName = text.rfind(')');
    if (behindName != std::string::npos) {
        std::sscanf(text.c_str() + behindName,
                    ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system);
    }
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

double residentMiB(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

double medianCall(const Functions &functions)
{
    std::vector<double> times;
    times.reserve(calls);
    for (int i = 0; i < calls; ++i) {
        const auto begin = Clock::now();
        functions.getRotate();
        times.push_back(microseconds(Clock::now() - begin));
    }
    std::nth_element(times.begin(), times.begin() + calls / 2, times.end());
    return times[calls / 2];
}

/// CPU milliseconds a frame, of this process and the device process together.
double cpuOfFrame(const Functions &functions)
{
    if (!functions.start(0)) {
        std::fputs("no camera\n", stderr);
        std::exit(1);
    }
    const auto used = [] {
        return cpuSeconds(getpid()) + cpuSeconds(DeviceHost::instance().processId());
    };
    QImage frame;
    for (int i = 0; i < 10; ++i) {
        functions.getFrame(frame);
    }
    const double before = used();
    unsigned sum = 0;
    for (int i = 0; i < frames; ++i) {
        functions.getFrame(frame);
        for (int y = 0; y < frame.height(); y += 8) { // looked at, as the encoder does
            sum += frame.constScanLine(y)[y % 64];
        }
    }
    const double after = used();
    frame = QImage();
    functions.stop();
    return (after - before) * 1000 / frames + (sum == 1 ? 1e-9 : 0);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("DEVICE_SIMULATION", "1"); // for a camera
    const auto begin = Clock::now();
    iGetRotate();
    const double start = microseconds(Clock::now() - begin) / 1000;
    const QGuiApplication application(argc, argv);
    iGetRotate();
    std::printf("start of the device process to its first answer: %.0f ms\n", start);
    std::printf("memory at rest: this process %.0f MiB, the device process %.0f MiB\n",
                residentMiB(getpid()), residentMiB(DeviceHost::instance().processId()));

    const std::string path =
        QCoreApplication::applicationDirPath().toStdString() + "/../libportabledoccamera.so";
    void *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (!library) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const auto find = [library](const char *name) { return dlsym(library, name); };
    const Functions inside{reinterpret_cast<decltype(&iGetRotate)>(find("iGetRotate")),
                           reinterpret_cast<decltype(&bStartPlay)>(find("bStartPlay")),
                           reinterpret_cast<decltype(&bStopPlay)>(find("bStopPlay")),
                           reinterpret_cast<decltype(&getVideoFrame)>(find("getVideoFrame"))};
    const Functions own{iGetRotate, bStartPlay, bStopPlay, getVideoFrame};

    const double callInside = medianCall(inside);
    const double callOwn = medianCall(own);
    printRow("a call: device process own / inside", callOwn, callInside, "us", "<= 60 us more");
    for (int i = 0; i < 3; ++i) {
        const double frameInside = cpuOfFrame(inside);
        const double frameOwn = cpuOfFrame(own);
        std::printf("CPU of a fetched 1920x1080 frame: inside %.2f ms, own process %.2f ms\n",
                    frameInside, frameOwn);
    }
    return 0;
}
