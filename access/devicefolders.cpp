// SPDX-License-Identifier: MIT
#include "access/devicefolders.h"

#include <QDebug>
#include <QFile>
#include <dlfcn.h>

namespace accesspolicy {

namespace {

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
    if (isRestricted && !isDone) {
        qWarning("access: the device library is not in a process of its own: paths are decided on "
                 "before it opens them, and nothing restricts it then");
    }
}

} // namespace accesspolicy
