// SPDX-License-Identifier: MIT
/// \file Files, texts and other programs, for tests.
#pragma once

#include <QDirIterator>
#include <QProcess>
#include <QtTest>
#include <sys/resource.h>

#include <csignal>

inline QString line(const char *text)
{
    return QString::fromUtf8(text);
}

/// A text as C functions take it, for as long as the expression lasts.
class Utf8
{
public:
    explicit Utf8(const QString &text)
        : bytes(text.toUtf8())
    {
    }
    operator const char *() const { return bytes.constData(); }
    const QByteArray bytes;
};

/// Empty when there is no such file.
inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// In a folder that is made when it is missing.
inline void writeFile(const QString &path, const QByteArray &content = "content")
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

/// Everything below a folder, hidden entries too, sorted; links as "name -> target".
inline QStringList everythingIn(const QString &folder)
{
    QStringList entries;
    QDirIterator each(folder, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (each.hasNext()) {
        const QFileInfo entry(each.next());
        const QString name = entry.filePath().mid(folder.size() + 1);
        entries << (entry.isSymLink() ? name + line(" -> ") + entry.symLinkTarget() : name);
    }
    entries.sort();
    return entries;
}

/// What a program prints; the test fails when the program does, or complains.
inline QByteArray outputOf(const char *program, const QStringList &arguments)
{
    QProcess process;
    process.start(line(program), arguments);
    const bool ended = process.waitForFinished() && process.exitCode() == 0;
    const QByteArray complaint = process.readAllStandardError();
    if (!ended || !complaint.isEmpty()) {
        const QByteArray why = program + (": " + process.errorString().toUtf8()) + ' ' + complaint;
        QTest::qFail(why.constData(), __FILE__, __LINE__);
    }
    return process.readAllStandardOutput();
}

/// "-r 50 -png": its words.
inline QStringList words(const char *text)
{
    return line(text).split(QLatin1Char(' '));
}

/// While it lives, no file of this process grows beyond it: as on a full disk.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : m_handler(std::signal(SIGXFSZ, SIG_IGN)) // so that writing fails
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    void (*m_handler)(int);
    rlimit m_before{};
};
