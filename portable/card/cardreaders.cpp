// SPDX-License-Identifier: MIT
#include "portable/card/cardreaders.h"

#include "base/datafolder.h"
#include "portable/base/failure.h"
#include "portable/base/simulation.h"
#include "portable/card/emv.h"
#include "portable/card/socialcard.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <unistd.h>

#include <condition_variable>
#include <future>
#include <system_error>
#include <thread>

namespace portable {

namespace {

/// Result of a read through PC/SC.
struct RealResult
{
    CardPresence presence = CardPresence::Card;
    QJsonObject fields;
    QString reason; ///< Why there are no fields, for the log.
};

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

/// Why this can't be opened as a serial port; empty when it can.
QString serialPortProblem(const QString &port)
{
    const QString path = QFileInfo(port).canonicalFilePath();
    if (path.isEmpty()) {
        return QStringLiteral("no such device");
    }
    if (!path.startsWith(QLatin1String("/dev/"))) { // the name comes from a page
        return QStringLiteral("not a device");
    }
    const int file =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return qt_error_string();
    }
    const bool isSerial = ::isatty(file) == 1;
    ::close(file);
    return isSerial ? QString() : QStringLiteral("not a serial port");
}

} // namespace

/**
 * Reads real cards, one at a time. A read can hang in a driver, where nothing can interrupt it, so
 * it runs on a thread of its own. A thread that hangs is abandoned; it keeps this object alive.
 */
class CardReaders::RealCards : public std::enable_shared_from_this<RealCards>
{
public:
    RealCards(std::unique_ptr<SmartCards> cards, std::chrono::milliseconds timeLimit)
        : m_cards(std::move(cards))
        , m_timeLimit(timeLimit)
    {
    }

    RealResult read(RealRead realRead, bool contactlessFirst)
    {
        return run([=](SmartCards &cards, CardChannel::Clock::time_point deadline) {
            RealResult result;
            const auto visit = [&](CardConnection &connection) {
                CardChannel card(connection, deadline);
                result.fields = realRead(card, contactlessFirst, &result.reason);
                return !result.fields.isEmpty();
            };
            result.presence = cards.visit(contactlessFirst, visit, &result.reason);
            return result;
        });
    }

    RealResult findReader()
    {
        return run([](SmartCards &cards, CardChannel::Clock::time_point) {
            RealResult result;
            const bool found = cards.hasReader(&result.reason);
            result.presence = found ? CardPresence::NoCard : CardPresence::NoReader;
            return result;
        });
    }

private:
    template <class Work> RealResult run(Work work)
    {
        const auto deadline = CardChannel::Clock::now() + m_timeLimit;
        RealResult busy{CardPresence::Card, {}, QStringLiteral("the reader doesn't respond")};
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (!m_free.wait_until(lock, deadline, [this] { return !m_isBusy; })) {
                return busy;
            }
            m_isBusy = true;
        }
        const auto self = shared_from_this();
        std::packaged_task<RealResult()> task([self, work, deadline] {
            RealResult result = work(*self->m_cards, deadline);
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
    static CardReaders readers(&base::findData, std::make_unique<PcscCards>());
    return readers;
}

CardReaders::CardReaders(Find find, std::unique_ptr<SmartCards> cards,
                         std::chrono::milliseconds timeLimit)
    : m_find(std::move(find))
    , m_real(std::make_shared<RealCards>(std::move(cards), timeLimit))
{
}

CardConfig CardReaders::config() const
{
    return readCardConfig(m_find(QStringLiteral("devices.ini")));
}

CardResult CardReaders::read(CardKind kind, int type)
{
    const RealRead realRead = kind == CardKind::Bank ? readBankCard
        : kind == CardKind::SocialSecurity           ? readSocialCardFields
        : kind == CardKind::Ic                       ? readSerialField
                                                     : nullptr;
    return read(kind, realRead, type == 2);
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

/// \param realRead  null if a card of this kind can't be read through PC/SC
CardResult CardReaders::read(CardKind kind, RealRead realRead, bool contactlessFirst)
{
    const CardConfig config = this->config();
    const auto fail = [kind](CardStatus status, const QString &reason) {
        logFailure(QStringLiteral("no %1 was read").arg(cardName(kind)), reason);
        return CardResult{status, {}};
    };
    if (config.reader == CardReaderChoice::None) {
        return fail(CardStatus::NoReader, QStringLiteral("devices.ini says there is no reader"));
    }
    const bool isSimulated = config.simulates(kind);
    const QString hint = isSimulated ? QString() : QString::fromLatin1(simulationHint);
    if (!realRead && !isSimulated) {
        return fail(CardStatus::NoReader,
                    QStringLiteral("it can't be read through PC/SC: that needs a reader with a "
                                   "security module")
                        + hint);
    }
    if (config.reader != CardReaderChoice::Simulated && realRead) {
        const RealResult real = m_real->read(realRead, contactlessFirst);
        if (!real.fields.isEmpty()) {
            return {CardStatus::Read, real.fields};
        }
        if (real.presence == CardPresence::Card) {
            return fail(CardStatus::Unreadable, real.reason);
        }
        if (real.presence == CardPresence::NoCard) { // the user is about to put a card on it
            return fail(CardStatus::NoCard, real.reason);
        }
        if (!isSimulated) {
            return fail(CardStatus::NoReader, real.reason + hint);
        }
        logSimulationOnce(real.reason);
    }
    return readSimulatedCard(m_find(QStringLiteral("cards")), kind, config);
}

/// Logs why simulated cards are read, at the first read and when the reason changes.
void CardReaders::logSimulationOnce(const QString &reason)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (reason != m_loggedReason) {
        m_loggedReason = reason;
        logFailure("simulated cards are read", reason);
    }
}

bool CardReaders::isConnected()
{
    const CardConfig config = this->config();
    if (config.simulatesAny()) {
        return true;
    }
    if (config.reader == CardReaderChoice::None) {
        return logFailure("no card reader", QStringLiteral("devices.ini says there is none"));
    }
    const RealResult real = m_real->findReader();
    if (!real.reason.isEmpty()) {
        logFailure("no card reader", real.reason + QLatin1String(simulationHint));
    }
    return real.reason.isEmpty();
}

bool CardReaders::openUsb()
{
    m_isOpen = isConnected();
    return m_isOpen;
}

bool CardReaders::openSerial(const QString &port)
{
    const QString problem = serialPortProblem(port);
    if (!problem.isEmpty()) {
        // Quoted: the name comes from a page.
        qWarning() << "portable: the card reader on" << port
                   << "doesn't open:" << qUtf8Printable(problem);
    }
    m_isOpen = problem.isEmpty() && isConnected();
    return m_isOpen;
}

void CardReaders::close()
{
    m_isOpen = false;
}

/// If not, the log gives the reason.
bool CardReaders::hasSimulatedReader()
{
    const bool result = config().simulates(CardKind::Identity);
    if (!result) {
        logFailure("no security module",
                   QStringLiteral("there is none behind PC/SC") + QLatin1String(simulationHint));
    }
    return result;
}

bool CardReaders::hasModule()
{
    if (!m_isOpen) {
        return logFailure("no security module", QStringLiteral("the card reader isn't open"));
    }
    return hasSimulatedReader();
}

QByteArray CardReaders::moduleNumber()
{
    // The format of a real one; no real module has the number zero.
    return hasSimulatedReader() ? QByteArray("00.00-20000101-0000000000-0000000000") : QByteArray();
}

} // namespace portable
