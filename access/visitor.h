// SPDX-License-Identifier: MIT
#pragma once

#include "access/origin.h"
#include "access/ratelimit.h"

#include <QHash>
#include <QString>

#include <memory>
#include <utility>

namespace accesspolicy {

/// How many pages are connected.
struct VisitorCounts
{
    int all = 0;
    QHash<QString, int> ofOrigin; ///< by Origin::text()
};

/// A page that passed the first door; counted as long as this object exists. Main thread only.
class Visitor
{
public:
    Visitor(Origin origin, QString peer, std::shared_ptr<VisitorCounts> counts)
        : m_origin(std::move(origin))
        , m_name(m_origin.text())
        , m_peer(std::move(peer))
        , m_counts(std::move(counts))
    {
        ++m_counts->all;
        ++m_counts->ofOrigin[m_name];
    }
    ~Visitor()
    {
        --m_counts->all;
        if (--m_counts->ofOrigin[m_name] == 0) {
            m_counts->ofOrigin.remove(m_name);
        }
    }
    Visitor(const Visitor &) = delete;
    Visitor &operator=(const Visitor &) = delete;

    const Origin &origin() const { return m_origin; }
    const QString &originText() const { return m_name; }
    const QString &peer() const { return m_peer; }
    RateLimit &rate() { return m_rate; }

private:
    const Origin m_origin;
    const QString m_name;
    const QString m_peer;
    const std::shared_ptr<VisitorCounts> m_counts;
    RateLimit m_rate;
};

} // namespace accesspolicy
