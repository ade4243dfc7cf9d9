// SPDX-License-Identifier: MIT
#include "access/policyparser.h"

#include "dispatch/commandfacts.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

namespace accesspolicy {

namespace {

constexpr int shortestToken = 16; // characters
constexpr qint64 longestToken = 4096;

/// Thrown within the parser only.
struct Fault
{
    int line;
    QString reason;
};

/// One "key=value" of the file.
struct Entry
{
    QString key;
    QString value;
    int line;
};

QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// The line without its comment, which begins with ";" at the start or behind a blank.
QString withoutComment(const QString &line)
{
    for (int i = 0; i < line.size(); ++i) {
        if (line[i] == QLatin1Char(';') && (i == 0 || line[i - 1].isSpace())) {
            return line.left(i);
        }
    }
    return line;
}

QStringList listFrom(const Entry &entry)
{
    QStringList list;
    const auto items = entry.value.split(QLatin1Char(','));
    for (const QString &item : items) {
        const QString text = item.trimmed();
        if (text.isEmpty() && items.size() > 1) {
            throw Fault{entry.line, QStringLiteral("%1 has an empty item").arg(entry.key)};
        }
        if (!text.isEmpty()) {
            list << text;
        }
    }
    return list;
}

bool boolFrom(const Entry &entry)
{
    if (entry.value != QLatin1String("true") && entry.value != QLatin1String("false")) {
        throw Fault{entry.line, QStringLiteral("%1 is true or false").arg(entry.key)};
    }
    return entry.value == QLatin1String("true");
}

int numberFrom(const Entry &entry, int least, int most)
{
    bool isNumber = false;
    const int number = entry.value.toInt(&isNumber);
    if (!isNumber || number < least || number > most) {
        throw Fault{
            entry.line,
            QStringLiteral("%1 is a number from %2 to %3").arg(entry.key).arg(least).arg(most)};
    }
    return number;
}

template <class Value>
Value oneOf(const Entry &entry, std::initializer_list<std::pair<const char *, Value>> values)
{
    QStringList names;
    for (const auto &[name, value] : values) {
        if (entry.value == QLatin1String(name)) {
            return value;
        }
        names << QString::fromLatin1(name);
    }
    throw Fault{entry.line,
                QStringLiteral("%1 is one of %2").arg(entry.key, names.join(QLatin1String(", ")))};
}

OriginPatterns patternsFrom(const QStringList &texts, int line)
{
    OriginPatterns patterns;
    for (const QString &text : texts) {
        QString error;
        const auto pattern = OriginPattern::from(text, &error);
        if (!pattern) {
            throw Fault{line, error};
        }
        patterns.push_back(*pattern);
    }
    return patterns;
}

OriginPatterns webPatternsFrom(const QStringList &texts, int line)
{
    for (const QString &text : texts) {
        if (!text.startsWith(QLatin1String("http://"))
            && !text.startsWith(QLatin1String("https://"))) {
            throw Fault{line, QStringLiteral("%1 is no http or https address").arg(text)};
        }
    }
    return patternsFrom(texts, line);
}

QStringList foldersFrom(const Entry &entry)
{
    QStringList folders;
    const auto texts = listFrom(entry);
    for (const QString &text : texts) {
        const bool isHome = text == QLatin1String("~") || text.startsWith(QLatin1String("~/"));
        const QString folder = isHome ? QDir::homePath() + text.mid(1) : text;
        if (!folder.startsWith(QLatin1Char('/'))) {
            throw Fault{
                entry.line,
                QStringLiteral("%1 is no absolute path and doesn't begin with ~/").arg(text)};
        }
        folders << folder;
    }
    return folders;
}

QString pathFrom(const Entry &entry)
{
    const QStringList folders = foldersFrom(entry);
    if (folders.size() != 1) {
        throw Fault{entry.line, QStringLiteral("%1 is one path").arg(entry.key)};
    }
    return folders.first();
}

/// Sets what a list of "allow" or "deny" names: families, commands, relay, pagedata, all.
void rule(Grant *grant, const Entry &entry, Grant::Ruling ruling)
{
    const auto items = listFrom(entry);
    for (const QString &item : items) {
        const bool isAll = item == QLatin1String("all");
        const bool isRelay = item == QLatin1String("relay");
        const bool isPageData = item == QLatin1String("pagedata");
        const bool isFamily = commands::isFamily(item);
        const commands::Facts *command = commands::factsOf(item);
        if (!isAll && !isRelay && !isPageData && !isFamily && !command) {
            throw Fault{entry.line,
                        QStringLiteral("%1 is neither a command nor a family").arg(item)};
        }
        for (const commands::Facts &facts : commands::all()) {
            if (isAll || command == &facts
                || (isFamily && commands::familyName(facts.family) == item)) {
                grant->commands[std::size_t(facts.index)] = ruling;
            }
        }
        if (isAll || isRelay) {
            grant->relay = ruling;
        }
        if (isAll || isPageData) {
            grant->pageData = ruling;
        }
    }
}

/// Reads the token; only its owner, this user or root, and a group may be able to.
QByteArray tokenFrom(const QString &path, int line)
{
    QFile file(path);
    struct stat status = {};
    if (!file.open(QIODevice::ReadOnly) || fstat(file.handle(), &status) != 0) {
        throw Fault{line, QStringLiteral("%1: %2").arg(path, file.errorString())};
    }
    if (!S_ISREG(status.st_mode) || (status.st_uid != 0 && status.st_uid != geteuid())
        || (status.st_mode & 027) != 0) {
        throw Fault{line,
                    QStringLiteral("%1 has to belong to root or this user, and to be neither "
                                   "writable by the group nor readable by others")
                        .arg(path)};
    }
    QByteArray token = file.read(longestToken).trimmed();
    if (token.size() < shortestToken) {
        throw Fault{
            line, QStringLiteral("%1: the token needs %2 characters").arg(path).arg(shortestToken)};
    }
    return token;
}

class Parser
{
public:
    Parser(const QString &file, const NeverFolders &never)
    {
        m_policy.file = file;
        m_policy.paths.setNever(never);
        m_policy.hosts = {{QStringLiteral("localhost"), 0},
                          {QStringLiteral("127.0.0.1"), 0},
                          {QStringLiteral("[::1]"), 0}};
    }

    Policy parse(const QByteArray &text)
    {
        const QString decoded = QString::fromUtf8(text);
        if (decoded.toUtf8() != text) {
            throw Fault{0, QStringLiteral("it is no UTF-8 text")};
        }
        int number = 0;
        const auto lines = decoded.split(QLatin1Char('\n'));
        for (const QString &line : lines) {
            readLine(withoutComment(line).trimmed(), ++number);
        }
        finish();
        return m_policy;
    }

private:
    using Read = void (Parser::*)(const Entry &entry);

    void readLine(const QString &line, int number)
    {
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) {
            return;
        }
        if (line.startsWith(QLatin1Char('['))) {
            startSection(line, number);
            return;
        }
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            throw Fault{number, QStringLiteral("neither a section nor key=value")};
        }
        const Entry entry{line.left(equals).trimmed(), line.mid(equals + 1).trimmed(), number};
        const QString name = m_section + QLatin1Char('.') + entry.key;
        if (m_policy.lines.contains(name)) {
            throw Fault{number, QStringLiteral("%1 is there twice").arg(entry.key)};
        }
        m_policy.lines.insert(name, number);
        readEntry(entry);
    }

    void startSection(const QString &line, int number)
    {
        static const QStringList known{
            QStringLiteral("policy"),  QStringLiteral("listen"), QStringLiteral("origin"),
            QStringLiteral("host"),    QStringLiteral("token"),  QStringLiteral("files"),
            QStringLiteral("upload"),  QStringLiteral("pages"),  QStringLiteral("limits"),
            QStringLiteral("preview"), QStringLiteral("log"),    QStringLiteral("audit")};
        m_section = line.mid(1, line.size() - 2).trimmed();
        m_isGrant = m_section.startsWith(QLatin1String("grant.")) && m_section.size() > 6;
        if (!line.endsWith(QLatin1Char(']')) || (!m_isGrant && !known.contains(m_section))) {
            throw Fault{number, QStringLiteral("there is no section %1").arg(line)};
        }
        if (m_policy.lines.contains(m_section)) {
            throw Fault{number, QStringLiteral("section %1 is there twice").arg(line)};
        }
        m_policy.lines.insert(m_section, number);
        if (m_isGrant) {
            Grant grant;
            grant.name = m_section;
            grant.commands.resize(std::size_t(commands::count()), Grant::Ruling::NotAllowed);
            m_policy.grants.push_back(grant);
            m_denials.push_back({QString(), QString(), 0});
        }
    }

    void readEntry(const Entry &entry)
    {
        static const QHash<QString, Read> readers = {
            {QStringLiteral("policy.version"), &Parser::version},
            {QStringLiteral("policy.mode"), &Parser::mode},
            {QStringLiteral("listen.addresses"), &Parser::listenAddresses},
            {QStringLiteral("origin.allow"), &Parser::origins},
            {QStringLiteral("host.allow"), &Parser::hosts},
            {QStringLiteral("token.required"), &Parser::tokenRequired},
            {QStringLiteral("token.file"), &Parser::tokenFile},
            {QStringLiteral("grant.origin"), &Parser::grantOrigin},
            {QStringLiteral("grant.allow"), &Parser::grantAllow},
            {QStringLiteral("grant.deny"), &Parser::grantDeny},
            {QStringLiteral("files.read"), &Parser::read},
            {QStringLiteral("files.write"), &Parser::write},
            {QStringLiteral("files.delete"), &Parser::remove},
            {QStringLiteral("files.deny_extensions"), &Parser::denyExtensions},
            {QStringLiteral("upload.hosts"), &Parser::uploadHosts},
            {QStringLiteral("pages.addresses"), &Parser::pageAddresses},
            {QStringLiteral("preview.stop_on_leave"), &Parser::stopOnLeave},
            {QStringLiteral("log.personal"), &Parser::personal},
            {QStringLiteral("audit.file"), &Parser::auditFile},
            {QStringLiteral("audit.chain"), &Parser::auditChain},
        };
        struct Number
        {
            int Policy::*member;
            int least;
            int most;
        };
        constexpr int many = 1000000;
        static const QHash<QString, Number> numbers = {
            {QStringLiteral("upload.max_mib"), {&Policy::uploadMiB, 1, many}},
            {QStringLiteral("limits.clients"), {&Policy::clients, 1, 4096}},
            {QStringLiteral("limits.clients_per_origin"), {&Policy::clientsPerOrigin, 1, 4096}},
            {QStringLiteral("limits.message_kib"), {&Policy::messageKiB, 1, 131072}},
            {QStringLiteral("limits.commands_per_second"), {&Policy::commandsPerSecond, 1, many}},
            {QStringLiteral("limits.pending_reply_mib"), {&Policy::pendingReplyMiB, 1, 256}},
            {QStringLiteral("limits.companion_wait_s"), {&Policy::companionWaitSeconds, 1, 86400}},
            {QStringLiteral("log.max_chars"), {&Policy::logChars, 16, many}},
            {QStringLiteral("log.max_mib"), {&Policy::logMiB, 1, many}},
            {QStringLiteral("audit.mib"), {&Policy::auditMiB, 1, 1024}},
            {QStringLiteral("audit.keep"), {&Policy::auditKeep, 1, 1000}},
        };
        const QString section = m_isGrant ? QStringLiteral("grant") : m_section;
        const QString name = section + QLatin1Char('.') + entry.key;
        const auto number = numbers.find(name);
        if (number != numbers.end()) {
            m_policy.*number->member = numberFrom(entry, number->least, number->most);
        } else if (const Read reader = readers.value(name)) {
            (this->*reader)(entry);
        } else {
            throw Fault{entry.line,
                        QStringLiteral("there is no key %1 in section [%2]")
                            .arg(quoted(entry.key), m_section)};
        }
    }

    void version(const Entry &entry) { numberFrom(entry, 1, 1); }
    void mode(const Entry &entry)
    {
        m_policy.mode = oneOf<Policy::Mode>(entry,
                                            {{"off", Policy::Mode::Off},
                                             {"report", Policy::Mode::Report},
                                             {"enforce", Policy::Mode::Enforce}});
    }
    void listenAddresses(const Entry &entry)
    {
        m_policy.listensOnLoopback = false;
        const auto texts = listFrom(entry);
        for (const QString &text : texts) {
            QHostAddress address;
            if (text == QLatin1String("any")) {
                m_policy.listensEverywhere = true;
            } else if (text == QLatin1String("loopback")) {
                m_policy.listensOnLoopback = true;
            } else if (address.setAddress(text)) {
                m_policy.listenAddresses << address;
            } else {
                throw Fault{entry.line, QStringLiteral("%1 is no IP address").arg(text)};
            }
        }
    }
    void origins(const Entry &entry)
    {
        m_policy.hasOrigins = true;
        m_policy.origins = patternsFrom(listFrom(entry), entry.line);
    }
    void hosts(const Entry &entry)
    {
        m_policy.hosts.clear();
        const auto texts = listFrom(entry);
        for (const QString &text : texts) {
            const auto host = hostAndPortFrom(text);
            if (!host) {
                throw Fault{entry.line, QStringLiteral("%1 is no host").arg(text)};
            }
            m_policy.hosts.push_back(*host);
        }
    }
    void tokenRequired(const Entry &entry) { m_policy.isTokenRequired = boolFrom(entry); }
    void tokenFile(const Entry &entry) { m_policy.tokenFile = pathFrom(entry); }

    Grant &grant() { return m_policy.grants.back(); }
    void grantOrigin(const Entry &entry)
    {
        grant().origins = patternsFrom(listFrom(entry), entry.line);
        grant().originLine = entry.line;
    }
    void grantAllow(const Entry &entry)
    {
        rule(&grant(), entry, Grant::Ruling::Allowed);
        grant().allowLine = entry.line;
    }
    void grantDeny(const Entry &entry)
    {
        m_denials.back() = entry; // after "allow", wherever that is
        grant().denyLine = entry.line;
    }

    void read(const Entry &entry) { folders(PathRules::Right::Read, entry); }
    void write(const Entry &entry) { folders(PathRules::Right::Write, entry); }
    void remove(const Entry &entry) { folders(PathRules::Right::Delete, entry); }
    void folders(PathRules::Right right, const Entry &entry)
    {
        m_policy.paths.setFolders(right, foldersFrom(entry));
        const QString impossible = m_policy.paths.impossibleFolder();
        if (!impossible.isEmpty()) {
            throw Fault{entry.line, QStringLiteral("no policy opens %1").arg(impossible)};
        }
    }
    void denyExtensions(const Entry &entry)
    {
        QStringList extensions = listFrom(entry);
        for (QString &extension : extensions) {
            if (extension.startsWith(QLatin1Char('.'))) {
                extension.remove(0, 1);
            }
        }
        m_policy.paths.setDeniedExtensions(extensions);
    }
    void uploadHosts(const Entry &entry)
    {
        m_policy.uploadHosts = webPatternsFrom(listFrom(entry), entry.line);
    }
    void pageAddresses(const Entry &entry)
    {
        QStringList texts = listFrom(entry);
        m_policy.showsOwnPages = texts.removeAll(QStringLiteral("own")) > 0;
        m_policy.pageAddresses = webPatternsFrom(texts, entry.line);
    }
    void stopOnLeave(const Entry &entry)
    {
        m_policy.stopOnLeave = oneOf<Policy::Leaving>(
            entry, {{"any", Policy::Leaving::Any}, {"owner", Policy::Leaving::Owner}});
    }
    void personal(const Entry &entry)
    {
        m_policy.hidesPersonal = oneOf<bool>(entry, {{"show", false}, {"hide", true}});
    }
    void auditFile(const Entry &entry)
    {
        if (entry.value.contains(QLatin1Char('/')) || entry.value.startsWith(QLatin1Char('.'))) {
            throw Fault{entry.line, QStringLiteral("file is a name, for a file beside the log")};
        }
        m_policy.auditFile = entry.value;
    }
    void auditChain(const Entry &entry) { m_policy.isAuditChained = boolFrom(entry); }

    /// What can only be said when all of the file has been read.
    void finish()
    {
        if (!m_policy.lines.contains(QStringLiteral("policy.version"))) {
            throw Fault{0, QStringLiteral("[policy] version=1 is missing")};
        }
        for (std::size_t i = 0; i < m_policy.grants.size(); ++i) {
            Grant &each = m_policy.grants[i];
            if (each.originLine == 0) {
                throw Fault{m_policy.lines.value(each.name),
                            QStringLiteral("[%1] has no origin").arg(each.name)};
            }
            if (each.denyLine != 0) {
                rule(&each, m_denials[i], Grant::Ruling::Denied);
            }
            if (!m_policy.hasOrigins) {
                m_policy.origins.insert(m_policy.origins.end(), each.origins.begin(),
                                        each.origins.end());
            }
        }
        const int line = m_policy.lineOf(QStringLiteral("token.file"));
        if (m_policy.isTokenRequired && m_policy.tokenFile.isEmpty()) {
            throw Fault{line, QStringLiteral("a token is required, but no file is named")};
        }
        if (m_policy.isTokenRequired) {
            m_policy.token = tokenFrom(m_policy.tokenFile, line);
        }
    }

    Policy m_policy;
    QString m_section;
    bool m_isGrant = false;
    std::vector<Entry> m_denials; // of the grants
};

} // namespace

int Policy::lineOf(const QString &key) const
{
    const auto found = lines.find(key);
    return found != lines.end() ? *found : lines.value(key.section(QLatin1Char('.'), 0, -2));
}

QString PolicyError::text() const
{
    return line > 0 ? QStringLiteral("%1:%2: %3").arg(file).arg(line).arg(reason)
                    : QStringLiteral("%1: %2").arg(file, reason);
}

std::optional<Policy> parsePolicy(const QByteArray &text, const QString &file,
                                  const NeverFolders &never, PolicyError *error)
{
    try {
        return Parser(file, never).parse(text);
    } catch (const Fault &fault) {
        *error = {file, fault.line, fault.reason};
        return {};
    }
}

} // namespace accesspolicy
