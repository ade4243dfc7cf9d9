// SPDX-License-Identifier: MIT
#include "access/accesscontrol.h"

#include "access/devicefolders.h"
#include "base/logtext.h"
#include "dispatch/failureresult.h"
#include "dispatch/loggedtext.h"
#include "dispatch/messagerun.h"
#include "log/qlog.h"

#include <QDebug>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <chrono>
#include <utility>

namespace accesspolicy {

namespace {

constexpr std::chrono::seconds reportInterval{10};
constexpr int mostOrigins = 200; ///< that are counted by name; any page can make up more
constexpr qint64 MiB = qint64(1024) * 1024;

const char *modeName(Policy::Mode mode)
{
    switch (mode) {
    case Policy::Mode::Off:
        return "off";
    case Policy::Mode::Report:
        return "report";
    case Policy::Mode::Enforce:
        break;
    }
    return "enforce";
}

AuditEvent eventOf(const char *name, const QString &origin, const QString &peer)
{
    return AuditEvent(name).with("origin", origin).with("page", peer);
}

} // namespace

AccessControl::AccessControl(PolicyPlaces places, QString logFolder, QString ownPages,
                             QObject *parent)
    : QObject(parent)
    , m_places(std::move(places))
    , m_logFolder(std::move(logFolder))
    , m_ownPages(std::move(ownPages))
    , m_found(findPolicy(m_places))
{
    if (m_found.error) {
        m_error = m_found.error->text();
    }
    m_reportLater.setSingleShot(true);
    m_reportLater.setInterval(reportInterval);
    connect(&m_reportLater, &QTimer::timeout, this, &AccessControl::writeReport);
}

AccessControl::~AccessControl()
{
    if (m_reportLater.isActive()) {
        writeReport();
    }
}

QString AccessControl::modeText() const
{
    return m_found.policy ? QString::fromLatin1(modeName(m_found.policy->mode))
                          : QStringLiteral("none");
}

void AccessControl::restrictDevices() const
{
    if (m_found.policy) {
        restrictDeviceProcess(m_found.policy.get());
    }
}

void AccessControl::start()
{
    m_watch = new PolicyWatch(this);
    connect(m_watch, &PolicyWatch::changed, this, &AccessControl::reload);
    if (m_found.policy) {
        apply();
    } else {
        m_watch->watch({m_places.system, m_places.own});
    }
}

void AccessControl::reload()
{
    const FoundPolicy found = findPolicy(m_places);
    if (found.error || !found.policy) {
        if (found.error || m_found.policy) {
            const QString reason =
                found.error ? found.error->text() : QStringLiteral("the policy is gone");
            qCritical().noquote() << "access:" << base::oneLine(reason)
                                  << "- the former policy stays in force";
            m_audit.write(AuditEvent("faulty policy").with("reason", reason));
        }
        return;
    }
    m_found = found;
    apply();
    Q_EMIT changed();
}

void AccessControl::apply()
{
    const Policy &policy = *m_found.policy;
    const bool isActive = policy.mode != Policy::Mode::Off;
    m_doorkeeper = isActive ? std::make_unique<Doorkeeper>(m_found.policy, m_ownPages) : nullptr;
    LoggedTextRules rules;
    AuditLog::Settings audit;
    if (isActive) {
        rules = {policy.hidesPersonal, policy.logChars};
        if (!policy.auditFile.isEmpty()) {
            audit = {m_logFolder + QLatin1Char('/') + policy.auditFile, policy.auditMiB * MiB,
                     policy.auditKeep, policy.isAuditChained};
        }
    }
    QStringList watched{m_places.system, m_places.own};
    if (!policy.tokenFile.isEmpty()) {
        watched << policy.tokenFile;
    }
    m_watch->watch(watched);
    setLoggedTextRules(rules);
    QLog::instance()->setMaxFolderSize(isActive ? policy.logMiB * MiB : 0);
    m_audit.open(audit);
    restrictDeviceProcess(isActive ? &policy : nullptr);
    qInfo().noquote() << "access: the policy" << policy.file << "is in force, mode"
                      << modeName(policy.mode);
    if (policy.grants.empty()) {
        qWarning("access: the policy has no grant: every command is refused");
    }
    m_audit.write(AuditEvent("policy")
                      .with("file", policy.file)
                      .with("mode", QString::fromLatin1(modeName(policy.mode))));
}

/// " (access.ini:23)", or nothing if no line decided.
QString AccessControl::lineText(const QString &key) const
{
    const int line = key.isEmpty() ? 0 : policy()->lineOf(key);
    return line == 0
        ? QString()
        : QStringLiteral(" (%1:%2)").arg(QFileInfo(policy()->file).fileName()).arg(line);
}

void AccessControl::refused(const QString &what, const QString &origin, const QString &peer,
                            const Refusal &refusal)
{
    const QString verb = isEnforcing() ? QStringLiteral("refused") : QStringLiteral("would refuse");
    m_log.write(QStringLiteral("%1 %2 from %3: %4%5")
                    .arg(verb, what, origin, base::oneLine(refusal.reason), lineText(refusal.key)));
    m_audit.write(eventOf(isEnforcing() ? "refused" : "would refuse", origin, peer)
                      .with("what", what)
                      .with("reason", refusal.reason)
                      .with("rule", refusal.key)
                      .with("line", policy()->lineOf(refusal.key)));

    const bool isNamed = m_counts.contains(origin) || m_counts.size() < mostOrigins;
    const QString rule = refusal.key.isEmpty() ? refusal.reason : refusal.key;
    ++m_counts[isNamed ? origin : QStringLiteral("others")][rule + QLatin1String(": ") + what];
    if (!m_reportLater.isActive()) {
        m_reportLater.start();
    }
}

AccessControl::Admission AccessControl::atHandshake(const QByteArray &head,
                                                    const QHostAddress &local, const QString &peer)
{
    const Doorkeeper::Arrival arrival{handshakeFrom(head), local, *m_visitors};
    Origin origin;
    const auto refusal = m_doorkeeper->atHandshake(arrival, &origin);
    Admission admission;
    if (refusal) {
        // What couldn't be read has no origin that could be named.
        const bool isRead =
            arrival.handshake.origin.has_value() == (origin.kind != Origin::Kind::None);
        refused(QStringLiteral("the handshake"),
                isRead ? origin.text() : QStringLiteral("an unreadable origin"), peer, *refusal);
        admission.status = refusal->status;
    }
    if (!refusal || !isEnforcing()) {
        admission.visitor = std::make_shared<Visitor>(origin, peer, m_visitors);
        m_audit.write(eventOf("connected", origin.text(), peer));
        if (policy()->isTokenRequired && isEnforcing()) {
            admission.subprotocol = arrival.handshake.subprotocol;
        }
    }
    return admission;
}

AccessControl::Passage AccessControl::atText(Visitor &visitor, const QString &message)
{
    const Doorkeeper::Decision decision = m_doorkeeper->atText(visitor, message);
    Passage passage;
    passage.message = message;
    passage.startsPreview = decision.facts && decision.facts->family == commands::Family::Preview;
    if (decision.refusal) {
        refused(decision.what, visitor.originText(), visitor.peer(), *decision.refusal);
        passage.isOpen = !isEnforcing();
    } else if (decision.facts && m_audit.isWanted()) {
        m_audit.write(eventOf("carried out", visitor.originText(), visitor.peer())
                          .with("what", decision.what));
    }
    if (passage.isOpen) {
        passage.message = isEnforcing() ? decision.message : message;
    } else if (decision.what == QLatin1String("@")) {
        passage.answer = QString();
    } else if (decision.facts) {
        const auto result = failureResult(decision.what);
        if (result) {
            passage.answer = MessageRun::framed(decision.what, *result);
        }
    }
    return passage;
}

bool AccessControl::mayStay(const Visitor &visitor)
{
    const auto refusal = m_doorkeeper->atOrigin(visitor.origin());
    if (refusal && isEnforcing()) {
        refused(QStringLiteral("the connection"), visitor.originText(), visitor.peer(), *refusal);
    }
    return !refusal || !isEnforcing();
}

void AccessControl::noteRefusal(const Visitor &visitor, const QString &what, const QString &key)
{
    refused(what, visitor.originText(), visitor.peer(),
            {QStringLiteral("more than ") + key, key, 0});
}

/// For administrators, and for programs that propose a policy.
void AccessControl::writeReport()
{
    QJsonArray rows;
    for (auto origin = m_counts.cbegin(); origin != m_counts.cend(); ++origin) {
        for (auto rule = origin->cbegin(); rule != origin->cend(); ++rule) {
            rows.append(
                QJsonObject{{QStringLiteral("origin"), origin.key()},
                            {QStringLiteral("rule"), rule.key().section(QLatin1String(": "), 0, 0)},
                            {QStringLiteral("what"), rule.key().section(QLatin1String(": "), 1)},
                            {QStringLiteral("count"), double(rule.value())}});
        }
    }
    QSaveFile file(m_logFolder + QLatin1Char('/') + QLatin1String(reportFile));
    if (!file.open(QIODevice::WriteOnly)
        || !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)
        || file.write(QJsonDocument(rows).toJson()) < 0 || !file.commit()) {
        qWarning().noquote() << "access: the report can't be written:" << file.errorString();
    }
}

} // namespace accesspolicy
