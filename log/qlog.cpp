// SPDX-License-Identifier: MIT
#include "log/qlog.h"

#include "log/qlogtonet.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTextCodec>
#include <QThread>

#include <cstdio>
#include <limits>
#include <mutex>
#include <utility>

namespace {

// The mutex of the log. It is no member because it must outlive the log: when the program ends, a
// thread that prints may be waiting for it. (Its destructor does nothing.)
std::mutex s_mutex;
QLog *s_log = nullptr; // guarded by s_mutex; null before and after the log's life

thread_local bool t_holdsMutex = false;
thread_local bool t_isNetThread = false;

/// Holds s_mutex; does nothing in a thread that holds it already, as a slot called by log() does.
class Lock
{
public:
    Lock()
        : m_outermost(!t_holdsMutex)
    {
        if (m_outermost) {
            s_mutex.lock();
            t_holdsMutex = true;
        }
    }
    ~Lock()
    {
        if (m_outermost) {
            t_holdsMutex = false;
            s_mutex.unlock();
        }
    }
    Q_DISABLE_COPY(Lock)

private:
    const bool m_outermost;
};

/// A line as bytes, and how many of them the file would report right after a QTextStream took it.
struct EncodedLine
{
    QByteArray bytes;
    int reported;
};

/**
 * The bytes that QTextStream makes of `stream << text << "\n"`. It keeps up to 16384 characters
 * to itself until it is destroyed (qtextstream.cpp, QTEXTSTREAM_BUFFERSIZE), so the file reports
 * nothing of a line that fits, all of one whose line end overflows, else all but the line end.
 */
EncodedLine encodedLine(const QString &text)
{
    constexpr int StreamBufferSize = 16384;
    constexpr QChar LineEnd(u'\n');
    const QTextCodec *codec = QTextCodec::codecForLocale();
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    if (text.size() > StreamBufferSize) {
        const QByteArray bytes = codec->fromUnicode(text.constData(), text.size(), &state);
        return {bytes + codec->fromUnicode(&LineEnd, 1, &state), bytes.size()};
    }
    const QString line = text + LineEnd;
    const QByteArray bytes = codec->fromUnicode(line.constData(), line.size(), &state);
    return {bytes, line.size() > StreamBufferSize ? bytes.size() : 0};
}

QDateTime creationTime(const QFileInfo &file)
{
    // Not every file system knows it; the time of the last change is the earliest left then.
    const QDateTime birth = file.birthTime();
    return birth.isValid() ? birth : file.metadataChangeTime();
}

} // namespace

/// The state of the log, and what is done with the file and the network; s_mutex held.
struct QLog::Record
{
    unsigned short port = 34353;
    unsigned short saveDay = 30;
    int maxLogSize = 50 * 1024 * 1024;
    QString logPath;
    QString name = QStringLiteral("vx");
    QFile file;
    QString currentFileName; // the last one opened, or tried; empty forces a reopen
    QLogToNet *net = nullptr; // lives and dies in netThread
    QThread *netThread = nullptr;
    HandlerFlags flags;

    static constexpr qint64 NeverChecked = std::numeric_limits<qint64>::min();
    Clock clock = &QDateTime::currentMSecsSinceEpoch;
    qint64 checkedMinute = NeverChecked; // since the epoch; when currentFileName was last checked
    qint64 size = 0; // of the file, counted along

    void writeLine(const QString &text);
    void checkFile(qint64 now);
    void rotateFile(qint64 now);
    void closeFile();
    void deleteOldFiles() const;
    void stopNet();

private:
    QString fileName(qint64 time, const QString &format) const
    {
        return QStringLiteral("%1/%2_log_%3.txt")
            .arg(logPath, name, QDateTime::fromMSecsSinceEpoch(time).toString(format));
    }
};

void QLog::Record::writeLine(const QString &text)
{
    const qint64 now = clock();
    checkFile(now);
    const EncodedLine line = encodedLine(text);
    if (!file.isOpen()) {
        std::fwrite(line.bytes.constData(), 1, std::size_t(line.bytes.size()), stderr);
        return;
    }
    const qint64 written = qMax(file.write(line.bytes), Q_INT64_C(0));
    const qint64 reported = size + qMin<qint64>(line.reported, written);
    size += written;
    if (reported > maxLogSize) {
        rotateFile(now);
    }
}

void QLog::Record::checkFile(qint64 now)
{
    // Time zones differ by whole minutes, so a day begins with a minute. Looked at that often, a
    // new time zone is noticed, too, and a file that somebody else has cut short.
    const qint64 minute = now / 60000;
    if (minute == checkedMinute) {
        return;
    }
    const QString today = fileName(now, QStringLiteral("yyyy-MM-dd"));
    if (today != currentFileName) {
        closeFile();
        currentFileName = today;
        deleteOldFiles();
        file.setFileName(today);
        file.open(QFile::WriteOnly | QFile::Append | QFile::Text | QFile::Unbuffered);
    }
    size = file.size();
    checkedMinute = minute;
}

void QLog::Record::rotateFile(qint64 now)
{
    // Never overwrites: the second rotation within a second fails, and the file grows on.
    file.rename(fileName(now, QStringLiteral("yyyy-MM-dd-hhmmss")));
    closeFile();
}

void QLog::Record::closeFile()
{
    if (file.isOpen()) {
        file.close();
    }
    currentFileName.clear();
    checkedMinute = NeverChecked;
}

void QLog::Record::deleteOldFiles() const
{
    const QDateTime cutoff = QDateTime::fromMSecsSinceEpoch(clock()).addDays(-saveDay);
    const QFileInfoList files = QDir(logPath).entryInfoList({QStringLiteral("*.txt")});
    if (saveDay > files.size()) {
        return;
    }
    for (const QFileInfo &old : files) {
        if (old.fileName().contains(name) && creationTime(old) <= cutoff) {
            QFile::remove(old.filePath());
        }
    }
}

void QLog::Record::stopNet()
{
    if (!netThread) {
        return;
    }
    netThread->quit();
    netThread->wait();
    delete netThread;
    netThread = nullptr;
    net = nullptr;
}

QLog *QLog::instance()
{
    static const std::unique_ptr<QLog> log(new QLog);
    return log.get();
}

QLog::QLog()
    : m_record(std::make_unique<Record>())
{
    setLogPath(QCoreApplication::applicationDirPath() + QStringLiteral("/log"));
    const Lock lock;
    s_log = this;
}

QLog::~QLog()
{
    handler({});
    const Lock lock;
    s_log = nullptr;
    m_record->stopNet(); // somebody may have created it without the flag
}

void QLog::handler(HandlerFlags flags)
{
    const Lock lock;
    if (flags == m_record->flags) {
        return;
    }
    qInstallMessageHandler(nullptr);
    m_record->flags = flags;
    if (!flags.testFlag(LogToNet)) {
        m_record->stopNet();
    }
    if (!flags.testFlag(LogToFile)) {
        m_record->closeFile();
    }
    if (flags) {
        qInstallMessageHandler(&QLog::handleMessage);
    }
}

void QLog::handleMessage(QtMsgType, const QMessageLogContext &, const QString &message)
{
    if (t_holdsMutex || t_isNetThread) {
        return;
    }
    const Lock lock;
    if (s_log) {
        s_log->log(message);
    }
}

void QLog::log(const QString &message)
{
    const HandlerFlags flags = m_record->flags;
    if (flags.testFlag(LogToFile)) {
        m_record->writeLine(message);
    }
    if (flags.testFlag(LogToNet)) {
        createLogNet();
        toNet(message);
    }
    if (flags.testFlag(LogToSignal)) {
        newLog(message);
    }
}

unsigned short QLog::saveDay() const
{
    const Lock lock;
    return m_record->saveDay;
}

void QLog::setSaveDay(unsigned short days)
{
    const Lock lock;
    m_record->saveDay = days;
}

int QLog::maxLogSize() const
{
    const Lock lock;
    return m_record->maxLogSize;
}

void QLog::setMaxLogSize(int bytes)
{
    const Lock lock;
    m_record->maxLogSize = bytes;
}

QString QLog::logPath() const
{
    const Lock lock;
    return m_record->logPath;
}

void QLog::setLogPath(const QString &path)
{
    const Lock lock;
    m_record->logPath = QDir::toNativeSeparators(path);
    m_record->checkedMinute = Record::NeverChecked;
    QDir().mkpath(m_record->logPath);
}

unsigned short QLog::netPort() const
{
    const Lock lock;
    return m_record->port;
}

void QLog::setPort(unsigned short port)
{
    const Lock lock;
    if (port == m_record->port) {
        return;
    }
    m_record->port = port;
    m_record->stopNet();
}

void QLog::newLog(const QString &message)
{
    Q_EMIT sig_newLog(message);
}

void QLog::toNet(const QString &message)
{
    Q_EMIT sig_toNet(message);
}

void QLog::createLogNet()
{
    const Lock lock;
    if (m_record->net) {
        return;
    }
    auto *net = new QLogToNet(m_record->port);
    connect(this, &QLog::sig_toNet, net, &QLogToNet::slot_toNet);
    // Whatever thread prints may get here, and a parent must live in the same one.
    auto *thread = new QThread(QThread::currentThread() == this->thread() ? this : nullptr);
    thread->setObjectName(QStringLiteral("log-net"));
    connect(
        thread, &QThread::started, net, [] { t_isNetThread = true; }, Qt::DirectConnection);
    // At the thread's end, in the thread: what is still on its way goes out, then the port closes.
    // Not deleteLater(), which does nothing when the application object is gone already.
    connect(
        thread, &QThread::finished, net,
        [net] {
            QCoreApplication::sendPostedEvents(net);
            delete net;
        },
        Qt::DirectConnection);
    net->moveToThread(thread);
    thread->start(QThread::InheritPriority);
    m_record->net = net;
    m_record->netThread = thread;
}

void QLog::autoDeleteLog()
{
    const Lock lock;
    m_record->deleteOldFiles();
}

void QLog::setClock(Clock clock)
{
    const Lock lock;
    m_record->clock = clock ? std::move(clock) : &QDateTime::currentMSecsSinceEpoch;
    m_record->checkedMinute = Record::NeverChecked;
}
