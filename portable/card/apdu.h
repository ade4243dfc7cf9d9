// SPDX-License-Identifier: MIT
/// \file Commands to a card and its answers (ISO 7816-4).
#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>

namespace portable {

/// A card on a reader, reached for as long as this lives. Used by one thread at a time.
class CardConnection
{
public:
    virtual ~CardConnection() = default;

    /// Whether the card talks T=0, where a command has either data or an expected length.
    virtual bool isT0() const { return false; }

    /**
     * Sends a command and waits for the answer.
     * \return the answer with its two status bytes; on failure (the card is gone) anything shorter,
     *         with the reason for the log
     */
    virtual QByteArray transmit(const QByteArray &command, QString *error) = 0;
};

/// A command with as much answer as there is; at most 255 bytes of data.
struct CardCommand
{
    quint8 cla = 0;
    quint8 ins = 0;
    quint8 p1 = 0;
    quint8 p2 = 0;
    QByteArray data;
};

struct CardAnswer
{
    QByteArray data;
    int status = 0; ///< The two status bytes, 0x9000 for success; 0 when the card didn't answer.

    bool isOk() const { return status == 0x9000; }
    QString statusText() const; ///< For the log: "6A82".
};

/**
 * Talks to one card. Fetches an answer that comes in parts, within limits: a card may be broken or
 * hostile. Once the card is gone or the time over, nothing more is sent.
 */
class CardChannel
{
public:
    using Clock = std::chrono::steady_clock;

    CardChannel(CardConnection &connection, Clock::time_point deadline);

    CardAnswer send(const CardCommand &command);

    CardAnswer selectByName(const QByteArray &name); ///< An application, by its identifier.
    CardAnswer selectFile(quint16 identifier); ///< Of the selected application.

    /// \param shortFile  1 to 30; the command then takes the record by its place, from 1
    CardAnswer readRecord(int number, int shortFile);
    CardAnswer readRecordOfSelectedFile(int identifier);

    /// Why the card stopped answering; empty as long as it does.
    QString failure() const { return m_failure; }

private:
    CardAnswer exchange(const CardCommand &command, int expected);

    CardConnection &m_connection;
    const Clock::time_point m_deadline;
    QString m_failure;
};

/**
 * The number of the chip, which the reader gives rather than the card (PC/SC part 3, section
 * 3.2.2.1.3).
 * \return 4 to 10 bytes; on failure nothing, with the reason for the log
 */
QByteArray readSerial(CardChannel &card, QString *error);

} // namespace portable
