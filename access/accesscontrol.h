// SPDX-License-Identifier: MIT
#pragma once

#include "access/auditlog.h"
#include "access/doorkeeper.h"
#include "access/policyfile.h"
#include "access/policywatch.h"
#include "log/refusallog.h"

#include <QMap>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

namespace accesspolicy {

/**
 * The access policy of the server: reads it, takes its changes, asks the doorkeeper, and says in
 * the log and the audit what was refused. Without a policy, or with mode=off, isActive() is false
 * and nothing else here needs to be called. Main thread only.
 */
class AccessControl : public QObject
{
    Q_OBJECT

public:
    /// What the files beside the log are called.
    static constexpr char reportFile[] = "access-report.json";

    /**
     * Reads the policy.
     * \param places      where it is looked for
     * \param logFolder   of audit and report
     * \param ownPages    folder of the pages that it calls "own"
     */
    AccessControl(PolicyPlaces places, QString logFolder, QString ownPages,
                  QObject *parent = nullptr);
    ~AccessControl() override;

    /// Why there is a file, but no policy; empty if there is none, or a good one.
    QString error() const { return m_error; }

    /// Restricts the device process, for the policy that was read; before its first call.
    void restrictDevices() const;

    /**
     * Applies the policy to log, audit and device process; watches for changes. Only in a process
     * that stays: two would write one audit.
     */
    void start();

    /// Whether anything is decided.
    bool isActive() const { return m_doorkeeper != nullptr; }
    /// Whether anything is refused.
    bool isEnforcing() const
    {
        return isActive() && m_doorkeeper->policy().mode == Policy::Mode::Enforce;
    }
    /// The policy in force; null if !isActive().
    const Policy *policy() const { return isActive() ? &m_doorkeeper->policy() : nullptr; }

    /// "off", "report", "enforce", or "none" if there is no policy.
    QString modeText() const;
    /// Path of the policy's file; empty if there is none.
    QString file() const { return m_found.policy ? m_found.policy->file : QString(); }

    /// Answer to a handshake.
    struct Admission
    {
        std::shared_ptr<Visitor> visitor; ///< null: refused
        int status = 403; ///< of HTTP, if refused
        QByteArray subprotocol; ///< for the response; empty: none
    };

    /// The first door, for the head of a handshake. Only if isActive().
    Admission atHandshake(const QByteArray &head, const QHostAddress &local, const QString &peer);

    /// What is to be done with a text.
    struct Passage
    {
        bool isOpen = true;
        QString message; ///< to be carried out, if it is
        std::optional<QString> answer; ///< to be sent, if it isn't
        bool startsPreview = false;
    };

    /// The second door. Only if isActive().
    Passage atText(Visitor &visitor, const QString &message);

    /// Whether a page that is connected may stay under the policy of now; says so if it may not.
    bool mayStay(const Visitor &visitor);

    /// Says that something was refused by the transport, by a limit of the policy.
    void noteRefusal(const Visitor &visitor, const QString &what, const QString &key);

    /// How often each rule refused, or would have refused, something of each origin.
    using Counts = QMap<QString, QMap<QString, qint64>>;
    const Counts &counts() const { return m_counts; }

Q_SIGNALS:
    /// Another policy is in force, or none any more, or another mode.
    void changed();

private:
    void reload();
    void apply();
    void refused(const QString &what, const QString &origin, const QString &peer,
                 const Refusal &refusal);
    void writeReport();
    QString lineText(const QString &key) const;

    const PolicyPlaces m_places;
    const QString m_logFolder;
    const QString m_ownPages;
    QString m_error;
    FoundPolicy m_found;
    std::unique_ptr<Doorkeeper> m_doorkeeper;
    std::shared_ptr<VisitorCounts> m_visitors = std::make_shared<VisitorCounts>();
    PolicyWatch *m_watch = nullptr;
    AuditLog m_audit;
    RefusalLog m_log{"access", 20};
    Counts m_counts;
    QTimer m_reportLater;
};

} // namespace accesspolicy
