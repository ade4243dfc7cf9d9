// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/cardfiles.h"
#include "portable/card/smartcards.h"

#include <QJsonObject>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>

namespace portable {

/**
 * The card readers of the program: simulated ones, and those of PC/SC. Callable from any thread.
 * devices.ini is read at each call, so a card is swapped by editing it.
 */
class CardReaders
{
public:
    static CardReaders &instance();

    /**
     * \param folder     where devices.ini and the folder cards/ are
     * \param timeLimit  of a read of a real card
     */
    CardReaders(const QString &folder, std::unique_ptr<SmartCards> cards,
                std::chrono::milliseconds timeLimit = std::chrono::seconds(5));

    /**
     * Reads a card. Why it can't be read goes to the log.
     * \param type  2: contactless before contact; any other: the other way round
     */
    CardResult read(CardKind kind, int type = 0);

    /// The number of a card's chip, 4 to 10 bytes; empty when it can't be read.
    QByteArray readSerial(CardKind kind);

    /// Whether a reader is connected, be it the simulated one; the reason in the log when not.
    bool isConnected();

    /// \name Opening keeps a state that reading doesn't need
    ///@{
    bool openUsb();
    bool openSerial(const QString &port); ///< \param port  a serial device of this machine
    void close();
    ///@}

    /// Whether the security module, which is simulated only, answers: while open.
    bool hasModule();

    QByteArray moduleNumber(); ///< Of the simulated security module; null without it.

private:
    using RealRead = QJsonObject (*)(CardChannel &, bool contactlessFirst, QString *error);
    class RealCards;

    CardResult read(CardKind kind, RealRead realRead, bool contactlessFirst);
    bool hasSimulatedReader();
    CardConfig config() const;
    void logSimulationOnce(const QString &reason);

    const QString m_folder;
    const std::shared_ptr<RealCards> m_real;
    std::atomic<bool> m_isOpen{false};
    std::mutex m_mutex;
    QString m_loggedReason; // guarded by m_mutex
};

} // namespace portable
