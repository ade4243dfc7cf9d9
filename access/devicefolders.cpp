// SPDX-License-Identifier: MIT
#include "access/devicefolders.h"

#include <QDebug>
#include <QFile>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace accesspolicy {

namespace {

/// linux/landlock.h; what the device process is restricted by.
bool hasLandlock()
{
    constexpr long createRuleset = 444;
    constexpr int onlyVersion = 1;
    return syscall(createRuleset, nullptr, 0, onlyVersion) > 0;
}

/// Of our stub library alone; a maker's library in the server itself doesn't have it.
using SetFolders = bool (*)(const char *folders);

QByteArray lines(const PathRules &paths)
{
    QByteArray text;
    const std::pair<char, PathRules::Right> rights[] = {{'r', PathRules::Right::Read},
                                                        {'w', PathRules::Right::Write},
                                                        {'d', PathRules::Right::Delete}};
    for (const auto &[letter, right] : rights) {
        const auto folders = paths.folders(right);
        for (const QString &folder : folders) {
            text += letter + (' ' + QFile::encodeName(folder)) + '\n';
        }
    }
    return text;
}

} // namespace

void restrictDeviceProcess(const Policy *policy)
{
    const bool isRestricted = policy && policy->mode == Policy::Mode::Enforce;
    const auto setFolders =
        reinterpret_cast<SetFolders>(dlsym(RTLD_DEFAULT, "restrictDeviceProcess"));
    const bool isDone =
        setFolders && setFolders(isRestricted ? lines(policy->paths).constData() : nullptr);
    if (isRestricted && (!isDone || !hasLandlock())) {
        qWarning("access: paths are decided on before the device library opens them, and nothing "
                 "restricts it then: %s",
                 isDone ? "the kernel has no Landlock, or it is switched off"
                        : "it is not in a process of its own");
    }
}

} // namespace accesspolicy
