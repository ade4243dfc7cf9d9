// SPDX-License-Identifier: MIT
#include "portable/card/speech.h"

#include "portable/base/failure.h"

#include <QStandardPaths>
#include <QStringList>
#include <QtDebug>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <mutex>
#include <vector>

namespace portable {

namespace {

constexpr const char *prompts[] = {
    "请放置身份证", "请插入社保卡",     "请插入银行卡", "请放置卡片",
    "读卡成功",     "读卡失败，请重试", "请取走卡片",   "请输入密码",
    "请正视摄像头", "请按指纹",         "请在屏上签名", "谢谢",
};

bool logUnspoken(const QString &why)
{
    return logFailure("a prompt isn't spoken", why);
}

/// The speech program of this machine with its options for Chinese; empty without one.
QStringList findCommand()
{
    const QStringList known[] = {
        {QStringLiteral("espeak-ng"), QStringLiteral("-v"), QStringLiteral("cmn")},
        {QStringLiteral("spd-say"), QStringLiteral("-l"), QStringLiteral("zh")},
    };
    for (const QStringList &command : known) {
        const QString path = QStandardPaths::findExecutable(command.first());
        if (!path.isEmpty()) {
            return QStringList{path} + command.mid(1);
        }
    }
    return {};
}

/// Starts a program without waiting for its end; the caller reaps it with waitpid.
bool start(const QStringList &command, pid_t *process)
{
    std::vector<QByteArray> words;
    for (const QString &word : command) {
        words.push_back(word.toLocal8Bit());
    }
    std::vector<char *> arguments;
    for (QByteArray &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    }
    const int error =
        posix_spawn(process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 || logUnspoken(qt_error_string(error));
}

} // namespace

QString prompt(int number)
{
    const int count = int(std::size(prompts));
    return number >= 1 && number <= count ? QString::fromUtf8(prompts[number - 1]) : QString();
}

bool speak(const QString &text)
{
    static std::mutex mutex;
    static pid_t speech = 0; // process of the last prompt, 0 once it has ended; guarded by mutex
    const std::lock_guard<std::mutex> lock(mutex);
    if (speech > 0 && ::waitpid(speech, nullptr, WNOHANG) == 0) {
        return logUnspoken(QStringLiteral("the previous one is still being spoken"));
    }
    speech = 0;
    const QStringList command = findCommand();
    return command.isEmpty()
        ? logUnspoken(QStringLiteral("neither espeak-ng nor spd-say is installed"))
        : start(command + QStringList{text}, &speech);
}

} // namespace portable
