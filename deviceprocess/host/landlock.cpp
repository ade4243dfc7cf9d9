// SPDX-License-Identifier: MIT
#include "deviceprocess/host/landlock.h"

#include "base/datafolder.h"

#include <QDir>
#include <QFile>
#include <QList>
#include <QtDebug>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

namespace deviceprocess {

namespace {

// linux/landlock.h, which kernel headers before 5.13 don't have. The numbers are the same
// everywhere.
constexpr long createRuleset = 444;
constexpr long addRule = 445;
constexpr long restrictSelf = 446;
constexpr int onlyVersion = 1; // LANDLOCK_CREATE_RULESET_VERSION
constexpr int pathBeneath = 1; // LANDLOCK_RULE_PATH_BENEATH

/// Rights, as bits.
using Access = std::uint64_t;
constexpr Access Execute = Access(1) << 0;
constexpr Access WriteFile = Access(1) << 1;
constexpr Access ReadFile = Access(1) << 2;
constexpr Access ReadDir = Access(1) << 3;
constexpr Access RemoveDir = Access(1) << 4;
constexpr Access RemoveFile = Access(1) << 5;
constexpr Access MakeDir = Access(1) << 7;
constexpr Access MakeReg = Access(1) << 8;
constexpr Access MakeSock = Access(1) << 9;
constexpr Access MakeFifo = Access(1) << 10;
constexpr Access All = (Access(1) << 13) - 1; ///< of the first version
constexpr Access Refer = Access(1) << 13; ///< renaming into another folder; since version 2
constexpr Access Truncate = Access(1) << 14; ///< since version 3

constexpr Access OfFiles = Execute | WriteFile | ReadFile | Truncate;
constexpr Access Reading = ReadFile | ReadDir;
constexpr Access Running = Reading | Execute;
constexpr Access Writing =
    Reading | WriteFile | Truncate | MakeReg | MakeDir | RemoveFile | RemoveDir | Refer;
constexpr Access Deleting = ReadDir | RemoveFile | Refer;
constexpr Access Scratch = Writing | MakeSock | MakeFifo;

struct RulesetAttributes
{
    std::uint64_t handledAccess;
};

struct PathAttributes
{
    std::uint64_t allowedAccess;
    std::int32_t folder;
} __attribute__((packed));

class Ruleset
{
public:
    explicit Ruleset(int version)
        : m_handled(All | (version >= 2 ? Refer : 0) | (version >= 3 ? Truncate : 0))
    {
        const RulesetAttributes attributes{m_handled};
        m_descriptor = int(syscall(createRuleset, &attributes, sizeof attributes, 0));
    }
    ~Ruleset() { close(m_descriptor); }
    Ruleset(const Ruleset &) = delete;
    Ruleset &operator=(const Ruleset &) = delete;

    /// Allows something in a folder, or with a file. \return false, with errno set, if it can't be
    bool allow(const QByteArray &path, std::uint64_t access)
    {
        const int opened = open(path.constData(), O_PATH | O_CLOEXEC);
        struct stat status = {};
        if (opened < 0 || fstat(opened, &status) != 0) {
            return false;
        }
        const std::uint64_t possible = S_ISDIR(status.st_mode) ? m_handled : m_handled & OfFiles;
        const PathAttributes attributes{access & possible, opened};
        const bool isAdded = syscall(addRule, m_descriptor, pathBeneath, &attributes, 0) == 0;
        close(opened);
        return isAdded;
    }

    bool enforce()
    {
        return m_descriptor >= 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
            && syscall(restrictSelf, m_descriptor, 0) == 0;
    }

private:
    const std::uint64_t m_handled;
    int m_descriptor;
};

QByteArray ownFolder()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const QByteArray program(path, int(qMax<ssize_t>(length, 0)));
    return program.left(program.lastIndexOf('/'));
}

/// What every library needs, whatever the policy: what doesn't exist is left out.
void allowUsual(Ruleset *rules)
{
    for (const char *folder : {"/usr", "/lib", "/lib32", "/lib64", "/bin", "/sbin", "/opt", "/etc",
                               "/proc", "/sys", "/run", "/var/cache", "/var/lib/dbus"}) {
        rules->allow(folder, Running);
    }
    rules->allow("/dev", Scratch);
    rules->allow(QFile::encodeName(QDir::tempPath()), Scratch);
    rules->allow("/tmp", Scratch);
    rules->allow(ownFolder(), Running);
    rules->allow(qgetenv(base::dataFolderVariable), Reading);
    for (const char *variable : {"DEVICEHOST_CAMERA", "DEVICEHOST_CARDS"}) {
        const QByteArray library = qgetenv(variable);
        if (library.startsWith('/')) {
            rules->allow(library.left(library.lastIndexOf('/') + 1), Running);
        }
    }
    const QByteArray libraries = qgetenv("LD_LIBRARY_PATH");
    for (const QByteArray &folder : libraries.split(':')) {
        if (folder.startsWith('/')) {
            rules->allow(folder, Running);
        }
    }
    // Of the desktop: who may open windows and play sounds, fonts.
    const QByteArray home = QFile::encodeName(QDir::homePath());
    rules->allow(qgetenv("XAUTHORITY"), Reading);
    rules->allow(qgetenv("XDG_RUNTIME_DIR"), Reading);
    for (const char *name : {"/.Xauthority", "/.config/fontconfig", "/.config/pulse", "/.fonts",
                             "/.local/share/fonts", "/.cache/fontconfig"}) {
        rules->allow(home + name, Reading);
    }
}

/// The desktop's trash, which files are moved to before they are deleted for good.
void allowTrash(Ruleset *rules)
{
    const QByteArray data = qgetenv("XDG_DATA_HOME");
    const QString trash = data.isEmpty() ? QDir::homePath() + QStringLiteral("/.local/share/Trash")
                                         : QFile::decodeName(data) + QStringLiteral("/Trash");
    QDir().mkpath(trash);
    rules->allow(QFile::encodeName(trash), Writing);
}

void allowPolicy(Ruleset *rules, const QByteArray &folders)
{
    bool deletes = false;
    for (const QByteArray &line : folders.split('\n')) {
        const QByteArray path = line.mid(2);
        if (path.isEmpty()) {
            continue;
        }
        const char right = line[0];
        deletes = deletes || right == 'd';
        if (right == 'w') {
            QDir().mkpath(QFile::decodeName(path)); // a rule needs a folder
        }
        const auto access = right == 'w' ? Writing : right == 'd' ? Deleting : Reading;
        if (!rules->allow(path, access)) {
            qWarning("device process: %s can't be opened yet: %s", path.constData(),
                     std::strerror(errno));
        }
    }
    if (deletes) {
        allowTrash(rules);
    }
}

} // namespace

void restrictFolders(const QByteArray &folders)
{
    const long version = syscall(createRuleset, nullptr, 0, onlyVersion);
    if (version < 1) {
        qWarning("device process: not restricted to the folders of the access policy: the kernel "
                 "has no Landlock, or it is switched off (%s)",
                 std::strerror(errno));
        return;
    }
    Ruleset rules{int(version)};
    allowUsual(&rules);
    allowPolicy(&rules, folders);
    if (rules.enforce()) {
        qInfo("device process: restricted to the folders of the access policy (Landlock %ld)",
              version);
    } else {
        qWarning("device process: not restricted to the folders of the access policy: %s",
                 std::strerror(errno));
    }
}

} // namespace deviceprocess
