// SPDX-License-Identifier: MIT
/// \file What the tests of the portable library have in common.
#pragma once

#include "tests/files.h"
#include "tests/rows.h"

#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// A text that the library hands over; null stays null.
inline QString taken(char *text)
{
    QString result = QString::fromUtf8(text);
    std::free(text);
    return result;
}

/// Threads that repeat their calls until stop(), at the latest until the object goes.
class Repeaters
{
public:
    ~Repeaters() { stop(); }

    void add(const std::function<void(int round)> &call)
    {
        m_threads.emplace_back([this, call] {
            for (int round = 0; !m_done; ++round) {
                call(round);
            }
        });
    }
    void stop()
    {
        m_done = true;
        for (std::thread &thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    std::atomic<bool> m_done{false};
    std::vector<std::thread> m_threads;
};

/// While it lives, the lines of the portable library go here.
class PortableLog
{
public:
    PortableLog()
    {
        takeLines();
        s_before = qInstallMessageHandler(&PortableLog::write);
    }
    ~PortableLog() { qInstallMessageHandler(s_before); }
    PortableLog(const PortableLog &) = delete;
    PortableLog &operator=(const PortableLog &) = delete;

    /// The lines since the last call.
    static QStringList takeLines()
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        QStringList lines;
        lines.swap(s_lines);
        return lines;
    }

    static QStringList lines()
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        return s_lines;
    }

private:
    static void write(QtMsgType type, const QMessageLogContext &context, const QString &line)
    {
        if (!line.startsWith(QLatin1String("portable: "))) {
            s_before(type, context, line);
            return;
        }
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_lines << line.mid(int(qstrlen("portable: ")));
    }

    static inline QtMessageHandler s_before = nullptr;
    static inline std::mutex s_mutex;
    static inline QStringList s_lines; // guarded by s_mutex
};

/**
 * Each function of such a test has a log and an empty folder of its own, and no devices.ini beside
 * the program but its own; simulation is on. A test with an init() or a cleanup() calls those here
 * from it.
 */
class PortableTest : public QObject
{
    Q_OBJECT

protected Q_SLOTS:
    void init()
    {
        qputenv("DEVICE_SIMULATION", "1");
        m_log = std::make_unique<PortableLog>();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }
    void cleanup()
    {
        m_log.reset();
        m_folder.reset();
        QFile::remove(besideProgram("devices.ini"));
    }

protected:
    /// In the test's folder.
    QString path(const QString &name) const { return m_folder->filePath(name); }
    QString path(const char *name) const { return path(line(name)); }
    Utf8 utf8(const char *name) const { return Utf8(path(name)); }

    static QString besideProgram(const char *name)
    {
        return QCoreApplication::applicationDirPath() + QLatin1Char('/') + line(name);
    }

    /// Writes the devices.ini that the exported functions read.
    static void useIni(const QByteArray &content)
    {
        writeFile(besideProgram("devices.ini"), content);
    }

    std::unique_ptr<PortableLog> m_log;
    std::unique_ptr<QTemporaryDir> m_folder;
};
