// SPDX-License-Identifier: MIT
//
// What the device process costs the server as a whole, [library] process=own and inside side by
// side, the two taking turns: the start, the memory at rest, and the CPU time of all processes for
// a pushed frame of the 1920x1080 test scene with one page. Needs port 1818.
// Arguments: rounds and frames in each.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QWebSocket>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace {

constexpr int usualRounds = 5;
constexpr int settleMs = 2000;
constexpr int firstFrames = 30;
constexpr int usualFrames = 240; // eight seconds
constexpr int patienceMs = 60000;

/// What is measured in a round.
struct Costs
{
    double firstAnswerMs = 0; ///< From the start of the program.
    double firstDeviceAnswerMs = 0; ///< From its first answer.
    double serverMiB = 0; ///< Resident at rest, after the first device answer.
    double hostMiB = 0;
    double frameMs = 0; ///< CPU time of all processes for a frame.
    double framesPerSecond = 0;
};

[[noreturn]] void fail(const char *why)
{
    std::fprintf(stderr, "%s\n", why);
    std::exit(1);
}

QByteArray fileOf(qint64 process, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(process).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The fields of /proc/PID/stat from the third, the state, on.
QList<QByteArray> statOf(qint64 process)
{
    const QByteArray text = fileOf(process, "stat");
    return text.mid(text.lastIndexOf(')') + 2).split(' ');
}

/// The process and all that it has started.
std::vector<qint64> family(qint64 process)
{
    std::vector<qint64> members{process};
    const QStringList all = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (std::size_t i = 0; i < members.size(); ++i) {
        for (const QString &name : all) {
            const qint64 other = name.toLongLong();
            if (other > 0 && statOf(other).value(1).toLongLong() == members[i]) {
                members.push_back(other);
            }
        }
    }
    return members;
}

double cpuMs(const std::vector<qint64> &processes)
{
    double ticks = 0;
    for (const qint64 process : processes) {
        const QList<QByteArray> stat = statOf(process);
        for (int field = 11; field <= 14; ++field) { // own, and of children that have ended
            ticks += stat.value(field).toDouble();
        }
    }
    return ticks * 1000 / double(sysconf(_SC_CLK_TCK));
}

double residentMiB(qint64 process)
{
    return fileOf(process, "statm").split(' ').value(1).toDouble() * double(sysconf(_SC_PAGESIZE))
        / (1 << 20);
}

void wait(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

void waitUntil(const std::function<bool()> &condition, const char *what)
{
    QElapsedTimer time;
    time.start();
    while (!condition()) {
        if (time.elapsed() > patienceMs) {
            fail(what);
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        usleep(1000);
    }
}

/// One server with one page.
class Server
{
public:
    /// \param folder  holds the program and its libraries
    Server(const QString &folder, const char *mode)
    {
        QFile ini(folder + QStringLiteral("/devices.ini"));
        if (!ini.open(QIODevice::WriteOnly)) {
            fail("can't write devices.ini");
        }
        ini.write(QByteArray("[library]\nprocess=") + mode + "\n[cameras]\n1=scene\n");
        ini.close();
        QObject::connect(&m_page, &QWebSocket::textMessageReceived, [this](const QString &text) {
            m_frames += text.startsWith(QLatin1String("/9j/")) ? 1 : 0;
            m_last = text;
        });
        m_program.setWorkingDirectory(folder);
        m_program.setStandardOutputFile(QProcess::nullDevice());
        m_program.setStandardErrorFile(QProcess::nullDevice());
        m_program.start(folder + QStringLiteral("/rvowebSocketServer"), QStringList());
    }
    ~Server()
    {
        m_page.abort();
        m_program.terminate();
        if (!m_program.waitForFinished()) {
            m_program.kill();
            m_program.waitForFinished();
        }
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    /// \param frames  for the CPU time of a frame
    Costs measure(int frames)
    {
        Costs costs;
        QElapsedTimer time;
        time.start();
        waitUntil([this] { return isConnected(); }, "the server doesn't listen");
        ask(QStringLiteral("sGetTempPath"));
        costs.firstAnswerMs = double(time.nsecsElapsed()) / 1e6;
        time.start();
        ask(QStringLiteral("iGetRotate"));
        costs.firstDeviceAnswerMs = double(time.nsecsElapsed()) / 1e6;
        wait(settleMs);
        const std::vector<qint64> processes = family(m_program.processId());
        for (const qint64 process : processes) {
            (process == processes.front() ? costs.serverMiB : costs.hostMiB) +=
                residentMiB(process);
        }
        m_page.sendTextMessage(QStringLiteral("bStartPlay()"));
        waitUntil([this] { return m_frames >= firstFrames; }, "no frames");
        const double before = cpuMs(processes);
        const int seen = m_frames;
        time.start();
        waitUntil([&] { return m_frames - seen >= frames; }, "too few frames");
        costs.frameMs = (cpuMs(processes) - before) / (m_frames - seen);
        costs.framesPerSecond = (m_frames - seen) * 1000. / double(time.elapsed());
        return costs;
    }

private:
    bool isConnected()
    {
        if (m_page.state() == QAbstractSocket::UnconnectedState) {
            m_page.open(QUrl(QStringLiteral("ws://127.0.0.1:1818")));
        }
        return m_page.state() == QAbstractSocket::ConnectedState;
    }

    void ask(const QString &name)
    {
        m_page.sendTextMessage(name + QStringLiteral("()"));
        waitUntil([&] { return m_last.startsWith(QLatin1String("Begin") + name); }, "no answer");
    }

    QProcess m_program;
    QWebSocket m_page;
    QString m_last;
    int m_frames = 0;
};

double median(const std::vector<Costs> &costs, double Costs::*value)
{
    std::vector<double> values;
    values.reserve(costs.size());
    for (const Costs &one : costs) {
        values.push_back(one.*value);
    }
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

/// Programs and libraries only: the folder of the build may have a devices.ini of its own.
void copyProduct(const QString &from, const QString &to)
{
    const QFileInfoList files =
        QDir(from).entryInfoList({QStringLiteral("*.so*"), QStringLiteral("devicehost"),
                                  QStringLiteral("rvowebSocketServer")},
                                 QDir::Files);
    for (const QFileInfo &file : files) {
        QFile::copy(file.filePath(), to + QLatin1Char('/') + file.fileName());
    }
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    copyProduct(QCoreApplication::applicationDirPath() + QStringLiteral("/.."), folder.path());

    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : usualRounds;
    const int frames = argc > 2 ? std::max(1, std::atoi(argv[2])) : usualFrames;
    std::vector<Costs> own;
    std::vector<Costs> inside;
    std::vector<double> ratios;
    for (int i = 0; i < rounds; ++i) {
        own.push_back(Server(folder.path(), "own").measure(frames));
        inside.push_back(Server(folder.path(), "inside").measure(frames));
        ratios.push_back(own.back().frameMs / inside.back().frameMs);
    }
    const struct
    {
        const char *what;
        double Costs::*value;
    } rows[] = {{"start to the first answer, ms", &Costs::firstAnswerMs},
                {"from there to the first of the device, ms", &Costs::firstDeviceAnswerMs},
                {"memory at rest of the server, MiB", &Costs::serverMiB},
                {"memory at rest of the device process, MiB", &Costs::hostMiB},
                {"frames a second", &Costs::framesPerSecond},
                {"CPU of a pushed 1920x1080 frame, ms", &Costs::frameMs}};
    std::printf("median of %-34d %8s %8s\n", rounds, "own", "inside");
    for (const auto &row : rows) {
        std::printf("%-44s %8.2f %8.2f\n", row.what, median(own, row.value),
                    median(inside, row.value));
    }
    std::sort(ratios.begin(), ratios.end());
    std::printf("CPU of a pushed frame: own / inside = %.3f, %.3f to %.3f (limit 1.03)\n",
                ratios[ratios.size() / 2], ratios.front(), ratios.back());
    return 0;
}
