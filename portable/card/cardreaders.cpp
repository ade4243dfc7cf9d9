// SPDX-License-Identifier: MIT
#include "portable/card/cardreaders.h"

#include "base/datafolder.h"
#include "portable/base/failure.h"
#include "portable/base/simulation.h"
#include "portable/card/emv.h"
#include "portable/card/serialport.h"
#include "portable/card/socialcard.h"

#include <condition_variable>
#include <future>
#include <system_error>
#include <thread>

namespace portable {

namespace {

QJsonObject readSerialField(CardChannel &card, bool, QString *error)
{
    const QByteArray serial = readSerial(card, error);
    return serial.isEmpty()
        ? QJsonObject()
        : QJsonObject{{QStringLiteral("serial"), QString::fromLatin1(serial.toHex().toUpper())}};
}

QJsonObject readSocialCardFields(CardChannel &card, bool, QString *error)
{
    return readSocialCard(card, error);
}

/// Adds what simulation would change.
QString withHint(const QString &reason)
{
    return reason + QLatin1String(simulationHint);
}

} // namespace

/**
 * Reads cards through PC/SC, one at a time. A read can hang in a driver, where nothing can
 * interrupt it, so it runs on a thread of its own. A thread that hangs is abandoned; it keeps this
 * object alive.
 */
class CardReaders::PcscReads : public std::enable_shared_from_this<PcscReads>
{
public:
    PcscReads(std::unique_ptr<SmartCards> cards, std::chrono::milliseconds timeLimit)
        : m_cards(std::move(cards))
        , m_timeLimit(timeLimit)
    {
    }

    CardAttempt read(const QString &reader, PcscRead pcscRead, bool contactlessFirst)
    {
        return run([=](SmartCards &cards, CardChannel::Clock::time_point deadline) {
            CardAttempt result;
            const auto visit = [&](CardConnection &connection) {
                CardChannel card(connection, deadline);
                result.fields = pcscRead(card, contactlessFirst, &result.reason);
                return !result.fields.isEmpty();
            };
            result.presence = cards.visit(reader, contactlessFirst, visit, &result.reason);
            return result;
        });
    }

    CardAttempt findReader(const QString &reader)
    {
        return run([=](SmartCards &cards, CardChannel::Clock::time_point) {
            CardAttempt result;
            const bool found = cards.hasReader(reader, &result.reason);
            result.presence = found ? CardPresence::NoCard : CardPresence::NoReader;
            return result;
        });
    }

private:
    template <class Work> CardAttempt run(Work work)
    {
        const auto deadline = CardChannel::Clock::now() + m_timeLimit;
        CardAttempt busy{CardPresence::Card, {}, QStringLiteral("the reader doesn't respond")};
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (!m_free.wait_until(lock, deadline, [this] { return !m_isBusy; })) {
                return busy;
            }
            m_isBusy = true;
        }
        const auto self = shared_from_this();
        std::packaged_task<CardAttempt()> task([self, work, deadline] {
            CardAttempt result = work(*self->m_cards, deadline);
            self->release();
            return result;
        });
        auto answer = task.get_future();
        std::thread thread;
        try {
            thread = std::thread(std::move(task));
        } catch (const std::system_error &error) {
            release();
            return {CardPresence::Card, {}, QString::fromLocal8Bit(error.what())};
        }
        // CardChannel ends the read at the deadline, between two commands; beyond that it hangs.
        if (answer.wait_until(deadline + m_timeLimit / 2) == std::future_status::timeout) {
            thread.detach();
            return busy;
        }
        thread.join();
        return answer.get();
    }

    void release()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isBusy = false;
        m_free.notify_one();
    }

    const std::unique_ptr<SmartCards> m_cards;
    const std::chrono::milliseconds m_timeLimit;
    std::mutex m_mutex;
    std::condition_variable m_free;
    bool m_isBusy = false; // guarded by m_mutex
};

CardReaders &CardReaders::instance()
{
    static CardReaders readers(&base::findData, std::make_unique<PcscCards>(),
                               &CardModules::usualPorts);
    return readers;
}

CardReaders::CardReaders(Find find, std::unique_ptr<SmartCards> cards, CardModules::Ports ports,
                         std::chrono::milliseconds timeLimit)
    : m_find(std::move(find))
    , m_pcsc(std::make_shared<PcscReads>(std::move(cards), timeLimit))
    , m_modules(std::move(ports), timeLimit)
{
}

CardConfig CardReaders::config() const
{
    return readCardConfig(m_find(QStringLiteral("devices.ini")));
}

CardResult CardReaders::read(CardKind kind, int type)
{
    const PcscRead pcscRead = kind == CardKind::Bank ? readBankCard
        : kind == CardKind::SocialSecurity           ? readSocialCardFields
        : kind == CardKind::Ic                       ? readSerialField
                                                     : nullptr;
    return read(kind, pcscRead, type == 2);
}

QByteArray CardReaders::readSerial(CardKind kind)
{
    const CardResult result = read(kind, readSerialField, true);
    const QString serial = result.fields.value(QLatin1String("serial")).toString();
    if (result.isRead() && serial.isEmpty()) {
        logFailure(QStringLiteral("the simulated %1").arg(cardName(kind)),
                   QStringLiteral("it has no \"serial\""));
    }
    return QByteArray::fromHex(serial.toLatin1());
}

/// \param pcscRead  null if a card of this kind can't be read through PC/SC
CardResult CardReaders::read(CardKind kind, PcscRead pcscRead, bool contactlessFirst)
{
    const CardConfig config = this->config();
    const auto fail = [kind](CardStatus status, const QString &reason) {
        logFailure(QStringLiteral("no %1 was read").arg(cardName(kind)), reason);
        return CardResult{status, {}};
    };
    const CardAttempt real =
        pcscRead ? readByPcsc(config, pcscRead, contactlessFirst) : readByModule(config);
    if (!real.fields.isEmpty()) {
        return {CardStatus::Read, real.fields};
    }
    if (real.presence == CardPresence::Card) {
        return fail(CardStatus::Unreadable, real.reason);
    }
    if (real.presence == CardPresence::NoCard) { // the user is about to put a card on it
        return fail(CardStatus::NoCard, real.reason);
    }
    if (!config.simulates(kind)) {
        return fail(CardStatus::NoReader,
                    config.hasNoReader() ? real.reason : withHint(real.reason));
    }
    if (!config.isSimulatedReader) {
        logSimulationOnce(kind, real.reason);
    }
    return readSimulatedCard(m_find(QStringLiteral("cards")), kind, config);
}

CardAttempt CardReaders::readByPcsc(const CardConfig &config, PcscRead pcscRead,
                                    bool contactlessFirst)
{
    if (!config.usesPcsc) {
        return {CardPresence::NoReader, {}, QStringLiteral("devices.ini names no PC/SC reader")};
    }
    return m_pcsc->read(config.pcscReader, pcscRead, contactlessFirst);
}

CardAttempt CardReaders::readByModule(const CardConfig &config)
{
    QString port;
    return findModulePort(config, &port)
        ? m_modules.read(port)
        : CardAttempt{CardPresence::NoReader,
                      {},
                      QStringLiteral("devices.ini names no ID-card module on a serial port")};
}

/// The port of the ID-card module; empty to look for one. \return false if none may be used
bool CardReaders::findModulePort(const CardConfig &config, QString *port)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    *port = m_openPort.isEmpty() ? config.modulePort : m_openPort;
    return config.usesModule;
}

/// Logs why simulated cards are read, at the first read and when the reason changes.
void CardReaders::logSimulationOnce(CardKind kind, const QString &reason)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QString &logged = m_loggedReasons[kind];
    if (reason != logged) {
        logged = reason;
        logFailure("simulated cards are read", reason);
    }
}

bool CardReaders::isConnected()
{
    const CardConfig config = this->config();
    QString reason;
    return config.simulatesAny() || hasPcscReader(config, &reason)
        || logFailure("no card reader", withHint(reason));
}

bool CardReaders::hasPcscReader(const CardConfig &config, QString *reason)
{
    *reason = config.usesPcsc ? m_pcsc->findReader(config.pcscReader).reason
                              : QStringLiteral("devices.ini names no PC/SC reader");
    return reason->isEmpty();
}

bool CardReaders::hasRealModule(const CardConfig &config, QString *reason)
{
    QString port;
    return findModulePort(config, &port)
        ? m_modules.responds(port, reason)
        : setError(QStringLiteral("devices.ini names no ID-card module on a serial port"), reason);
}

bool CardReaders::openUsb()
{
    close();
    m_modules.forget();
    const CardConfig config = this->config();
    QString noModule;
    QString noPcsc;
    m_isOpen = config.simulatesAny() || hasPcscReader(config, &noPcsc)
        || hasRealModule(config, &noModule)
        || logFailure("no card reader", withHint(noPcsc + QStringLiteral("; ") + noModule));
    return m_isOpen;
}

bool CardReaders::openSerial(const QString &port)
{
    close();
    const CardConfig config = this->config();
    QString reason =
        port + QStringLiteral(": devices.ini names no ID-card module on a serial port");
    if (config.usesModule && m_modules.responds(port, &reason)) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_openPort = port;
        m_isOpen = true;
        return true;
    }
    QString problem;
    if (!config.simulates(CardKind::Identity) || !SerialPort::open(port, &problem)) {
        return logFailure("the card reader doesn't open",
                          problem.isEmpty() ? reason : port + QStringLiteral(": ") + problem);
    }
    if (config.usesModule) {
        logSimulationOnce(CardKind::Identity, reason);
    }
    m_isOpen = true;
    return true;
}

void CardReaders::close()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_openPort.clear();
    m_isOpen = false;
}

bool CardReaders::hasModule()
{
    if (!m_isOpen) {
        return logFailure("no security module", QStringLiteral("the card reader isn't open"));
    }
    const CardConfig config = this->config();
    QString reason;
    return hasRealModule(config, &reason) || config.simulates(CardKind::Identity)
        || logFailure("no security module", withHint(reason));
}

QByteArray CardReaders::moduleNumber()
{
    const CardConfig config = this->config();
    QString reason;
    QString port;
    QByteArray number =
        findModulePort(config, &port) ? m_modules.number(port, &reason) : QByteArray();
    if (!number.isEmpty()) {
        return number;
    }
    if (config.simulates(CardKind::Identity)) {
        return "00.00-20000101-0000000000-0000000000"; // no real module has the number zero
    }
    logFailure("no number of a security module", withHint(reason));
    return {};
}

} // namespace portable
