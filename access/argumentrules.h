// SPDX-License-Identifier: MIT
#pragma once

#include "access/policy.h"
#include "access/refusal.h"
#include "dispatch/commandfacts.h"

#include <QString>
#include <QStringRef>

#include <optional>
#include <vector>

namespace accesspolicy {

/**
 * Decides on the arguments of one command text: paths, hosts, addresses, devices. What is allowed
 * is written into the text as the real path, so that the device library opens what was decided on.
 */
class ArgumentRules
{
public:
    /**
     * \param message    "name(args)"; must outlive this object
     * \param ownPages  folder of the pages that the policy calls "own"
     */
    ArgumentRules(const Policy &policy, const commands::Facts &facts, const QString &message,
                  const QByteArray &ownPages);

    std::optional<Refusal> decide();

    /// The text with real paths in it. After decide() has allowed it.
    QString message() const;

private:
    using Verdict = std::optional<Refusal>;

    /// Whether the page gave this argument at all.
    bool has(int index) const { return index >= 0 && index < int(m_fields.size()); }
    QString text(int index) const
    {
        return has(index) ? m_fields[std::size_t(index)].toString() : QString();
    }

    Verdict decideOn(commands::Use use, int index);
    Verdict apply(int index, const PathRules::Answer &answer);
    Verdict readFile(int index);
    Verdict moveFile(int index);
    Verdict signedFile(int index);
    Verdict newName(int index);
    Verdict folder(int index);
    Verdict newFile(int folder, int name);
    Verdict prefix(int folder, int name);
    Verdict uploadHost(int index);
    Verdict uploadTo(const std::optional<Origin> &server);
    Verdict uploadFile(int index);
    Verdict uploadRemoves(int index);
    Verdict page(int index);
    Verdict devicePort(int index);
    Verdict replace(int index, const QByteArray &path);

    const Policy &m_policy;
    const commands::Facts &m_facts;
    const QString &m_message;
    const QByteArray m_ownPages;
    std::vector<QStringRef> m_fields; // as many as the facts say anything about
    std::vector<QString> m_replaced; // null: as it was
};

} // namespace accesspolicy
