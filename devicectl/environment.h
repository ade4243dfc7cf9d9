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
        bool isLate = false; ///< was ended, or not even started, as there was no time left
        int status = -1;
        QString output{};
    };

    /// What CUPS says of a printer.
    struct Printer
    {
        bool isAnswered = false; ///< by a print service
        QString name{}; ///< empty: there is no such printer
        bool isStopped = false;
        bool isAccepting = true; ///< new jobs
        QString reasons{}; ///< of its state, as CUPS names them: "media-empty-warning"
    };

    /// A preview that was started to be measured.
    struct MeasuredPreview
    {
        double framesPerSecond = 0;
        QString problem{}; ///< why it could not be started; empty if it could
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
    /// Processes that have the file open, which may be "socket:[4711]"; for root of all users, for
    /// others their own.
    virtual QVector<qint64> holders(const QString &file) const = 0;
    virtual bool isRoot() const = 0;
    /// Whether somebody takes connections at a local socket, "/path" or "@abstract", or at
    /// "host:port".
    virtual bool accepts(const QString &address) const = 0;
    /// Readers that the PC/SC service knows; nullopt: it doesn't answer.
    virtual std::optional<QStringList> cardReaders() const = 0;
    /// \param name  empty: the default printer
    virtual Printer printer(const QString &name) const = 0;
    /// Whether a node /dev/video... captures pictures; others are decoders, metadata and so on.
    virtual bool isCamera(const QString &node) const = 0;
    /// nullopt: none was started.
    virtual std::optional<MeasuredPreview> measuredPreview() const = 0;
    /// Whether such a program is found in PATH, or is there if it is a path.
    virtual bool hasProgram(const QString &name) const = 0;
    /// Runs a program, for at most two seconds, or less when others have used up the time.
    virtual Outcome run(const QString &program, const QStringList &arguments) const = 0;
};
