// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace accesspolicy {

/**
 * A line of the audit in the making: the members of a JSON object, in the order in which they are
 * added. It is written as text at once, for a line comes with each command that is carried out, and
 * building an object of values first takes longer than all the rest of it.
 */
class AuditEvent
{
public:
    /// \param name  value of the first member, "event"
    explicit AuditEvent(const char *name);

    /// \param key  plain ASCII without quotes
    AuditEvent &with(const char *key, const QString &value);
    AuditEvent &with(const char *key, const QByteArray &utf8);
    AuditEvent &with(const char *key, qint64 value);

    /// The object, in UTF-8, without a line break.
    QByteArray line() const { return m_members + '}'; }

private:
    void begin(const char *key);
    void append(const QByteArray &utf8);

    QByteArray m_members;
};

} // namespace accesspolicy
