// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/smartcards.h"

#include <QStringList>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>

namespace portable {

class ModuleConversation;

/**
 * ID-card modules on serial ports. Callable from any thread; calls wait for each other, and none
 * takes longer than its time limit. A port is open during a call only: a module may be unplugged
 * and come back as another port.
 */
class CardModules
{
public:
    /// Paths of the ports that may be tried.
    using Ports = std::function<QStringList()>;

    /// \param timeLimit  for a read; other calls take at most half of it
    explicit CardModules(Ports ports,
                         std::chrono::milliseconds timeLimit = std::chrono::seconds(5));
    ~CardModules();
    Q_DISABLE_COPY(CardModules)

    /// The ports on which modules come, /dev/ttyUSB* and /dev/ttyACM*, as far as they exist.
    static QStringList usualPorts();

    /**
     * Reads the ID card on a module.
     * \param port  path; empty: the first port on which a module answers. Each is tried once, until
     *              it disappears or forget() is called.
     * \return the fields of the card as docs/cards.md names them, or why there are none
     */
    CardAttempt read(const QString &port);

    /// Whether a module answers, and is in order; if not, the reason is in `reason`.
    bool responds(const QString &port, QString *reason);

    /// The number of the module, "05.03-20200101-0000000001-0000000001"; empty on failure, with the
    /// reason in `reason`.
    QByteArray number(const QString &port, QString *reason);

    /// Makes the next call try all ports again.
    void forget();

private:
    using Clock = std::chrono::steady_clock;
    using Work = std::function<void(ModuleConversation &)>;

    bool visit(const QString &port, Clock::time_point deadline, const Work &work, QString *reason);
    std::unique_ptr<ModuleConversation> connect(const QString &port, Clock::time_point deadline,
                                                QString *error);
    std::unique_ptr<ModuleConversation> find(Clock::time_point deadline, QString *reason);

    const Ports m_ports;
    const std::chrono::milliseconds m_timeLimit;
    std::timed_mutex m_mutex; // for everything below, and for the ports
    QString m_found; // the port on which a module answered last
    std::map<QString, int> m_speeds; // of modules that answered, by port and node
    std::set<QString> m_silent; // ports and nodes without a module
};

} // namespace portable
