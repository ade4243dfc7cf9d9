// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace checks {

namespace {

/// The browser that server.ini names; empty if it names none.
QString chosenBrowser(const Environment &environment)
{
    static const QRegularExpression line(QStringLiteral(R"(^ *browser *= *"?([^"\r\n]+))"),
                                         QRegularExpression::MultilineOption);
    const QString file = environment.places().files.find(QStringLiteral("server.ini"));
    return line.match(QString::fromUtf8(environment.end(file))).captured(1).trimmed();
}

Finding browser(const Environment &environment)
{
    // Those that the helper for counter pages looks for (companions/browser/browsersettings.h).
    QStringList names{QStringLiteral("chromium"),      QStringLiteral("chromium-browser"),
                      QStringLiteral("uos-browser"),   QStringLiteral("google-chrome-stable"),
                      QStringLiteral("google-chrome"), QStringLiteral("microsoft-edge-stable")};
    const QString chosen = chosenBrowser(environment);
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

/// The origins that the browser policies admit to this machine.
QStringList originsOfBrowserPolicies(const Environment &environment)
{
    QStringList origins;
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
                origins << url.toString();
            }
        }
    }
    return origins;
}

Finding browserPolicy(const Environment &environment)
{
    const QStringList origins = originsOfBrowserPolicies(environment);
    return origins.isEmpty()
        ? warning({"no browser policy: recent browsers ask the clerk before a page may connect",
                   "没有浏览器策略：新版浏览器会在网页连接前询问柜员"},
                  {"name the pages in LoopbackNetworkAllowedForUrls",
                   "请在 LoopbackNetworkAllowedForUrls 中列出网页"})
        : good({"these pages may connect from the browser: %1", "浏览器允许这些网页连接：%1"},
               join(origins));
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
