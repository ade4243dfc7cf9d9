// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

/**
 * The log of the process: takes Qt's message handler over, so that every line that qDebug, qInfo,
 * qWarning, qCritical and qFatal print goes to a dated file, to the listeners of the network log
 * and to whoever is connected to a signal, as switched on by handler().
 *
 * A line is the message as it is: no time, no level, no category; whoever wants them prints them.
 * In the file a line end follows, in the local 8-bit encoding (QTextCodec::codecForLocale()).
 *
 * Files lie in logPath(): `vx_log_yyyy-MM-dd.txt` is the file of the day; when it has grown beyond
 * maxLogSize() it is moved to `vx_log_yyyy-MM-dd-hhmmss.txt` and begun anew. Whenever a file is
 * opened, old ones are deleted (autoDeleteLog()).
 *
 * Every function may be called from any thread. One message at a time is handled, in the thread
 * that prints it, under one mutex that everything else here takes too. What is printed while its
 * own thread holds that mutex (by Qt, or by a slot connected directly to a signal of this class)
 * is not logged, nor is what the network log's thread prints: it would wait for itself.
 *
 * No failure is reported, for there is nowhere to report to. Lines for a file that could not be
 * opened go to standard error, until there is a reason to open another one (the next day, another
 * folder).
 */
class QLog : public QObject
{
    Q_OBJECT

public:
    enum HandlerFlag {
        LogToFile = 1, ///< appended to the file of the day
        LogToNet = 2, ///< sent to the listeners of the network log, which begins with the first
        LogToSignal = 4, ///< passed on by sig_newLog()
    };
    Q_DECLARE_FLAGS(HandlerFlags, HandlerFlag)
    Q_FLAG(HandlerFlags)

    /// Milliseconds since the epoch, as QDateTime::currentMSecsSinceEpoch() has them.
    using Clock = std::function<qint64()>;

    /**
     * The one log; made by the first call, which needs the application object for logPath(), and
     * destroyed when the program ends. What is printed after that goes where Qt sends it.
     */
    static QLog *instance();
    ~QLog() override;

    /**
     * Takes the message handler over, or changes what it does; with no flag gives it back to Qt.
     * What is no longer wanted is closed before this returns: the file, the port and the thread
     * of the network log, whose listeners get what was printed before if they read as it comes.
     */
    void handler(HandlerFlags flags);

    /// Days that files are kept; 30 unless set.
    unsigned short saveDay() const;
    void setSaveDay(unsigned short days);

    /**
     * Bytes above which the file of the day is rotated; 52428800 unless set. What counts is the
     * size before the line just written, unless that has 16384 characters or more.
     */
    int maxLogSize() const;
    void setMaxLogSize(int bytes);

    /// The folder of the files, with native separators; "log" beside the program unless set.
    QString logPath() const;
    /// Makes the folder, with its parents, if it is missing. The next message goes there.
    void setLogPath(const QString &path);

    /// The TCP port of the network log; 34353 unless set.
    unsigned short netPort() const;
    /// Ends the network log on the old port before it returns; the next message begins the new one.
    void setPort(unsigned short port);

    /// Emits sig_newLog().
    void newLog(const QString &message);
    /// Emits sig_toNet().
    void toNet(const QString &message);

    /// Begins the network log unless it exists; the handler does so by itself.
    void createLogNet();

    /**
     * Deletes the files that were created saveDay() days ago or earlier. Only those ending in
     * ".txt" that have "vx" in their names; and only if the folder holds at least saveDay() files
     * ending in ".txt", whatever else they are called.
     */
    void autoDeleteLog();

    /// For tests: takes the time from here; an empty function brings the real clock back.
    void setClock(Clock clock);

Q_SIGNALS:
    /// A message, for LogToSignal. Emitted in the thread that prints, the mutex held.
    void sig_newLog(const QString &message);
    /// A message on its way to the network log. Emitted in the thread that prints, the mutex held.
    void sig_toNet(const QString &message);

private:
    QLog();
    static void handleMessage(QtMsgType type, const QMessageLogContext &context,
                              const QString &message);
    void log(const QString &message);

    struct Record;
    const std::unique_ptr<Record> m_record;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(QLog::HandlerFlags)
