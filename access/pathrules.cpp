// SPDX-License-Identifier: MIT
#include "access/pathrules.h"

#include <QDir>
#include <QFile>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>

namespace accesspolicy {

namespace {

const char *keyOf(PathRules::Right right)
{
    switch (right) {
    case PathRules::Right::Read:
        return "read";
    case PathRules::Right::Write:
        return "write";
    case PathRules::Right::Delete:
        break;
    }
    return "delete";
}

bool isPlain(QChar character)
{
    return character >= QLatin1Char(' ') && character <= QLatin1Char('~');
}

/// Why a path isn't one that all layers below read alike; empty if it is.
QString textProblem(const QString &path)
{
    if (std::all_of(path.begin(), path.end(), isPlain)) {
        return {}; // nearly all; what follows takes longer
    }
    for (int i = 0; i < path.size(); ++i) {
        const QChar character = path[i];
        if (character.category() == QChar::Other_Control) {
            return QStringLiteral("the path has control characters");
        }
        const bool isPair =
            character.isHighSurrogate() && i + 1 < path.size() && path[i + 1].isLowSurrogate();
        if (character.isSurrogate() && !isPair) {
            return QStringLiteral("the path has half a character");
        }
        i += isPair ? 1 : 0;
    }
    return QFile::encodeName(path) == path.toUtf8()
        ? QString()
        : QStringLiteral("the path can't be written in this locale");
}

PathRules::Answer refused(const char *key, const QString &reason)
{
    PathRules::Answer answer;
    answer.key = key;
    answer.reason = reason;
    return answer;
}

/// Where a folder lies now; where it would be, if it doesn't exist; else as it was written.
QByteArray placeOf(const QByteArray &folder)
{
    const RealPath real = realPath(folder);
    return real.problem.isEmpty() ? real.path : folder;
}

/// Whether two paths end with the same name.
bool endAlike(const QByteArray &one, const QByteArray &other)
{
    return one.mid(one.lastIndexOf('/')) == other.mid(other.lastIndexOf('/'));
}

} // namespace

NeverFolders NeverFolders::of(const QStringList &own)
{
    NeverFolders never;
    never.folders = {"/proc", "/sys", "/dev"};
    for (const QString &folder : own) {
        never.folders.push_back(placeOf(QFile::encodeName(folder)));
    }
    never.homes.push_back(placeOf(QFile::encodeName(QDir::homePath())));
    const passwd *user = getpwuid(getuid());
    if (user && user->pw_dir && *user->pw_dir == '/') {
        never.homes.push_back(placeOf(user->pw_dir));
    }
    return never;
}

bool NeverFolders::contains(const QByteArray &path) const
{
    const auto isInside = [&](const QByteArray &folder) { return isWithin(path, folder); };
    const auto isHidden = [&](const QByteArray &home) {
        return home != "/" && isWithin(path, home) && path.indexOf("/.", home.size()) >= 0;
    };
    return std::any_of(folders.begin(), folders.end(), isInside)
        || std::any_of(homes.begin(), homes.end(), isHidden);
}

const QByteArray &PathRules::Folder::real() const
{
    if (place.isEmpty()) {
        const RealPath found = realPath(path);
        if (found.type != RealPath::Type::Folder) {
            return path;
        }
        place = found.path;
    }
    return place;
}

const std::vector<PathRules::Folder> &PathRules::of(Right right) const
{
    return right == Right::Read ? m_read : right == Right::Write ? m_write : m_delete;
}

void PathRules::setFolders(Right right, const QStringList &folders)
{
    auto &list = right == Right::Read ? m_read : right == Right::Write ? m_write : m_delete;
    list.clear();
    for (const QString &folder : folders) {
        list.push_back({QFile::encodeName(folder), {}});
        list.back().real();
    }
}

void PathRules::setDeniedExtensions(const QStringList &extensions)
{
    m_deniedExtensions.clear();
    for (const QString &extension : extensions) {
        m_deniedExtensions << extension.toLower();
    }
}

QString PathRules::impossibleFolder() const
{
    for (const Right right : {Right::Read, Right::Write, Right::Delete}) {
        for (const Folder &folder : of(right)) {
            if (m_never.contains(placeOf(folder.path))) {
                return QFile::decodeName(folder.path);
            }
        }
    }
    return {};
}

QStringList PathRules::folders(Right right) const
{
    QStringList list;
    for (const Folder &folder : of(right)) {
        list << QFile::decodeName(folder.path);
    }
    return list;
}

bool PathRules::isInFolders(const QByteArray &path, Right right) const
{
    const auto &list = of(right);
    const auto contains = [&](const Folder &folder) {
        return !folder.place.isEmpty() && isWithin(path, folder.place);
    };
    // Those that don't exist yet are looked for only if no other has it: that takes long.
    return std::any_of(list.begin(), list.end(), contains)
        || std::any_of(list.begin(), list.end(), [&](const Folder &folder) {
               return folder.place.isEmpty() && isWithin(path, folder.real());
           });
}

/// Any part of the name counts: "libx.so.1" is a library.
bool PathRules::hasDeniedExtension(const QByteArray &path) const
{
    const QByteArray file = path.mid(path.lastIndexOf('/') + 1);
    if (!file.contains('.')) {
        return false; // like most captures
    }
    const QString name = QFile::decodeName(file).toLower();
    const auto parts = name.splitRef(QLatin1Char('.'));
    return std::any_of(parts.begin() + 1, parts.end(), [&](const QStringRef &part) {
        const QStringRef extension = part.trimmed();
        return std::any_of(m_deniedExtensions.begin(), m_deniedExtensions.end(),
                           [&](const QString &denied) { return extension == denied; });
    });
}

PathRules::Answer PathRules::decided(const QString &path, Right right, LastLink lastLink) const
{
    const QString problem = textProblem(path);
    if (!problem.isEmpty()) {
        return refused(keyOf(right), problem);
    }
    const QByteArray bytes = QFile::encodeName(path);
    const RealPath real = realPath(bytes, lastLink);
    if (!real.problem.isEmpty()) {
        return refused(keyOf(right), real.problem);
    }
    if (QString::fromUtf8(real.path).toUtf8() != real.path) {
        return refused(keyOf(right), QStringLiteral("the real path is no UTF-8"));
    }
    if (real.type == RealPath::Type::CharacterDevice || real.type == RealPath::Type::Other) {
        return refused(keyOf(right), QStringLiteral("it is no file and no folder"));
    }
    if (m_never.contains(real.path)) {
        return refused("", QStringLiteral("no policy opens this folder"));
    }
    if (hasDeniedExtension(real.path)
        || (!endAlike(real.path, bytes) && hasDeniedExtension(bytes))) {
        return refused("deny_extensions", QStringLiteral("the extension is denied"));
    }
    if (!isInFolders(real.path, right)) {
        return refused(keyOf(right),
                       QStringLiteral("it is in none of the folders of files.%1")
                           .arg(QLatin1String(keyOf(right))));
    }
    Answer answer;
    answer.isAllowed = true;
    answer.path = real.path;
    answer.type = real.type;
    answer.size = real.size;
    return answer;
}

PathRules::Answer PathRules::decide(const QString &path, Right right) const
{
    return decided(path, right, LastLink::Follow);
}

PathRules::Answer PathRules::decideEntry(const QString &path, Right right) const
{
    return decided(path, right, LastLink::Keep);
}

PathRules::Answer PathRules::decideNew(const QString &path) const
{
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    const QString dots = QStringLiteral("..");
    if (name.isEmpty() || dots.startsWith(name)) {
        return refused(keyOf(Right::Write), QStringLiteral("it has no name"));
    }
    return decided(path, Right::Write, LastLink::None);
}

} // namespace accesspolicy
