// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/environment.h"
#include "devicectl/texts.h"

#include <QDate>
#include <QJsonObject>
#include <QJsonValue>

/// What a check has found.
struct Finding
{
    enum class Level { Good, Warning, Fault };

    Level level = Level::Good;
    QString meaning;
    QString advice; ///< what to do; empty for a good one
};

/// A line of `devicectl doctor`.
struct Check
{
    const char *id; ///< for programs
    Text title;
    Finding (*look)(const Environment &environment);
};

/// What the checks share.
namespace checks {

constexpr qint64 MiB = qint64(1) << 20;
constexpr qint64 GiB = qint64(1) << 30;

constexpr Text startIt = {"start the server, then check again", "启动服务后再检查"};

// Findings in the language of the user; the value replaces "%1" in the meaning.
Finding good(const Text &meaning, const QString &value = {});
Finding bad(Finding::Level level, const Text &meaning, const Text &advice,
            const QString &value = {});
Finding warning(const Text &meaning, const Text &advice, const QString &value = {});
Finding fault(const Text &meaning, const Text &advice, const QString &value = {});

/// Of a check that needs the server's status, when there is none.
Finding unknown();

/// Of a check whose program has used up its time.
Finding tooLate(const char *program);

/// Makes the `look` of a check from a function of the server's status alone; unknown() without one.
template <Finding (*look)(const QJsonObject &status)>
Finding withStatus(const Environment &environment)
{
    const auto status = environment.status();
    return status ? look(*status) : unknown();
}

/// With commas.
QString join(const QStringList &list);

/// A member of an object of the server's status; undefined if there is none.
QJsonValue member(const QJsonObject &status, const char *object, const char *name);

/// A member of the server's status; undefined if it doesn't answer.
QJsonValue statusMember(const Environment &environment, const char *name);

/// The value of a key in an INI file of the server's settings; empty if it isn't there.
QString setting(const Environment &environment, const char *file, const char *key);

/// What was logged on a day, in all files of that day; of more than 16 MiB the newest.
QByteArray logOfDay(const Environment &environment, const QDate &day);

/// Whether the program file has this name; its path may hold the name, too.
bool isProgram(const Environment::Process &process, const char *name);

bool isServer(const Environment::Process &process);

} // namespace checks
