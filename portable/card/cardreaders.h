// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/cardfiles.h"
#include "portable/card/smartcards.h"

#include <QJsonObject>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace portable {

/**
 * The card readers of the program: PC/SC, and the simulated one if simulation is on or devices.ini
 * names it or a card. Callable from any thread. Every call reads devices.ini, so editing it swaps
 * the simulated card.
 */
class CardReaders
{
public:
    static CardReaders &instance();

    /// Finds a file or folder of the settings by its name.
    using Find = std::function<QString(const QString &name)>;

    /**
     * \param find       path of "devices.ini" and "cards"
     * \param cards      the real readers
     * \param timeLimit  for a read of a real card
     */
    CardReaders(Find find, std::unique_ptr<SmartCards> cards,
                std::chrono::milliseconds timeLimit = std::chrono::seconds(5));

    /**
     * Reads a card. On failure the log gives the reason.
     * \param type  2: contactless cards first; any other value: contact cards first
     */
    CardResult read(CardKind kind, int type = 0);

    /// Serial number of a card's chip, 4 to 10 bytes; empty on failure, with a line in the log.
    QByteArray readSerial(CardKind kind);

    /// Whether a reader is connected, real or simulated; if not, the log gives the reason.
    bool isConnected();

    /// \name Opening changes what hasModule() returns; reading works without it
    ///@{
    bool openUsb();
    bool openSerial(const QString &port); ///< \param port  path of a serial port
    void close();
    ///@}

    /// Whether there is a security module: only the simulated reader has one, while it is open.
    bool hasModule();

    QByteArray moduleNumber(); ///< Number of the simulated security module; null without one.

private:
    using RealRead = QJsonObject (*)(CardChannel &, bool contactlessFirst, QString *error);
    class RealCards;

    CardResult read(CardKind kind, RealRead realRead, bool contactlessFirst);
    bool hasSimulatedReader();
    CardConfig config() const;
    void logSimulationOnce(const QString &reason);

    const Find m_find;
    const std::shared_ptr<RealCards> m_real;
    std::atomic<bool> m_isOpen{false};
    std::mutex m_mutex;
    QString m_loggedReason; // guarded by m_mutex
};

} // namespace portable
