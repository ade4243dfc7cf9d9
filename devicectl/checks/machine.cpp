// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QRegularExpression>

#include <algorithm>

namespace checks {

namespace {

Finding memory(const Environment &environment)
{
    static const QRegularExpression available(QStringLiteral("MemAvailable: +(\\d+) kB"));
    const auto match = available.match(
        QString::fromLatin1(environment.end(QStringLiteral("/proc/meminfo"), 1 << 16)));
    const qint64 free = match.captured(1).toLongLong() / 1024;
    return free < 200
        ? warning({"the machine has %1 MiB of memory left", "内存仅剩 %1 MiB"},
                  {"end programs that are not needed", "请关闭不需要的程序"}, QString::number(free))
        : good({"the machine has %1 MiB of memory left", "内存剩余 %1 MiB"}, QString::number(free));
}

/// Whether a program of this name runs.
bool runs(const Environment &environment, const char *name)
{
    const auto processes = environment.processes();
    return std::any_of(processes.begin(), processes.end(),
                       [name](const auto &process) { return isProgram(process, name); });
}

Finding clock(const Environment &environment)
{
    if (environment.now().date().year() < 2024) {
        return fault({"the clock says %1", "时钟为 %1"},
                     {"set it: uploads to https servers fail with a wrong date",
                      "请校准：日期错误会使 https 上传失败"},
                     environment.now().toString(Qt::ISODate));
    }
    return environment.facts(QStringLiteral("/run/systemd/timesync/synchronized")).exists
            || runs(environment, "chronyd") || runs(environment, "ntpd")
        ? good({"the clock is synchronized", "时钟有同步"})
        : warning({"the clock is not synchronized", "时钟没有同步"},
                  {"enable systemd-timesyncd or chrony", "请启用 systemd-timesyncd 或 chrony"});
}

} // namespace

std::vector<Check> machineChecks()
{
    return {
        {"memory", {"memory", "内存"}, memory},
        {"clock", {"clock", "时钟"}, clock},
    };
}

} // namespace checks
