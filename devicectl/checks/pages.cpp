// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"
#include "devicectl/servertexts.h"

#include <QJsonArray>

namespace checks {

namespace {

Finding slowPages(const QJsonObject &status)
{
    const auto pages = status.value(QStringLiteral("pages")).toArray();
    for (const QJsonValue &value : pages) {
        const QJsonObject page = value.toObject();
        if (page.value(QStringLiteral("bytesWaiting")).toDouble() > 16.0 * double(MiB)) {
            return fault(
                {"a page does not read what it is sent: %1", "网页没有读取收到的数据：%1"},
                {"reload that page", "请刷新该网页"},
                QStringLiteral("%1 %2").arg(page.value(QStringLiteral("origin")).toString(),
                                            page.value(QStringLiteral("address")).toString()));
        }
    }
    return good({"pages that read what they are sent: %1", "正常读取数据的网页数：%1"},
                QString::number(pages.size()));
}

Finding policyFile(const Environment &environment)
{
    const auto found = environment.policy();
    if (found.error) {
        return fault({"the access policy is faulty: %1", "访问策略有误：%1"},
                     {"correct that line; the server does not start with it",
                      "请更正该行；否则服务无法启动"},
                     policyFault(*found.error));
    }
    return found.policy
        ? good({"the access policy is %1", "访问策略为 %1"}, found.policy->file)
        : warning({"there is no access policy: any web page may use the devices",
                   "没有访问策略：任何网页都可使用设备"},
                  {"put one in place: docs/access.md", "请部署访问策略：docs/access.md"});
}

Finding policyMode(const Environment &environment)
{
    const auto found = environment.policy();
    if (!found.policy) {
        return good({"there is no access policy to be in force", "没有需要生效的访问策略"});
    }
    using Mode = accesspolicy::Policy::Mode;
    return found.policy->mode == Mode::Enforce
        ? good({"the access policy is enforced", "访问策略已强制执行"})
        : warning({"the access policy refuses nothing yet", "访问策略尚未拒绝任何请求"},
                  {"devicectl policy shows what it would refuse; then set mode=enforce",
                   "devicectl policy 显示将被拒绝的请求；之后设置 mode=enforce"});
}

Finding policyInForce(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const auto found = environment.policy();
    const QString file = found.policy ? found.policy->file : QString();
    return member(*status, "access", "file").toString() == file || found.error
        ? good({"the server has read the policy that is there now", "服务已读取当前的策略"})
        : warning({"the server has read another policy than %1", "服务读取的不是 %1"},
                  {"start the server again", "请重新启动服务"},
                  file.isEmpty() ? QStringLiteral("-") : file);
}

} // namespace

std::vector<Check> pageChecks()
{
    return {
        {"pages", {"pages", "网页"}, withStatus<slowPages>},
        {"policy", {"access policy", "访问策略"}, policyFile},
        {"policy-mode", {"policy mode", "策略模式"}, policyMode},
        {"policy-in-force", {"policy in force", "生效的策略"}, policyInForce},
    };
}

} // namespace checks
