// SPDX-License-Identifier: MIT
#include "devicectl/policyadvice.h"

#include "access/doorkeeper.h"
#include "devicectl/servertexts.h"
#include "devicectl/texts.h"
#include "dispatch/commandfacts.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QMap>

#include <algorithm>

using accesspolicy::Grant;
using accesspolicy::Origin;
using accesspolicy::PathRules;
using accesspolicy::Policy;

namespace {

struct Row
{
    QString origin;
    QString rule;
    QString what;
    qint64 count;
};

std::vector<Row> rowsOf(const QJsonArray &report)
{
    std::vector<Row> rows;
    for (const QJsonValue &value : report) {
        const QJsonObject row = value.toObject();
        const auto text = [&row](const char *name) {
            return row.value(QLatin1String(name)).toString();
        };
        rows.push_back({text("origin"), text("rule"), text("what"),
                        qint64(row.value(QStringLiteral("count")).toDouble())});
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row &a, const Row &b) { return a.count > b.count; });
    return rows;
}

std::optional<Origin> originOf(const QString &text)
{
    if (text == QLatin1String("none")) {
        return Origin();
    }
    return accesspolicy::originFrom(text == QLatin1String("file") ? QStringLiteral("null") : text);
}

/// Allowed names of a grant: of a family if all of its commands are, else of the commands.
QStringList allowedBy(const Grant &grant)
{
    QMap<QString, QStringList> allowed; // by family
    QMap<QString, int> sizes;
    for (const commands::Facts &facts : commands::all()) {
        const QString family = commands::familyName(facts.family);
        ++sizes[family];
        if (grant.commands[std::size_t(facts.index)] == Grant::Ruling::Allowed) {
            allowed[family] << facts.name;
        }
    }
    QStringList names;
    for (auto family = allowed.cbegin(); family != allowed.cend(); ++family) {
        names << (family->size() == sizes[family.key()] ? QStringList{family.key()} : *family);
    }
    if (grant.relay == Grant::Ruling::Allowed) {
        names << QStringLiteral("relay");
    }
    if (grant.pageData == Grant::Ruling::Allowed) {
        names << QStringLiteral("pagedata");
    }
    return names;
}

const Grant *grantFor(const Policy &policy, const Origin &origin)
{
    const auto found =
        std::find_if(policy.grants.begin(), policy.grants.end(),
                     [&](const Grant &grant) { return matches(grant.origins, origin); });
    return found == policy.grants.end() ? nullptr : &*found;
}

/// How a grant names what was refused; empty for what no grant allows.
QString grantable(const QString &what)
{
    if (what == QLatin1String("#")) {
        return QStringLiteral("relay");
    }
    if (what == QLatin1String("@")) {
        return QStringLiteral("pagedata");
    }
    return commands::factsOf(what) ? what : QString();
}

/// Whether a grant, or that there is none, was the reason; others are folders, hosts, limits.
bool isByGrant(const QString &rule)
{
    static const char *const others[] = {"files", "upload", "pages",  "limits",
                                         "host",  "token",  "listen", "origin"};
    return std::none_of(std::begin(others), std::end(others), [&rule](const char *section) {
        return rule == QLatin1String(section)
            || rule.startsWith(QLatin1String(section) + QLatin1Char('.'));
    });
}

QString listOr(const QStringList &list, const Text &none)
{
    return list.isEmpty() ? said(none) : list.join(QStringLiteral(", "));
}

constexpr Text nothing = {"nothing", "无"};

} // namespace

QStringList explained(const Policy &policy)
{
    QStringList lines;
    switch (policy.mode) {
    case Policy::Mode::Off:
        lines << said({"mode off: nothing is decided", "模式 off：不作任何判断"});
        break;
    case Policy::Mode::Report:
        lines << said({"mode report: refusals are only reported", "模式 report：只报告，不拒绝"});
        break;
    case Policy::Mode::Enforce:
        lines << said(
            {"mode enforce: what is not allowed is refused", "模式 enforce：未允许的均拒绝"});
        break;
    }
    if (policy.isTokenRequired) {
        lines << said({"pages need the token of %1", "网页需要 %1 中的令牌"}).arg(policy.tokenFile);
    }
    for (const Grant &grant : policy.grants) {
        lines << said({"%1 (line %2) allows: %3", "%1（第 %2 行）允许：%3"})
                     .arg(grant.name)
                     .arg(grant.originLine)
                     .arg(listOr(allowedBy(grant), nothing));
    }
    if (policy.grants.empty()) {
        lines << said(
            {"there is no grant: every command is refused", "没有授权：所有命令均被拒绝"});
    }
    const auto folders = [&policy](PathRules::Right right) {
        return listOr(policy.paths.folders(right), nothing);
    };
    lines << said({"files are read in: %1", "可读取：%1"}).arg(folders(PathRules::Right::Read));
    lines << said({"files are written in: %1", "可写入：%1"}).arg(folders(PathRules::Right::Write));
    lines
        << said({"files are deleted in: %1", "可删除：%1"}).arg(folders(PathRules::Right::Delete));
    return lines;
}

QStringList reportLines(const QJsonArray &report)
{
    QStringList lines;
    const auto rows = rowsOf(report);
    for (const Row &row : rows) {
        lines
            << QStringLiteral("%1 x %2 %3: %4").arg(row.count).arg(row.origin, row.what, row.rule);
    }
    return lines;
}

QString proposal(const Policy &policy, const QJsonArray &report)
{
    QMap<QString, QStringList> allowed; // by origin
    QStringList remarks;
    const auto rows = rowsOf(report);
    for (const Row &row : rows) {
        const QString name = grantable(row.what);
        if (!originOf(row.origin) || name.isEmpty() || !isByGrant(row.rule)) {
            remarks << QStringLiteral("; %1 x %2 %3: %4")
                           .arg(row.count)
                           .arg(row.origin, row.what, row.rule);
            continue;
        }
        if (!allowed.contains(row.origin)) {
            const Grant *grant = grantFor(policy, *originOf(row.origin));
            allowed[row.origin] = grant ? allowedBy(*grant) : QStringList();
        }
        if (!allowed[row.origin].contains(name)) {
            allowed[row.origin] << name;
        }
    }
    QStringList lines{
        said({"; Proposed from what was refused. Read each line: a page may have "
              "asked for what it should not get.",
              "; 根据被拒绝的请求生成。请逐行检查：网页可能请求了不应得到的权限。"}),
        said({"; Keep the other sections and grants of %1.", "; 请保留 %1 的其他部分。"})
            .arg(policy.file),
        QStringLiteral("[policy]"), QStringLiteral("version=1"), QStringLiteral("mode=report")};
    int number = 0;
    for (auto origin = allowed.cbegin(); origin != allowed.cend(); ++origin) {
        lines << QString() << QStringLiteral("[grant.proposed%1]").arg(++number)
              << QStringLiteral("origin=") + origin.key()
              << QStringLiteral("allow=") + origin->join(QStringLiteral(", "));
    }
    if (!remarks.isEmpty()) {
        lines << QString()
              << said({"; Refused by other rules; each is for you to decide:",
                       "; 被其他规则拒绝，请自行决定："})
              << remarks;
    }
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString refusalOf(const std::shared_ptr<const Policy> &policy, const QString &origin,
                  const QString &text, const QString &ownPages)
{
    const auto parsed = originOf(origin);
    if (!parsed) {
        return said({"%1 is no origin", "%1 不是来源"}).arg(origin);
    }
    const accesspolicy::Doorkeeper doorkeeper(policy, ownPages);
    auto refusal = doorkeeper.atOrigin(*parsed);
    if (!refusal) {
        accesspolicy::Visitor visitor(*parsed, QStringLiteral("devicectl"),
                                      std::make_shared<accesspolicy::VisitorCounts>());
        refusal = doorkeeper.atText(visitor, text).refusal;
    }
    if (!refusal) {
        return {};
    }
    const int line = refusal->key.isEmpty() ? 0 : policy->lineOf(refusal->key);
    const QString reason = inUsersLanguage(refusal->reason);
    return line == 0
        ? reason
        : QStringLiteral("%1 (%2:%3)").arg(reason, QFileInfo(policy->file).fileName()).arg(line);
}
