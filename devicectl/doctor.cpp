// SPDX-License-Identifier: MIT
#include "devicectl/doctor.h"

#include "devicectl/checks/groups.h"

#include <QJsonObject>

namespace {

std::vector<Check> checksOfAllGroups()
{
    std::vector<Check> all;
    for (const auto group : {
             checks::programChecks,
             checks::folderChecks,
             checks::machineChecks,
             checks::cameraChecks,
             checks::deviceChecks,
             checks::displayChecks,
             checks::browserChecks,
             checks::installedChecks,
             checks::deviceProcessChecks,
             checks::pageChecks,
         }) {
        const std::vector<Check> members = group();
        all.insert(all.end(), members.begin(), members.end());
    }
    return all;
}

} // namespace

const std::vector<Check> &allChecks()
{
    static const std::vector<Check> all = checksOfAllGroups();
    return all;
}

QString levelName(Finding::Level level)
{
    switch (level) {
    case Finding::Level::Good:
        return QStringLiteral("ok");
    case Finding::Level::Warning:
        return QStringLiteral("warning");
    case Finding::Level::Fault:
        break;
    }
    return QStringLiteral("fault");
}

QJsonArray examine(const Environment &environment)
{
    QJsonArray findings;
    for (const Check &check : allChecks()) {
        const Finding finding = check.look(environment);
        findings.append(QJsonObject{{QStringLiteral("id"), QLatin1String(check.id)},
                                    {QStringLiteral("title"), said(check.title)},
                                    {QStringLiteral("level"), levelName(finding.level)},
                                    {QStringLiteral("meaning"), finding.meaning},
                                    {QStringLiteral("advice"), finding.advice}});
    }
    return findings;
}
