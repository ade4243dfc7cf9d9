// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>

namespace checks {

namespace {

Finding browser(const Environment &environment)
{
    // Those that the helper for counter pages looks for (companions/browser/browsersettings.h).
    QStringList names{QStringLiteral("chromium"),      QStringLiteral("chromium-browser"),
                      QStringLiteral("uos-browser"),   QStringLiteral("google-chrome-stable"),
                      QStringLiteral("google-chrome"), QStringLiteral("microsoft-edge-stable")};
    const QString chosen = setting(environment, "server.ini", "browser");
    if (!chosen.isEmpty()) {
        names = QStringList{chosen};
    }
    for (const QString &name : qAsConst(names)) {
        if (environment.hasProgram(name)) {
            return good({"the browser is %1", "浏览器为 %1"}, name);
        }
    }
    return warning(
        {"there is no browser for the counter pages (%1)", "没有用于柜台页面的浏览器（%1）"},
        {"install chromium, where counter pages are shown", "需要显示柜台页面时请安装 chromium"},
        join(names));
}

/// The patterns of pages that the browser policies admit to this machine.
QStringList patternsOfBrowserPolicies(const Environment &environment)
{
    QStringList patterns;
    for (const char *family :
         {"chromium", "opt/chrome", "opt/edge", "chromium-browser", "opt/uos-browser"}) {
        const QString folder =
            QStringLiteral("/etc/%1/policies/managed").arg(QLatin1String(family));
        const auto names = environment.entries(folder);
        for (const QString &name : names) {
            const QJsonObject policy =
                QJsonDocument::fromJson(environment.end(folder + QLatin1Char('/') + name)).object();
            const auto urls =
                policy.value(QStringLiteral("LoopbackNetworkAllowedForUrls")).toArray();
            for (const QJsonValue &url : urls) {
                patterns << url.toString();
            }
        }
    }
    return patterns;
}

/**
 * Whether a browser's pattern matches an origin. "*" as scheme, host or port, and what is left out,
 * match all; "[*.]host" matches the host and what is below it; a path doesn't count. See
 * "Enterprise policy URL pattern format" in the browser's documentation.
 */
bool covers(const QString &pattern, const accesspolicy::Origin &origin)
{
    static const QRegularExpression form(QStringLiteral(
        R"(^(?:([^:/]+)://)?(\[\*\.\])?(\*|\[[0-9a-fA-F:]+\]|[^:/]+)(?::(\d+|\*))?(?:/.*)?$)"));
    const auto match = form.match(pattern.trimmed());
    const auto part = [&match](int index) { return match.captured(index).toLower(); };
    const auto isAll = [](const QString &text) {
        return text.isEmpty() || text == QLatin1String("*");
    };
    const bool isBelow = !part(2).isEmpty() && origin.host.endsWith(QLatin1Char('.') + part(3));
    return match.hasMatch() && (isAll(part(1)) || part(1) == origin.scheme)
        && (isAll(part(3)) || part(3) == origin.host || isBelow)
        && (isAll(part(4)) || part(4).toInt() == origin.port);
}

/// The origins of the access policy's grants, and of pages that are connected. A "*" in an origin
/// is taken for some host.
QStringList originsOfPages(const Environment &environment)
{
    QStringList origins;
    if (const auto policy = environment.policy().policy) {
        for (const accesspolicy::Grant &grant : policy->grants) {
            for (const accesspolicy::OriginPattern &pattern : grant.origins) {
                origins << pattern.text();
            }
        }
    }
    const auto pages = statusMember(environment, "pages").toArray();
    for (const QJsonValue &page : pages) {
        origins << page.toObject().value(QStringLiteral("origin")).toString();
    }
    origins.removeDuplicates();
    return origins;
}

/// Whether the browser asks before a page of this origin connects to this machine.
bool isAskedFor(const QString &text, const QStringList &patterns)
{
    QString host = text;
    host.replace(QLatin1String("://*."), QLatin1String("://any."));
    const auto origin = accesspolicy::originFrom(host);
    if (!origin || origin->kind != accesspolicy::Origin::Kind::Web) {
        return false; // a program, a file, or "*"
    }
    const bool isOfThisMachine = origin->host == QLatin1String("localhost")
        || origin->host == QLatin1String("[::1]") || origin->host.startsWith(QLatin1String("127."));
    return !isOfThisMachine
        && std::none_of(patterns.begin(), patterns.end(),
                        [&](const QString &pattern) { return covers(pattern, *origin); });
}

Finding browserPolicy(const Environment &environment)
{
    const QStringList patterns = patternsOfBrowserPolicies(environment);
    constexpr Text nameThem = {"name the pages in LoopbackNetworkAllowedForUrls",
                               "请在 LoopbackNetworkAllowedForUrls 中列出网页"};
    if (patterns.isEmpty()) {
        return warning(
            {"no browser policy: recent browsers ask the clerk before a page may connect",
             "没有浏览器策略：新版浏览器会在网页连接前询问柜员"},
            nameThem);
    }
    QStringList asked;
    const auto origins = originsOfPages(environment);
    for (const QString &origin : origins) {
        if (isAskedFor(origin, patterns)) {
            asked << origin;
        }
    }
    if (!asked.isEmpty()) {
        return warning({"recent browsers ask the clerk before these pages may connect: %1",
                        "新版浏览器会在这些网页连接前询问柜员：%1"},
                       nameThem, join(asked));
    }
    const QString sample = QStringLiteral("https://counter.bank.example"); // as it is installed
    return patterns.contains(sample)
        ? warning(
            {"the browser policy still names the sample page %1", "浏览器策略仍是示例网页 %1"},
            {"put the origins of your pages in its place", "请替换为实际网页的来源"}, sample)
        : good({"these pages may connect from the browser: %1", "浏览器允许这些网页连接：%1"},
               join(patterns));
}

} // namespace

std::vector<Check> browserChecks()
{
    return {
        {"browser", {"browser", "浏览器"}, browser},
        {"browser-policy", {"browser policy", "浏览器策略"}, browserPolicy},
    };
}

} // namespace checks
