// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/cardfiles.h"
#include "portable/card/cardmodules.h"
#include "portable/card/smartcards.h"

#include <QJsonObject>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace portable {

/**
 * The card readers of the program: PC/SC, an ID-card module on a serial port, and the simulated one
 * if simulation is on or devices.ini names it or a card. Callable from any thread. Every call reads
 * devices.ini, so editing it swaps the simulated card.
 */
class CardReaders
{
public:
    static CardReaders &instance();

    /// Finds a file or folder of the settings by its name.
    using Find = std::function<QString(const QString &name)>;

    /**
     * \param find       path of "devices.ini" and "cards"
     * \param cards      the readers of PC/SC
     * \param ports      serial ports on which an ID-card module is looked for
     * \param timeLimit  for a read of a real card
     */
    CardReaders(Find find, std::unique_ptr<SmartCards> cards, CardModules::Ports ports,
                std::chrono::milliseconds timeLimit = std::chrono::seconds(5));

    /**
     * Reads a card. On failure the log gives the reason.
     * \param type  2: contactless cards first; any other value: contact cards first
     */
    CardResult read(CardKind kind, int type = 0);

    /// Serial number of a card's chip, 4 to 10 bytes; empty on failure, with a line in the log.
    QByteArray readSerial(CardKind kind);

    /// Whether there is a reader for cards other than ID cards, real or simulated; if not, the log
    /// gives the reason.
    bool isConnected();

    /// \name Opening changes what hasModule() returns; reading works without it
    ///@{
    bool openUsb(); ///< True if there is a reader of any kind.

    /**
     * From now on, until close() or another opening, ID cards are read on this port.
     * \param port  path of a serial port
     * \return false if no ID-card module answers there; in simulation true for any serial port
     */
    bool openSerial(const QString &port);
    void close();
    ///@}

    /// Whether the security module responds, real or simulated, while a reader is open.
    bool hasModule();

    QByteArray moduleNumber(); ///< Number of the security module; null without one.

private:
    using PcscRead = QJsonObject (*)(CardChannel &, bool contactlessFirst, QString *error);
    class PcscReads;

    CardResult read(CardKind kind, PcscRead pcscRead, bool contactlessFirst);
    CardAttempt readByPcsc(const CardConfig &config, PcscRead pcscRead, bool contactlessFirst);
    CardAttempt readByModule(const CardConfig &config);
    bool findModulePort(const CardConfig &config, QString *port);
    bool hasPcscReader(const CardConfig &config, QString *reason);
    bool hasRealModule(const CardConfig &config, QString *reason);
    CardConfig config() const;
    void logSimulationOnce(CardKind kind, const QString &reason);

    const Find m_find;
    const std::shared_ptr<PcscReads> m_pcsc;
    CardModules m_modules;
    std::atomic<bool> m_isOpen{false};
    std::mutex m_mutex;
    std::map<CardKind, QString> m_loggedReasons; // guarded by m_mutex
    QString m_openPort; // serial port that a page has opened; guarded by m_mutex
};

} // namespace portable
