// SPDX-License-Identifier: MIT
#include "access/argumentrules.h"

#include "dispatch/arguments.h"

#include <QFile>
#include <QUrl>

#include <algorithm>

namespace accesspolicy {

using commands::Use;

namespace {

constexpr qint64 MiB = qint64(1024) * 1024;

/// Devices that card readers are on; a device is never a file of [files].
constexpr const char *readerDevices[] = {"/dev/tty", "/dev/rfcomm", "/dev/usb/", "/dev/hidraw",
                                         "/dev/bus/usb/"};

Refusal refusal(const QString &reason, const char *key)
{
    return {reason, QString::fromLatin1(key), 403};
}

bool hasControlCharacter(const QString &text)
{
    return std::any_of(text.begin(), text.end(), [](QChar character) {
        return character.category() == QChar::Other_Control;
    });
}

/// Splits off the fields that the facts are about, at most.
std::vector<QStringRef> fieldsOf(const QString &message, const commands::ArgumentUses &uses)
{
    const int open = message.indexOf(QLatin1Char('('));
    const int start = open < 0 ? message.size() : open + 1;
    const int end = qMax(start, message.size() - 1);
    std::vector<QStringRef> fields;
    for (int at = start; int(fields.size()) < uses.count;) {
        const int comma = uses.isWhole ? -1 : message.indexOf(QLatin1Char(','), at);
        if (comma < 0 || comma >= end) {
            fields.push_back(message.midRef(at, end - at));
            break;
        }
        fields.push_back(message.midRef(at, comma - at));
        at = comma + 1;
    }
    return fields;
}

} // namespace

ArgumentRules::ArgumentRules(const Policy &policy, const commands::Facts &facts,
                             const QString &message, const QByteArray &ownPages)
    : m_policy(policy)
    , m_facts(facts)
    , m_message(message)
    , m_ownPages(ownPages)
    , m_fields(fieldsOf(message, facts.arguments))
    , m_replaced(m_fields.size())
{
}

std::optional<Refusal> ArgumentRules::decide()
{
    for (int i = 0; i < m_facts.arguments.count; ++i) {
        const Use use = m_facts.arguments.uses[std::size_t(i)];
        if (use == Use::OwnPageData && !m_policy.showsOwnPages) {
            return refusal(QStringLiteral("the pages of webSite/ are not in pages.addresses"),
                           "pages.addresses");
        }
        // Of an empty text the library gets nothing to open; but it may take the page on an empty
        // host for one.
        const bool isServer = use == Use::UploadHost || use == Use::UploadAddress;
        if (!has(i) || (text(i).isEmpty() && !isServer)) {
            continue;
        }
        if (Verdict refused = decideOn(use, i)) {
            return refused;
        }
    }
    return {};
}

std::optional<Refusal> ArgumentRules::decideOn(Use use, int index)
{
    const PathRules &paths = m_policy.paths;
    const int before = index - 1;
    switch (use) {
    case Use::ReadFile:
    case Use::ReadFolder:
        return readFile(index);
    case Use::ReadFileIfSwitch:
        return numberFrom<int>(text(before)) != 0 ? readFile(index) : Verdict();
    case Use::WriteFile:
    case Use::WriteFolder:
        return apply(index, paths.decide(text(index), PathRules::Right::Write));
    case Use::DeleteFile:
        return apply(index, paths.decideEntry(text(index), PathRules::Right::Delete));
    case Use::MoveFile:
        return moveFile(index);
    case Use::SignedFile:
        return signedFile(index);
    case Use::NewName:
        return newName(index);
    case Use::Folder:
        return folder(index);
    case Use::Name:
        return newFile(before, index);
    case Use::Prefix:
        return prefix(before, index);
    case Use::Pattern:
        return text(index).contains(QLatin1Char('/'))
            ? Verdict(refusal(QStringLiteral("a pattern of names has a /"), "files.read"))
            : Verdict();
    case Use::UploadAddress:
        return uploadTo(originOfAddress(text(index), "http"));
    case Use::UploadHost:
        return uploadHost(index);
    case Use::UploadPage:
        return hasControlCharacter(text(index)) || text(index).contains(QLatin1Char('\\'))
                || QStringLiteral("@:.").contains(text(index)[0])
            ? Verdict(refusal(QStringLiteral("it is no path on a server"), "upload.hosts"))
            : Verdict();
    case Use::UploadFile:
        return uploadFile(index);
    case Use::UploadRemoves:
        return uploadRemoves(index);
    case Use::PageAddress:
        return page(index);
    case Use::DevicePort:
        return devicePort(index);
    case Use::Other:
    case Use::Base64:
    case Use::Switch:
    case Use::UploadPort: // with its host
    case Use::OwnPageData:
        break;
    }
    return {};
}

std::optional<Refusal> ArgumentRules::replace(int index, const QByteArray &path)
{
    const QString real = QString::fromUtf8(path);
    if (!m_facts.arguments.isWhole && real.contains(QLatin1Char(','))) {
        return refusal(QStringLiteral("the real path has a comma"), "");
    }
    if (real != text(index)) {
        m_replaced[std::size_t(index)] = real;
    }
    return {};
}

std::optional<Refusal> ArgumentRules::apply(int index, const PathRules::Answer &answer)
{
    if (answer.isAllowed) {
        return replace(index, answer.path);
    }
    const QString key =
        *answer.key ? QLatin1String("files.") + QLatin1String(answer.key) : QString();
    return Refusal{answer.reason, key, 403};
}

std::optional<Refusal> ArgumentRules::readFile(int index)
{
    return apply(index, m_policy.paths.decide(text(index), PathRules::Right::Read));
}

/// A link is moved itself; but what it leads to must be readable, for it keeps leading there.
std::optional<Refusal> ArgumentRules::moveFile(int index)
{
    if (Verdict refused = readFile(index)) {
        return refused;
    }
    m_replaced[std::size_t(index)] = QString();
    return apply(index, m_policy.paths.decideEntry(text(index), PathRules::Right::Delete));
}

std::optional<Refusal> ArgumentRules::signedFile(int index)
{
    const PathRules::Answer written =
        m_policy.paths.decideEntry(text(index), PathRules::Right::Write);
    return written.isAllowed ? readFile(index) : apply(index, written);
}

std::optional<Refusal> ArgumentRules::newName(int index)
{
    QString path = text(index);
    if (!path.contains(QLatin1Char('/'))) {
        const QString &moved = m_replaced[std::size_t(index - 1)];
        const QString from = moved.isNull() ? text(index - 1) : moved;
        path = from.left(from.lastIndexOf(QLatin1Char('/')) + 1) + path;
    }
    return apply(index, m_policy.paths.decide(path, PathRules::Right::Write));
}

/// A folder for files that are named by the next argument; decided with that, if it is there.
std::optional<Refusal> ArgumentRules::folder(int index)
{
    return !text(index + 1).isEmpty()
        ? Verdict()
        : apply(index, m_policy.paths.decide(text(index), PathRules::Right::Write));
}

std::optional<Refusal> ArgumentRules::newFile(int folder, int name)
{
    const PathRules::Answer answer =
        m_policy.paths.decideNew(text(folder) + QLatin1Char('/') + text(name));
    if (!answer.isAllowed) {
        return apply(name, answer);
    }
    const int slash = answer.path.lastIndexOf('/');
    const Verdict refused = replace(folder, slash == 0 ? QByteArray("/") : answer.path.left(slash));
    return refused ? refused : replace(name, answer.path.mid(slash + 1));
}

std::optional<Refusal> ArgumentRules::prefix(int folder, int name)
{
    if (text(folder).isEmpty()) { // ends a scan
        return text(name).contains(QLatin1Char('/'))
            ? Verdict(refusal(QStringLiteral("a prefix without a folder has a /"), "files.write"))
            : Verdict();
    }
    const QString number = QStringLiteral("001");
    const PathRules::Answer answer = m_policy.paths.decideEntry(
        text(folder) + QLatin1Char('/') + text(name) + number, PathRules::Right::Write);
    if (!answer.isAllowed) {
        return apply(name, answer);
    }
    const int slash = answer.path.lastIndexOf('/');
    const Verdict refused = replace(folder, slash == 0 ? QByteArray("/") : answer.path.left(slash));
    const QByteArray file = answer.path.mid(slash + 1);
    return refused ? refused : replace(name, file.left(file.size() - number.size()));
}

std::optional<Refusal> ArgumentRules::uploadHost(int index)
{
    auto server = originOfAddress(text(index), "http");
    const long port = numberFrom<long>(text(index + 2));
    if (server && port != 0) {
        server->port = int(qBound(-1L, port, 65536L)); // what is no port matches no pattern
    }
    return uploadTo(server);
}

std::optional<Refusal> ArgumentRules::uploadTo(const std::optional<Origin> &server)
{
    if (!server) {
        return refusal(QStringLiteral("the address is malformed"), "upload.hosts");
    }
    return matches(m_policy.uploadHosts, *server)
        ? Verdict()
        : Verdict(refusal(QStringLiteral("%1 is not in upload.hosts").arg(server->text()),
                          "upload.hosts"));
}

std::optional<Refusal> ArgumentRules::uploadFile(int index)
{
    const PathRules::Answer answer = m_policy.paths.decide(text(index), PathRules::Right::Read);
    return answer.isAllowed && answer.size > m_policy.uploadMiB * MiB ? Verdict(
               refusal(QStringLiteral("the file is larger than upload.max_mib"), "upload.max_mib"))
                                                                      : apply(index, answer);
}

std::optional<Refusal> ArgumentRules::uploadRemoves(int index)
{
    const auto &uses = m_facts.arguments.uses;
    const int file = int(std::find(uses.begin(), uses.end(), Use::UploadFile) - uses.begin());
    if (numberFrom<int>(text(index)) == 0) {
        return {};
    }
    const PathRules::Answer answer =
        m_policy.paths.decideEntry(text(file), PathRules::Right::Delete);
    return answer.isAllowed ? Verdict() : apply(file, answer);
}

std::optional<Refusal> ArgumentRules::page(int index)
{
    const QString address = text(index);
    const QUrl url(address);
    const bool isFileUrl = url.scheme() == QLatin1String("file") && url.host().isEmpty();
    if (address.startsWith(QLatin1Char('/')) || isFileUrl) {
        const QString path = isFileUrl ? url.toLocalFile() : address;
        const RealPath real = realPath(QFile::encodeName(path));
        const bool isOwn = m_policy.showsOwnPages && real.problem.isEmpty()
            && real.type == RealPath::Type::File && isWithin(real.path, m_ownPages);
        return isOwn ? replace(index, real.path)
                     : Verdict(refusal(QStringLiteral("the file is none of the own pages"),
                                       "pages.addresses"));
    }
    const auto server = originOfAddress(address, nullptr);
    if (!server) {
        return refusal(QStringLiteral("the address is malformed"), "pages.addresses");
    }
    return matches(m_policy.pageAddresses, *server)
        ? Verdict()
        : Verdict(refusal(QStringLiteral("%1 is not in pages.addresses").arg(server->text()),
                          "pages.addresses"));
}

std::optional<Refusal> ArgumentRules::devicePort(int index)
{
    const QString port = text(index);
    if (!port.contains(QLatin1Char('/')) && !hasControlCharacter(port)) {
        return {}; // a name that only the library knows
    }
    const RealPath real = realPath(QFile::encodeName(port));
    const bool isDevice = real.problem.isEmpty()
        && (real.type == RealPath::Type::CharacterDevice || real.type == RealPath::Type::Missing)
        && std::any_of(std::begin(readerDevices), std::end(readerDevices),
                       [&](const char *device) { return real.path.startsWith(device); });
    return isDevice ? replace(index, real.path)
                    : Verdict(refusal(QStringLiteral("it is no device of a card reader"), ""));
}

QString ArgumentRules::message() const
{
    const auto isReplaced = [](const QString &text) { return !text.isNull(); };
    if (std::none_of(m_replaced.begin(), m_replaced.end(), isReplaced)) {
        return m_message;
    }
    QString result;
    int copied = 0;
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        if (isReplaced(m_replaced[i])) {
            result += m_message.midRef(copied, m_fields[i].position() - copied);
            result += m_replaced[i];
            copied = m_fields[i].position() + m_fields[i].size();
        }
    }
    return result + m_message.midRef(copied);
}

} // namespace accesspolicy
