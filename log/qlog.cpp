// SPDX-License-Identifier: MIT
#include "log/qlog.h"

#include "base/datafolder.h"
#include "log/longtext.h"
#include "log/qlogtonet.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTextCodec>
#include <QThread>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <mutex>
#include <utility>

namespace {

// Not a member: it must outlive the log, since a thread that prints may be waiting for it while the
// program exits. (Its destructor does nothing.)
std::mutex s_mutex;
QLog *s_log = nullptr; // guarded by s_mutex; null before the log exists and after it is gone

thread_local bool t_holdsMutex = false;
thread_local bool t_isNetThread = false;

/// Locks s_mutex, unless this thread holds it already, as in a slot called by log().
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

/// An encoded line, and by how much the file's size grows right after a QTextStream took it.
struct EncodedLine
{
    QByteArray bytes;
    int reported;
};

/**
 * The bytes that QTextStream writes for `stream << text << "\n"`. It buffers up to 16384 characters
 * until it is destroyed (qtextstream.cpp, QTEXTSTREAM_BUFFERSIZE). So the file doesn't grow at
 * first by a line that fits, grows by all of a line whose line end overflows the buffer, and by all
 * but the line end of a longer one.
 */
EncodedLine encodedLine(const QString &text)
{
    constexpr int streamBufferSize = 16384;
    constexpr QChar lineEnd(u'\n');
    const QTextCodec *codec = QTextCodec::codecForLocale();
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    if (text.size() > streamBufferSize) {
        const QByteArray bytes = codec->fromUnicode(text.constData(), text.size(), &state);
        return {bytes + codec->fromUnicode(&lineEnd, 1, &state), bytes.size()};
    }
    const QString line = text + lineEnd;
    const QByteArray bytes = codec->fromUnicode(line.constData(), line.size(), &state);
    return {bytes, line.size() > streamBufferSize ? bytes.size() : 0};
}

QDateTime creationTime(const QFileInfo &file)
{
    // Not every file system records it; the last metadata change is the closest substitute.
    const QDateTime birth = file.birthTime();
    return birth.isValid() ? birth : file.metadataChangeTime();
}

/// What the file gets of a message: all of it, or the beginning and the length of a long one.
QString shortened(const QString &message)
{
    constexpr int aroundText = 4096; // bytes that a line has beside a text of a page
    constexpr int most = LongText::maxBytes + aroundText;
    constexpr int mostBytesOfOne = 3;
    if (message.size() <= most / mostBytesOfOne
        || charactersWithin(message, most) == message.size()) {
        return message;
    }
    return message.left(charactersWithin(message, LongText::shownBytes))
        + QStringLiteral("... (the beginning of a line of %1 characters)").arg(message.size());
}

/// Bytes that the disk of a folder has for this user; the largest number if that is unknown.
qint64 bytesFree(const QString &folder)
{
    struct statvfs disk = {};
    if (statvfs(QFile::encodeName(folder).constData(), &disk) != 0) {
        return std::numeric_limits<qint64>::max();
    }
    return qint64(disk.f_bavail) * qint64(disk.f_frsize);
}

/// Opens a file for appending that nobody else may read, even if it was readable before.
bool openPrivateFile(QFile &file, const QString &path)
{
    file.setFileName(path);
    const int created =
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (created >= 0) {
        fchmod(created, 0600);
        ::close(created);
    }
    return file.open(QFile::WriteOnly | QFile::Append | QFile::Text | QFile::Unbuffered);
}

/// Makes a folder, for this user only, and its parents.
void createPrivateFolder(const QString &path)
{
    const QString folder = QDir::cleanPath(path);
    QDir().mkpath(QFileInfo(folder).path());
    ::mkdir(QFile::encodeName(folder).constData(), 0700);
}

QString defaultLogPath()
{
    return base::dataFolder() + QStringLiteral("/log");
}

} // namespace

/// State of the log, and its operations on the file and the network. All of it needs s_mutex.
struct QLog::Record
{
    unsigned short port = 34353;
    unsigned short saveDay = 30;
    int maxLogSize = 50 * 1024 * 1024;
    qint64 maxFolderSize = 0; // 0: no limit
    QString logPath;
    QString name = QStringLiteral("vx");
    QFile file;
    QString currentFileName; // last file opened, or attempted; empty: reopen
    QLogToNet *net = nullptr; // lives in netThread and is deleted there
    QThread *netThread = nullptr;
    HandlerFlags flags;

    static constexpr qint64 neverChecked = std::numeric_limits<qint64>::min();
    Clock clock = &QDateTime::currentMSecsSinceEpoch;
    qint64 checkedMinute = neverChecked; // of the last check of currentFileName, since the epoch
    qint64 size = 0; // of the file, as tracked by writeLine()

    FreeSpace freeSpace = &bytesFree;
    qint64 spaceCheckedAt = neverChecked;
    qint64 writtenSinceCheck = 0;
    bool isStopped = false; // for want of space
    qint64 skippedLines = 0; // while stopped

    mutable std::mutex problemsMutex; // who reads them must not wait for the disk
    QVector<Problem> problems; // a ring once it is full; this and the next need problemsMutex
    int nextProblem = 0; // of the ring, which is the oldest then

    void noteProblem(QtMsgType type, const QString &text);
    void writeLine(const QString &text);
    void write(const QString &text, qint64 now);
    bool mayWrite(qint64 now);
    void checkFile(qint64 now);
    void rotateFile(qint64 now);
    void closeFile();
    void deleteOldFiles() const;
    void limitFolder(qint64 now) const;
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
    if (!file.isOpen() || mayWrite(now)) {
        write(shortened(text), now);
    } else {
        ++skippedLines;
    }
}

void QLog::Record::noteProblem(QtMsgType type, const QString &text)
{
    const Problem problem{clock(), type, text.left(longestProblem)};
    const std::lock_guard<std::mutex> lock(problemsMutex);
    if (problems.size() < mostProblems) {
        problems.append(problem);
    } else {
        problems[nextProblem] = problem;
        nextProblem = (nextProblem + 1) % mostProblems;
    }
}

/// Whether the disk has space; when that changes, writes a line about it.
bool QLog::Record::mayWrite(qint64 now)
{
    constexpr qint64 checkInterval = 1000; // ms
    constexpr qint64 checkBytes = qint64(1024) * 1024;
    const bool isDue = spaceCheckedAt == neverChecked || writtenSinceCheck >= checkBytes
        || now < spaceCheckedAt || now - spaceCheckedAt >= checkInterval;
    if (!isDue) {
        return !isStopped;
    }
    spaceCheckedAt = now;
    writtenSinceCheck = 0;
    const bool isLow = freeSpace(logPath) < minFreeBytes;
    if (isLow == isStopped) {
        return !isStopped;
    }
    isStopped = isLow;
    const QString time = QDateTime::fromMSecsSinceEpoch(now).toString(
        QStringLiteral("'['yyyy-MM-dd HH:mm:ss'] log: '"));
    write(time
              + (isLow ? QStringLiteral("stopped, the disk has less than %1 MB free")
                             .arg(minFreeBytes / 1000000)
                       : QStringLiteral("goes on, the disk has space again; %1 lines are missing")
                             .arg(skippedLines)),
          now);
    skippedLines = 0;
    return !isStopped;
}

void QLog::Record::write(const QString &text, qint64 now)
{
    if (!file.isOpen() && currentFileName.isEmpty()) {
        checkFile(now); // the line before was the last of its file
    }
    const EncodedLine line = encodedLine(text);
    if (!file.isOpen()) {
        std::fwrite(line.bytes.constData(), 1, std::size_t(line.bytes.size()), stderr);
        return;
    }
    const qint64 written = qMax(file.write(line.bytes), Q_INT64_C(0));
    const qint64 reported = size + qMin<qint64>(line.reported, written);
    size += written;
    writtenSinceCheck += written;
    if (reported > maxLogSize) {
        rotateFile(now);
    }
}

void QLog::Record::checkFile(qint64 now)
{
    // A day starts on a whole minute in every time zone, so one check a minute is enough. It also
    // notices a changed time zone and a file that was truncated from outside.
    const qint64 minute = now / 60000;
    if (minute == checkedMinute) {
        return;
    }
    const QString today = fileName(now, QStringLiteral("yyyy-MM-dd"));
    if (today != currentFileName) {
        closeFile();
        currentFileName = today;
        deleteOldFiles();
        limitFolder(now);
        openPrivateFile(file, today);
    }
    size = file.size();
    checkedMinute = minute;
}

void QLog::Record::rotateFile(qint64 now)
{
    // rename() never overwrites: a second rotation within one second fails, and the file keeps
    // growing.
    file.rename(fileName(now, QStringLiteral("yyyy-MM-dd-hhmmss")));
    closeFile();
}

void QLog::Record::closeFile()
{
    if (file.isOpen()) {
        file.close();
    }
    currentFileName.clear();
    checkedMinute = neverChecked;
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

void QLog::Record::limitFolder(qint64 now) const
{
    if (maxFolderSize <= 0) {
        return;
    }
    const QFileInfoList files =
        QDir(logPath).entryInfoList(QDir::Files | QDir::Hidden, QDir::Time | QDir::Reversed);
    qint64 total = 0;
    for (const QFileInfo &each : files) {
        total += each.size();
    }
    const QString today =
        QDateTime::fromMSecsSinceEpoch(now).toString(QStringLiteral("yyyy-MM-dd"));
    for (const QFileInfo &old : files) {
        const bool isOurs = old.suffix() == QLatin1String("txt")
            && old.fileName().startsWith(name + QLatin1String("_log_"));
        if (total > maxFolderSize && isOurs && !old.fileName().contains(today)
            && QFile::remove(old.filePath())) {
            total -= old.size();
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
    setLogPath(defaultLogPath());
    // Of an earlier version, or made by a companion's script.
    ::chmod(QFile::encodeName(defaultLogPath()).constData(), 0700);
    const Lock lock;
    s_log = this;
}

QLog::~QLog()
{
    handler({});
    const Lock lock;
    s_log = nullptr;
    m_record->stopNet(); // createLogNet() works without the flag, too
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

void QLog::handleMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (t_holdsMutex || t_isNetThread) {
        return;
    }
    const Lock lock;
    if (s_log) {
        s_log->log(type, message);
    }
}

void QLog::log(QtMsgType type, const QString &message)
{
    if (type == QtWarningMsg || type == QtCriticalMsg || type == QtFatalMsg) {
        m_record->noteProblem(type, message);
    }
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

QVector<QLog::Problem> QLog::problems() const
{
    const std::lock_guard<std::mutex> lock(m_record->problemsMutex);
    const QVector<Problem> &kept = m_record->problems;
    const int first = kept.size() < mostProblems ? 0 : m_record->nextProblem;
    return kept.mid(first) + kept.mid(0, first);
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

qint64 QLog::maxFolderSize() const
{
    const Lock lock;
    return m_record->maxFolderSize;
}

void QLog::setMaxFolderSize(qint64 bytes)
{
    const Lock lock;
    m_record->maxFolderSize = bytes;
    m_record->limitFolder(m_record->clock());
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
    m_record->checkedMinute = Record::neverChecked;
    m_record->spaceCheckedAt = Record::neverChecked;
    createPrivateFolder(m_record->logPath);
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
    // Any thread that prints may get here, and a parent must live in the same thread.
    auto *thread = new QThread(QThread::currentThread() == this->thread() ? this : nullptr);
    thread->setObjectName(QStringLiteral("log-net"));
    connect(
        thread, &QThread::started, net, [] { t_isNetThread = true; }, Qt::DirectConnection);
    // Runs in the thread as it ends: sends what is still queued, then closes the port. Not
    // deleteLater(), which does nothing once the application object is gone.
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
    m_record->checkedMinute = Record::neverChecked;
    m_record->spaceCheckedAt = Record::neverChecked;
}

void QLog::setFreeSpace(FreeSpace freeSpace)
{
    const Lock lock;
    m_record->freeSpace = freeSpace ? std::move(freeSpace) : &bytesFree;
    m_record->isStopped = false;
    m_record->skippedLines = 0;
    m_record->spaceCheckedAt = Record::neverChecked;
}
