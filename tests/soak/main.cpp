// SPDX-License-Identifier: MIT
//
// Runs the server for a long time under many clients and everything that goes wrong on a terminal,
// and says what it used and what it lost. See scripts/soak.sh.

#include "tests/soak/serverprocess.h"
#include "tests/soak/soakclient.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr std::uint16_t port = 1818;
constexpr int commanderCount = 20;
constexpr int watcherCount = 179;
constexpr int churnCount = 5; ///< Clients that leave and come at once.
constexpr auto commandPause = milliseconds(200);
constexpr auto replyTimeout = seconds(60);

double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// A client that sends commands, one at a time, and waits for each reply.
struct Commander
{
    std::unique_ptr<SoakClient> client;
    std::string awaited; ///< Name of the command; empty when none is under way.
    Clock::time_point sent;
};

/// Something that goes wrong every `period`, for `length`.
struct Fault
{
    const char *name;
    double first; ///< All in minutes of a run of an hour; shorter runs shorten all alike.
    double period;
    seconds length;
    std::function<void()> begin;
    std::function<void()> end;
    Clock::time_point next{};
    bool isOn = false;
};

class Soak
{
public:
    Soak(const std::string &folder, double minutes)
        : m_folder(folder)
        , m_minutes(minutes)
        , m_server(folder)
    {
    }

    int run();

private:
    bool waitForServer();
    Usage usageWithoutClients();
    void makePictures() const;
    void open();
    void closeAll();
    void poll(milliseconds limit);
    void readAll();
    void takeReply(Commander &commander, const Message &message);
    void sendCommands();
    std::string nextCommand();
    void churn();
    void keepPreviewOn();
    void countFrames();
    void sample();
    void runFaults();
    std::vector<Fault> faults();
    void fillDisk();
    bool hasOwnFileSystem() const;
    double slopePerHour() const;
    void print(const char *when, const Usage &usage) const;
    int judge(const Usage &before, const Usage &after) const;

    const std::string m_folder;
    const double m_minutes;
    ServerProcess m_server;
    std::mt19937 m_random{1};
    Clock::time_point m_begin = Clock::now();
    std::vector<Commander> m_commanders;
    std::vector<std::unique_ptr<SoakClient>> m_watchers;
    std::unique_ptr<SoakClient> m_deaf; ///< Never reads.
    std::vector<Fault> m_faults;

    std::uint64_t m_sent = 0;
    std::uint64_t m_lost = 0;
    std::set<std::string> m_filesBefore;
    std::vector<double> m_replyMs;
    Clock::time_point m_lastFrame{};
    Clock::time_point m_disturbed{}; ///< When the preview was last interrupted on purpose.
    Clock::time_point m_secondBegin{};
    Clock::time_point m_nextChurn{};
    Clock::time_point m_nextSample{};
    Clock::time_point m_nextStart{};
    int m_frames = 0;
    int m_deafEnds = 0;
    std::vector<int> m_frameRates;
    std::vector<std::pair<double, Usage>> m_samples; ///< Hours since the start, usage.
};

bool Soak::waitForServer()
{
    for (int i = 0; i < 100 && m_server.isRunning(); ++i) {
        if (SoakClient(port).isOpen()) {
            return true;
        }
        std::this_thread::sleep_for(milliseconds(300));
    }
    return false;
}

void Soak::open()
{
    for (int i = 0; i < commanderCount; ++i) {
        m_commanders.push_back({std::make_unique<SoakClient>(port), {}, {}});
    }
    for (int i = 0; i < watcherCount; ++i) {
        m_watchers.push_back(std::make_unique<SoakClient>(port));
    }
    m_deaf = std::make_unique<SoakClient>(port);
}

void Soak::closeAll()
{
    m_commanders.clear();
    m_watchers.clear();
    m_deaf.reset();
}

/// What the server uses at rest, everything that is made once having been made: a companion that
/// was killed and its connection, too. Free memory goes back to the system once a minute.
Usage Soak::usageWithoutClients()
{
    closeAll();
    {
        SoakClient client(port);
        client.send("GWQ_CallNumber(no=12)");
        std::this_thread::sleep_for(seconds(15));
    }
    std::this_thread::sleep_for(seconds(m_minutes < 30 ? 5 : 65));
    return m_server.usage();
}

void Soak::takeReply(Commander &commander, const Message &message)
{
    if (commander.awaited.empty() || message.head.rfind("Begin" + commander.awaited, 0) != 0) {
        return; // a pushed text, or the camera's own answers, which go to everybody
    }
    m_replyMs.push_back(secondsSince(commander.sent) * 1000);
    commander.awaited.clear();
}

void Soak::readAll()
{
    for (Commander &commander : m_commanders) {
        commander.client->read([&](const Message &message) { takeReply(commander, message); });
    }
    bool isFirst = true;
    for (const auto &watcher : m_watchers) {
        watcher->read([&](const Message &message) {
            if (message.isFrame && isFirst) {
                ++m_frames;
                m_lastFrame = Clock::now();
            }
        });
        isFirst = false;
    }
}

void Soak::poll(milliseconds limit)
{
    std::vector<pollfd> waiting;
    for (const Commander &commander : m_commanders) {
        waiting.push_back({commander.client->socket(), POLLIN, 0});
    }
    for (const auto &watcher : m_watchers) {
        waiting.push_back({watcher->socket(), POLLIN, 0});
    }
    if (::poll(waiting.data(), waiting.size(), int(limit.count())) > 0) {
        readAll();
    }
}

/// What the camera shows: pictures with gradients and an edge, so that their JPEGs are of usual
/// size.
void Soak::makePictures() const
{
    constexpr int width = 1280;
    constexpr int height = 720;
    for (int number = 1; number <= 3; ++number) {
        std::ofstream file(m_folder + "/pictures/" + std::to_string(number) + ".ppm",
                           std::ios::binary);
        file << "P6 " << width << ' ' << height << " 255\n";
        for (int i = 0; i < width * height; ++i) {
            const int x = i % width;
            const int y = i / width;
            file << char(x / 5) << char(y / 3)
                 << char((x / 40 + y / 40) % 2 == 0 ? 40 * number : 255);
        }
    }
}

/// Commands that are answered at once, to the client that asked.
std::string Soak::nextCommand()
{
    const std::string file = m_folder + "/pictures/1.ppm";
    const std::string out = m_folder + "/out";
    const std::array<std::string, 24> commands = {
        "iGetRotate()",
        "iGetFlip()",
        "lGetImageAreaX1()",
        "vSetBrightness(10)",
        "vSetImageQuality(60)",
        "vGetDPI()",
        "getVersion()",
        "version()",
        "sGetTempPath()",
        "iGetResolutionX(1)",
        "getAllResolutions(1)",
        "bGetPreviewEnable()",
        "isRecording()",
        "bFileIsExist(" + file + ")",
        "bDirIsExist(" + m_folder + ")",
        "sGetAllFormatFiles(" + out + ",jpg)",
        "bSaveJPG(" + out + ",soak" + std::to_string(m_random() % 20) + ")",
        "bSavePDFStart(" + out + ",soak)",
        "bSavePDFColorPage()",
        "bSavePDFEnd()",
        "Base64Encode(" + file + ")",
        "bCopyFile(" + file + "," + out + "/copy.ppm)",
        "bDeleteFileForever(" + out + "/copy.ppm)",
        "GWQ_CallNumber(no=12)",
    };
    // The companions are slow to start, and the server waits for them: now and then.
    const bool isCompanions = m_random() % 500 == 0;
    return isCompanions ? commands.back() : commands[m_random() % (commands.size() - 1)];
}

void Soak::sendCommands()
{
    const auto now = Clock::now();
    for (Commander &commander : m_commanders) {
        if (!commander.client->isOpen()) {
            std::printf("%.0f s: a client that commands was disconnected\n", secondsSince(m_begin));
            m_lost += commander.awaited.empty() ? 0 : 1;
            commander = {std::make_unique<SoakClient>(port), {}, now};
        }
        if (!commander.awaited.empty() && now - commander.sent > replyTimeout) {
            std::printf("%.0f s: no reply to %s\n", secondsSince(m_begin),
                        commander.awaited.c_str());
            ++m_lost;
            commander.awaited.clear();
        }
        if (commander.awaited.empty() && now - commander.sent > commandPause) {
            const std::string command = nextCommand();
            commander.awaited = command.substr(0, command.find('('));
            commander.sent = now;
            ++m_sent;
            commander.client->send(command);
        }
    }
}

/// Clients leave, half of them by a reset, and others come. That stops everybody's preview.
void Soak::churn()
{
    if (Clock::now() < m_nextChurn) {
        return;
    }
    m_nextChurn = Clock::now() + seconds(10);
    m_disturbed = Clock::now();
    for (int i = 0; i < churnCount; ++i) {
        auto &watcher = m_watchers[1 + m_random() % (m_watchers.size() - 1)];
        watcher->close(m_random() % 2 == 0);
        watcher = std::make_unique<SoakClient>(port);
    }
    pollfd deaf{m_deaf->socket(), POLLRDHUP, 0};
    if (!m_deaf->isOpen() || ::poll(&deaf, 1, 0) > 0) { // the server has had enough of it
        ++m_deafEnds;
        m_deaf = std::make_unique<SoakClient>(port);
    }
    m_deaf->send("Base64Encode(" + m_folder + "/pictures/1.ppm)");
}

void Soak::keepPreviewOn()
{
    const auto now = Clock::now();
    if (now - m_lastFrame > milliseconds(500) && now > m_nextStart) {
        m_nextStart = now + seconds(2);
        m_disturbed = now;
        m_commanders.front().client->send("bStartPlay()");
    }
}

/// Counts the frames of each second in which nothing interrupted the preview.
void Soak::countFrames()
{
    const auto now = Clock::now();
    if (now - m_secondBegin < seconds(1)) {
        return;
    }
    const bool isQuiet = m_secondBegin - m_disturbed > milliseconds(1500)
        && std::none_of(m_faults.begin(), m_faults.end(),
                        [](const Fault &fault) { return fault.isOn; });
    if (isQuiet) {
        m_frameRates.push_back(m_frames);
    }
    m_frames = 0;
    m_secondBegin = now;
}

void Soak::sample()
{
    if (Clock::now() < m_nextSample) {
        return;
    }
    m_nextSample = Clock::now() + seconds(10);
    m_samples.emplace_back(secondsSince(m_begin) / 3600, m_server.usage());
}

/// Only where that fills nobody else's disk: the folder is a file system of its own.
bool Soak::hasOwnFileSystem() const
{
    std::ifstream mounts("/proc/self/mounts");
    for (std::string device, where, rest; mounts >> device >> where; std::getline(mounts, rest)) {
        if (where == m_folder) {
            return true;
        }
    }
    return false;
}

void Soak::fillDisk()
{
    std::ofstream filler(m_folder + "/filler", std::ios::binary);
    const std::vector<char> block(1 << 20, 'x');
    while (filler.write(block.data(), std::streamsize(block.size())).flush()) { }
}

std::vector<Fault> Soak::faults()
{
    const fs::path pictures = m_folder + "/pictures";
    const fs::path away = m_folder + "/pictures-away";
    std::vector<Fault> list;
    list.push_back({"camera gone", 4, 5, seconds(10), [=] { fs::rename(pictures, away); },
                    [=] { fs::rename(away, pictures); }});
    list.push_back({"companions killed", 6, 7, seconds(1),
                    [this] { std::printf("  %d ended\n", m_server.killCompanions()); }, [] {}});
    if (hasOwnFileSystem()) {
        list.push_back({"disk full", 8, 20, seconds(60), [this] { fillDisk(); },
                        [this] { fs::remove(m_folder + "/filler"); }});
    } else {
        std::printf("the disk is not filled: %s is no file system of its own\n", m_folder.c_str());
    }
    for (Fault &fault : list) {
        fault.next = m_begin + milliseconds(int64_t(fault.first * 60000 * m_minutes / 60));
    }
    return list;
}

void Soak::runFaults()
{
    const auto now = Clock::now();
    for (Fault &fault : m_faults) {
        if (now < fault.next) {
            continue;
        }
        fault.isOn = !fault.isOn;
        std::printf("%.0f s: %s %s\n", secondsSince(m_begin), fault.name,
                    fault.isOn ? "begins" : "ends");
        std::fflush(stdout);
        if (fault.isOn) {
            fault.begin();
            fault.next = now + fault.length;
        } else {
            fault.end();
            const double pause = fault.period * 60000 * std::min(1.0, m_minutes / 60);
            fault.next = now + milliseconds(std::max(int64_t(pause), int64_t(20000)));
        }
        m_disturbed = now;
    }
}

/// MiB an hour by least squares, without the first sixth of the run, in which caches fill.
/// Of the least in each two minutes: what a burst takes for a moment is not kept.
double Soak::slopePerHour() const
{
    constexpr double bucketHours = 2.0 / 60;
    std::map<int, double> least;
    for (std::size_t i = m_samples.size() / 6; i < m_samples.size(); ++i) {
        const auto &[hours, usage] = m_samples[i];
        const auto bucket = least.emplace(int(hours / bucketHours), usage.memoryMiB).first;
        bucket->second = std::min(bucket->second, usage.memoryMiB);
    }
    double n = 0, sumX = 0, sumY = 0, sumXX = 0, sumXY = 0;
    for (const auto &[bucket, y] : least) {
        const double x = bucket * bucketHours;
        n += 1;
        sumX += x;
        sumY += y;
        sumXX += x * x;
        sumXY += x * y;
    }
    const double spread = n * sumXX - sumX * sumX;
    return spread > 0 ? (n * sumXY - sumX * sumY) / spread : 0;
}

void Soak::print(const char *when, const Usage &usage) const
{
    std::printf("%-24s %7.1f MiB  %4d descriptors  %3d threads  log %.1f MiB\n", when,
                usage.memoryMiB, usage.descriptors, usage.threads,
                double(usage.logBytes) / (1 << 20));
}

template <class Value> double percentile(std::vector<Value> values, double share)
{
    if (values.empty()) {
        return std::nan("");
    }
    std::sort(values.begin(), values.end());
    return double(values[std::size_t(share * double(values.size() - 1))]);
}

int Soak::judge(const Usage &before, const Usage &after) const
{
    print("before, no clients", before);
    print("start", m_samples.front().second);
    print("after the warm-up", m_samples[m_samples.size() / 6].second);
    print("middle", m_samples[m_samples.size() / 2].second);
    print("end", m_samples.back().second);
    print("after, no clients", after);
    std::printf("memory slope after the warm-up: %+.2f MiB an hour\n", slopePerHour());
    std::printf("replies: %" PRIu64 " sent for, %" PRIu64
                " lost; after %.1f ms (median), %.1f (99 %%)\n",
                m_sent, m_lost, percentile(m_replyMs, 0.5), percentile(m_replyMs, 0.99));
    std::printf("frames a second: %.0f at the 1st percentile, %.0f median, %.0f at the 99th (%zu "
                "seconds)\n",
                percentile(m_frameRates, 0.01), percentile(m_frameRates, 0.5),
                percentile(m_frameRates, 0.99), m_frameRates.size());
    std::printf("the client that never reads was disconnected %d times\n", m_deafEnds);
    const bool isLeft = after.descriptors > before.descriptors || after.threads > before.threads;
    if (isLeft) {
        std::printf("FAILED: descriptors or threads are left over\n");
        for (const std::string &file : m_server.openFiles()) {
            std::printf("  %s%s\n", file.c_str(), m_filesBefore.count(file) > 0 ? "" : "  (new)");
        }
    }
    if (m_lost > 0) {
        std::printf("FAILED: replies were lost\n");
    }
    return isLeft || m_lost > 0 ? 1 : 0;
}

int Soak::run()
{
    makePictures();
    if (!waitForServer()) {
        std::printf("FAILED: the server doesn't listen; see %s/output.txt\n", m_folder.c_str());
        return 1;
    }
    // Once around, so that whatever is made once is there before it is counted.
    open();
    m_nextChurn = Clock::now() + seconds(10);
    for (const auto until = Clock::now() + seconds(12); Clock::now() < until;) {
        poll(milliseconds(20));
        sendCommands();
        keepPreviewOn();
    }
    const Usage before = usageWithoutClients();
    const auto files = m_server.openFiles();
    m_filesBefore.insert(files.begin(), files.end());

    m_begin = m_secondBegin = m_nextSample = Clock::now();
    m_nextChurn = m_begin + seconds(10);
    m_faults = faults();
    m_sent = m_lost = 0;
    m_replyMs.clear();
    open();
    while (secondsSince(m_begin) < m_minutes * 60) {
        if (!m_server.isRunning()) {
            std::printf("FAILED: after %.0f s; see %s\n", secondsSince(m_begin), m_folder.c_str());
            return 1;
        }
        poll(milliseconds(20));
        sendCommands();
        churn();
        keepPreviewOn();
        countFrames();
        sample();
        runFaults();
    }
    for (Fault &fault : m_faults) {
        if (fault.isOn) {
            fault.end();
        }
    }
    for (const auto until = Clock::now() + replyTimeout; Clock::now() < until;) {
        poll(milliseconds(20));
        if (std::all_of(m_commanders.begin(), m_commanders.end(),
                        [](const Commander &one) { return one.awaited.empty(); })) {
            break;
        }
    }
    for (const Commander &commander : m_commanders) {
        m_lost += commander.awaited.empty() ? 0 : 1;
    }
    m_samples.emplace_back(secondsSince(m_begin) / 3600, m_server.usage());
    const Usage after = usageWithoutClients();
    return judge(before, after);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: soak FOLDER MINUTES   (scripts/soak.sh makes the folder)\n");
        return 2;
    }
    return Soak(argv[1], std::atof(argv[2])).run();
}
