// SPDX-License-Identifier: MIT
/// \file The server as a program of its own, and what the kernel says of its processes.
#pragma once

#include "bench/rawclients.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

constexpr std::uint16_t serverPort = 1818;

[[noreturn]] inline void fail(const char *why)
{
    std::fprintf(stderr, "%s\n", why);
    std::exit(1);
}

inline QByteArray fileOf(qint64 process, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(process).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The fields of /proc/PID/stat from the third, the state, on.
inline QList<QByteArray> statOf(qint64 process)
{
    const QByteArray text = fileOf(process, "stat");
    return text.mid(text.lastIndexOf(')') + 2).split(' ');
}

/// CPU time that all threads of the process have used, by the scheduler's clock: /proc/PID/stat
/// counts ticks of 10 ms.
inline double cpuMs(qint64 process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(pid_t(process), &clock) != 0 || clock_gettime(clock, &time) != 0) {
        fail("no CPU clock");
    }
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

inline double residentMiB(qint64 process)
{
    return fileOf(process, "statm").split(' ').value(1).toDouble() * double(sysconf(_SC_PAGESIZE))
        / (1 << 20);
}

/// The most memory that a process has had so far.
inline double peakMiB(qint64 process)
{
    const QByteArray status = fileOf(process, "status");
    const QByteArray rest = status.mid(status.indexOf("VmHWM:") + 6);
    return rest.left(rest.indexOf("kB")).trimmed().toDouble() / 1024;
}

inline double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

/// Programs and libraries in a folder with a devices.ini of its own.
class Product
{
public:
    Product()
    {
        const QDir build(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
        const QFileInfoList files =
            build.entryInfoList({QStringLiteral("*.so*"), QStringLiteral("devicehost"),
                                 QStringLiteral("rvowebSocketServer")},
                                QDir::Files);
        for (const QFileInfo &file : files) {
            QFile::copy(file.filePath(), m_folder.filePath(file.fileName()));
        }
    }

    QString program() const { return m_folder.filePath(QStringLiteral("rvowebSocketServer")); }
    QString folder() const { return m_folder.path(); }

    /// \param mode  of [library] process=
    void configure(const char *mode) const
    {
        QFile ini(m_folder.filePath(QStringLiteral("devices.ini")));
        if (!ini.open(QIODevice::WriteOnly)) {
            fail("can't write devices.ini");
        }
        ini.write(QByteArray("[library]\nprocess=") + mode + "\n[cameras]\n1=scene\n");
    }

private:
    QTemporaryDir m_folder;
};

/// Ends with the benchmark, however that ends: its port has to be free for the next.
class MortalProcess : public QProcess
{
protected:
    void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGKILL); }
};

/// A program that listens on the server's port, with one page.
class ServerProcess
{
public:
    ServerProcess(const QString &folder, const QString &program, const QStringList &arguments = {})
    {
        m_program.setWorkingDirectory(folder);
        m_program.setStandardOutputFile(QProcess::nullDevice());
        m_program.setStandardErrorFile(QProcess::nullDevice());
        m_time.start();
        m_program.start(program, arguments);
        m_program.waitForStarted();
        while (!page.open(serverPort)) {
            if (m_time.elapsed() > 60000) {
                fail("the server doesn't listen");
            }
            usleep(500);
        }
    }
    ~ServerProcess()
    {
        page.disconnect();
        m_program.terminate();
        if (!m_program.waitForFinished()) {
            m_program.kill();
            m_program.waitForFinished();
        }
    }
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    /// Calls a command without arguments. \return milliseconds
    double call(const std::string &name)
    {
        QElapsedTimer time;
        time.start();
        if (!page.call(name + "()", "Begin" + name)) {
            fail("no answer");
        }
        return double(time.nsecsElapsed()) / 1e6;
    }

    /// Waits for frames of the preview. \return the seconds they took
    double frames(int count)
    {
        QElapsedTimer time;
        time.start();
        std::string text;
        for (int seen = 0; seen < count;) {
            if (!page.next(text, 4096)) {
                fail("too few frames");
            }
            seen += text.empty() ? 1 : 0;
        }
        return double(time.nsecsElapsed()) / 1e9;
    }

    double msSinceStart() const { return double(m_time.nsecsElapsed()) / 1e6; }
    qint64 process() const { return m_program.processId(); }

    /// The process and all that it has started.
    std::vector<qint64> family() const
    {
        std::vector<qint64> members{process()};
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

    RawClient page;

private:
    QElapsedTimer m_time;
    MortalProcess m_program;
};
