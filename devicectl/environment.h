// SPDX-License-Identifier: MIT
#pragma once

#include "access/policyfile.h"
#include "devicectl/places.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>
#include <sys/types.h>

#include <optional>

/// What the checks see of the machine; tests have one of their own.
class Environment
{
public:
    struct FileFacts
    {
        bool exists = false;
        bool isReadable = false; ///< by this user, as the two below
        bool isWritable = false;
        bool isExecutable = false;
        int mode = 0; ///< permission bits
        uid_t owner = 0;
        qint64 size = 0; ///< of a file
    };

    struct Process
    {
        qint64 id = 0;
        QString commandLine; ///< arguments separated by blanks
        QString user{}; ///< name, or number of one without a name
    };

    struct Outcome
    {
        bool isStarted = false; ///< and ended in time
        int status = -1;
        QString output;
    };

    Environment() = default;
    virtual ~Environment();
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

    virtual Places places() const = 0;
    /// The report of the server; nullopt: it doesn't answer.
    virtual std::optional<QJsonObject> status() const = 0;
    virtual accesspolicy::FoundPolicy policy() const = 0;
    virtual QDateTime now() const = 0;
    virtual QString variable(const char *name) const = 0;
    virtual FileFacts facts(const QString &path) const = 0;
    /// The end of a file, at most so many bytes; empty if it can't be read.
    virtual QByteArray end(const QString &path, qint64 most = 1 << 20) const = 0;
    /// Names in a folder, sorted.
    virtual QStringList entries(const QString &folder) const = 0;
    virtual qint64 freeBytes(const QString &folder) const = 0;
    virtual QVector<Process> processes() const = 0;
    /// Processes of this user that have the file open, which may be "socket:[4711]".
    virtual QVector<qint64> holders(const QString &file) const = 0;
    /// Whether such a program is found in PATH, or is there if it is a path.
    virtual bool hasProgram(const QString &name) const = 0;
    /// Runs a program, for at most two seconds.
    virtual Outcome run(const QString &program, const QStringList &arguments) const = 0;
};
