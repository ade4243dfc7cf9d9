// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>

/**
 * The log of the process. Installs Qt's message handler, so that everything printed with qDebug,
 * qInfo, qWarning, qCritical and qFatal goes to a dated file, to the listeners of the network log
 * and to a signal, as selected with handler().
 *
 * A message is logged as it is, without time, level or category. In the file it is followed by a
 * line end and encoded in the local 8-bit encoding (QTextCodec::codecForLocale()); of one of more
 * than 1 MiB in UTF-8 (and a little for what comes around a text of that length) the file gets only
 * the first 64 KiB and the length.
 *
 * The files are in logPath(). The current day's file is `vx_log_yyyy-MM-dd.txt`; once it is larger
 * than maxLogSize(), it is renamed to `vx_log_yyyy-MM-dd-hhmmss.txt` and a new one is started.
 * Opening a file deletes the expired ones (autoDeleteLog()). The files, and folders made for them,
 * are for this user only. While their disk has less than minFreeBytes free, no messages are written
 * to them: a line says so, and another one how many are missing once there is space again. The disk
 * is looked at after a second, or a mebibyte of lines if that is sooner.
 *
 * Every function may be called from any thread. Messages are handled one at a time, in the thread
 * that prints them, under the mutex that all functions here take. To avoid a deadlock, messages
 * are dropped that are printed by a thread already holding that mutex (by Qt, or by a slot
 * connected directly to a signal of this class) or by the network log's own thread.
 *
 * Failures are not reported, since the log is where they would go. If a file can't be opened, its
 * lines go to standard error until another file is due (the next day, another folder).
 */
class QLog : public QObject
{
    Q_OBJECT

public:
    enum HandlerFlag {
        LogToFile = 1, ///< append to the current day's file
        LogToNet = 2, ///< send to the network log's listeners; the first message starts it
        LogToSignal = 4, ///< emit sig_newLog()
    };
    Q_DECLARE_FLAGS(HandlerFlags, HandlerFlag)
    Q_FLAG(HandlerFlags)

    /// Milliseconds since the epoch, like QDateTime::currentMSecsSinceEpoch().
    using Clock = std::function<qint64()>;
    /// Bytes that the disk of a folder has free.
    using FreeSpace = std::function<qint64(const QString &folder)>;

    static constexpr qint64 minFreeBytes = 256000000;

    /**
     * The log of this process, created by the first call (which needs the application object for
     * logPath()) and destroyed at exit. Messages printed later get Qt's default handling.
     */
    static QLog *instance();
    ~QLog() override;

    /**
     * Selects where messages go. Installs the message handler, or restores Qt's if no flag is set.
     * Whatever is no longer needed is closed before this returns: the file, and the network log
     * with its port and thread. Its listeners still get what was printed before, unless they are
     * slow to read.
     */
    void handler(HandlerFlags flags);

    /// Retention of the files in days; default 30.
    unsigned short saveDay() const;
    void setSaveDay(unsigned short days);

    /**
     * Size in bytes above which the current file is rotated; default 52428800. It is compared with
     * the size before the line just written, or after it if that has 16384 characters or more.
     */
    int maxLogSize() const;
    void setMaxLogSize(int bytes);

    /**
     * Bytes of all files in the folder from which the oldest of the log are deleted, whenever a
     * file is opened or rotated; today's are kept. Default 0: no limit.
     */
    qint64 maxFolderSize() const;
    void setMaxFolderSize(qint64 bytes);

    /// The folder of the files, with native separators; default: "log" beside the program.
    QString logPath() const;
    /// Creates the folder, for this user only, and its parents if missing. The next message goes
    /// there.
    void setLogPath(const QString &path);

    /// The TCP port of the network log; default 34353.
    unsigned short netPort() const;
    /// Stops the network log on the old port before returning; the next message starts the new one.
    void setPort(unsigned short port);

    /// A warning or an error, as it was logged, but shortened to longestProblem characters.
    struct Problem
    {
        qint64 time = 0; ///< milliseconds since the epoch
        QtMsgType type = QtWarningMsg;
        QString text;
    };
    static constexpr int mostProblems = 50;
    static constexpr int longestProblem = 500;

    /// The latest warnings and errors, at most mostProblems, oldest first.
    QVector<Problem> problems() const;

    /// Emits sig_newLog().
    void newLog(const QString &message);
    /// Emits sig_toNet().
    void toNet(const QString &message);

    /// Starts the network log unless it is running; the message handler does so by itself.
    void createLogNet();

    /**
     * Deletes the ".txt" files with "vx" in their names that were created at least saveDay() days
     * ago; but none at all while the folder holds fewer than saveDay() ".txt" files of any name.
     */
    void autoDeleteLog();

    /// For tests: sets the source of the time; an empty function restores the real clock.
    void setClock(Clock clock);
    /// For tests: sets the source of the free space; an empty function restores the real one.
    void setFreeSpace(FreeSpace freeSpace);

Q_SIGNALS:
    /// A message, for LogToSignal. Emitted in the thread that prints it, with the mutex held.
    void sig_newLog(const QString &message);
    /// A message for the network log. Emitted in the thread that prints it, with the mutex held.
    void sig_toNet(const QString &message);

private:
    QLog();
    static void handleMessage(QtMsgType type, const QMessageLogContext &context,
                              const QString &message);
    void log(QtMsgType type, const QString &message);

    struct Record;
    const std::unique_ptr<Record> m_record;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(QLog::HandlerFlags)
