// SPDX-License-Identifier: MIT
#include "access/realpath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

namespace accesspolicy {

namespace {

// linux/openat2.h, which kernel headers before 5.6 don't have. The numbers are the same everywhere.
constexpr long openat2Number = 437;
constexpr std::uint64_t noMagicLinks = 0x02; // RESOLVE_NO_MAGICLINKS
struct OpenHow
{
    std::uint64_t flags;
    std::uint64_t mode;
    std::uint64_t resolve;
};

/// What libraries add to the names of captures and documents.
constexpr const char *addedExtensions[] = {".jpg", ".jpeg", ".tif", ".tiff",
                                           ".bmp", ".png",  ".pdf", ".ofd"};

constexpr long procMagic = 0x9fa0; // PROC_SUPER_MAGIC, linux/magic.h
constexpr int mostLinks = 40; // as the kernel follows

std::atomic<bool> s_hasOpenat2{true};

class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    Descriptor(Descriptor &&other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~Descriptor()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }

private:
    int m_descriptor = -1;
};

constexpr int pathFlags = O_PATH | O_CLOEXEC;

bool isOnProc(int descriptor)
{
    struct statfs system = {};
    return fstatfs(descriptor, &system) == 0 && system.f_type == procMagic;
}

/// Target of the link that an O_PATH descriptor refers to; empty if it isn't a link.
QByteArray targetOf(int descriptor, const char *name)
{
    std::array<char, PATH_MAX> target;
    const ssize_t length = readlinkat(descriptor, name, target.data(), target.size());
    return length > 0 ? QByteArray(target.data(), int(length)) : QByteArray();
}

/// Opens an absolute path link by link, for kernels without openat2(2). Sets errno.
Descriptor openByParts(const QByteArray &path)
{
    Descriptor at(::open("/", pathFlags));
    QByteArray rest = path;
    int links = 0;
    while (at) {
        while (rest.startsWith('/')) {
            rest.remove(0, 1);
        }
        if (rest.isEmpty()) {
            return at;
        }
        const int slash = rest.indexOf('/');
        const QByteArray part = slash < 0 ? rest : rest.left(slash);
        rest = slash < 0 ? QByteArray() : rest.mid(slash); // with its slash: a folder must follow
        Descriptor next(::openat(at.get(), part.constData(), pathFlags | O_NOFOLLOW));
        struct stat status = {};
        if (!next || fstat(next.get(), &status) != 0) {
            return {};
        }
        if (!S_ISLNK(status.st_mode)) {
            if (!rest.isEmpty() && !S_ISDIR(status.st_mode)) {
                errno = ENOTDIR;
                return {};
            }
            at = std::move(next);
            continue;
        }
        const QByteArray target = targetOf(next.get(), "");
        if (++links > mostLinks || isOnProc(next.get()) || target.isEmpty()) {
            errno = ELOOP;
            return {};
        }
        rest = target + rest;
        if (target.startsWith('/')) {
            at = Descriptor(::open("/", pathFlags));
        }
    }
    return at;
}

/// Opens an absolute path, following links, but not those of procfs. Sets errno.
Descriptor openPath(const QByteArray &path)
{
    if (s_hasOpenat2) {
        OpenHow how{pathFlags, 0, noMagicLinks};
        for (int attempt = 0; attempt < 3; ++attempt) {
            const long opened =
                syscall(openat2Number, AT_FDCWD, path.constData(), &how, sizeof how);
            if (opened >= 0) {
                return Descriptor(int(opened));
            }
            if (errno == ENOSYS || errno == EPERM) { // sandboxes answer EPERM to unknown calls
                s_hasOpenat2 = false;
                return openByParts(path);
            }
            if (errno != EAGAIN) { // something was renamed meanwhile
                break;
            }
        }
        return {};
    }
    return openByParts(path);
}

RealPath failed(const QString &problem)
{
    RealPath result;
    result.problem = problem;
    return result;
}

RealPath::Type typeOf(const struct stat &status)
{
    if (S_ISREG(status.st_mode)) {
        return RealPath::Type::File;
    }
    if (S_ISDIR(status.st_mode)) {
        return RealPath::Type::Folder;
    }
    if (S_ISLNK(status.st_mode)) {
        return RealPath::Type::Link;
    }
    return S_ISCHR(status.st_mode) ? RealPath::Type::CharacterDevice : RealPath::Type::Other;
}

/// The path under which what is open lies now.
RealPath pathOf(const Descriptor &opened)
{
    struct stat status = {};
    struct stat byName = {};
    RealPath result;
    result.path =
        targetOf(AT_FDCWD, ("/proc/self/fd/" + QByteArray::number(opened.get())).constData());
    if (result.path.isEmpty() || fstat(opened.get(), &status) != 0
        || lstat(result.path.constData(), &byName) != 0 || status.st_ino != byName.st_ino
        || status.st_dev != byName.st_dev) {
        return failed(QStringLiteral("it was replaced while it was looked at"));
    }
    result.type = typeOf(status);
    result.size = status.st_size;
    return result;
}

bool isDots(const QByteArray &name)
{
    return name == "." || name == "..";
}

/// Whether one of the files that libraries make of a name is a link already.
bool isLinkWithExtension(const Descriptor &folder, QByteArray name)
{
    const int length = name.size();
    const auto isLink = [&](const char *extension) {
        name.truncate(length);
        name += extension;
        struct stat status = {};
        return fstatat(folder.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
            && S_ISLNK(status.st_mode);
    };
    return std::any_of(std::begin(addedExtensions), std::end(addedExtensions), isLink);
}

/// Places a name in a folder that exists. The name may be a link: to nothing, or one to keep.
RealPath inFolder(const Descriptor &folder, const QByteArray &name, LastLink lastLink)
{
    RealPath result = pathOf(folder);
    if (!result.problem.isEmpty()) {
        return result;
    }
    if (result.type != RealPath::Type::Folder) {
        return failed(QStringLiteral("it goes through what is no folder"));
    }
    result.path += result.path.endsWith('/') ? name : '/' + name;
    struct stat status = {};
    if (fstatat(folder.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        result.type = typeOf(status);
        result.size = status.st_size;
    } else if (errno == ENOENT) {
        result.type = RealPath::Type::Missing;
    } else {
        return failed(QString::fromLocal8Bit(strerror(errno)));
    }
    const bool isLink = result.type == RealPath::Type::Link;
    if (isLink && lastLink == LastLink::Follow) {
        return failed(QStringLiteral("it is a link to nothing"));
    }
    if (lastLink == LastLink::None && (isLink || isLinkWithExtension(folder, name))) {
        return failed(QStringLiteral("a link has that name"));
    }
    return result;
}

RealPath follow(const QByteArray &path)
{
    if (const Descriptor opened = openPath(path)) {
        return pathOf(opened);
    }
    if (errno != ENOENT) {
        return failed(errno == ELOOP ? QStringLiteral("it goes through a link that isn't followed")
                                     : QString::fromLocal8Bit(strerror(errno)));
    }
    QByteArray folder = path;
    QByteArray missing; // below the folder that `name` would be in
    for (;;) {
        while (folder.size() > 1 && folder.endsWith('/')) {
            folder.chop(1);
        }
        const int slash = folder.lastIndexOf('/');
        const QByteArray name = folder.mid(slash + 1);
        folder = folder.left(slash + 1);
        if (name.isEmpty() || isDots(name)) {
            return failed(QStringLiteral("it goes back out of a folder that doesn't exist"));
        }
        if (const Descriptor opened = openPath(folder)) {
            RealPath result = inFolder(opened, name, LastLink::Follow);
            result.path += missing;
            return result;
        }
        if (errno != ENOENT) {
            return failed(QString::fromLocal8Bit(strerror(errno)));
        }
        missing.prepend('/' + name);
    }
}

/// Follows links up to the folder of the last name.
RealPath followToLast(const QByteArray &path, LastLink lastLink)
{
    const int slash = path.lastIndexOf('/');
    const QByteArray name = path.mid(slash + 1);
    if (name.isEmpty() || isDots(name)) {
        return failed(QStringLiteral("it names no entry of a folder"));
    }
    const Descriptor folder = openPath(path.left(slash + 1));
    return folder ? inFolder(folder, name, lastLink)
                  : failed(QString::fromLocal8Bit(strerror(errno)));
}

} // namespace

RealPath realPath(const QByteArray &path, LastLink lastLink)
{
    QByteArray absolute = path;
    if (!path.startsWith('/')) {
        std::array<char, PATH_MAX> folder;
        if (!getcwd(folder.data(), folder.size())) {
            return failed(QStringLiteral("the current folder is unknown"));
        }
        absolute = QByteArray(folder.data()) + '/' + path;
    }
    if (path.isEmpty() || path.contains('\0') || absolute.size() >= PATH_MAX) {
        return failed(QStringLiteral("it is no path"));
    }
    return lastLink == LastLink::Follow ? follow(absolute) : followToLast(absolute, lastLink);
}

void setOpenat2Used(bool used)
{
    s_hasOpenat2 = used;
}

bool isWithin(const QByteArray &path, const QByteArray &folder)
{
    return folder == "/"
        || (path.startsWith(folder)
            && (path.size() == folder.size() || path[folder.size()] == '/'));
}

} // namespace accesspolicy
