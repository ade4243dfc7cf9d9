// SPDX-License-Identifier: MIT
/// \file Commands to a smart card and its responses (ISO 7816-4).
#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>

namespace portable {

/// A connection to a card on a reader, open while the object lives. Used by one thread at a time.
class CardConnection
{
public:
    virtual ~CardConnection() = default;

    /// Whether the protocol is T=0, in which a command has either data or an expected length.
    virtual bool isT0() const { return false; }

    /**
     * Sends a command and waits for the response.
     * \return the response with its two status bytes; anything shorter is a failure, with the
     *         reason in `error`
     */
    virtual QByteArray transmit(const QByteArray &command, QString *error) = 0;
};

/// A command with at most 255 bytes of data, and a response of any length.
struct CardCommand
{
    quint8 cla = 0;
    quint8 ins = 0;
    quint8 p1 = 0;
    quint8 p2 = 0;
    QByteArray data;
};

struct CardResponse
{
    QByteArray data;
    int status = 0; ///< The two status bytes, 0x9000 for success; 0 without a response.

    bool isOk() const { return status == 0x9000; }
    QString statusText() const; ///< For the log: "6A82".
};

/**
 * Sends commands to one card. Joins responses that come in parts, within limits, as a card may be
 * broken or hostile. After a failure or the deadline nothing more is sent.
 */
class CardChannel
{
public:
    using Clock = std::chrono::steady_clock;

    CardChannel(CardConnection &connection, Clock::time_point deadline);

    CardResponse send(const CardCommand &command);

    CardResponse selectByName(const QByteArray &name); ///< Selects an application by identifier.
    CardResponse selectFile(quint16 identifier); ///< Selects a file of that application.

    /**
     * Reads a record of a file that need not be selected.
     * \param number     position of the record, from 1
     * \param shortFile  short identifier of the file, 1 to 30
     */
    CardResponse readRecord(int number, int shortFile);

    /// Reads the first record with this identifier of the selected file.
    CardResponse readRecordOfSelectedFile(int identifier);

    /// Why the card stopped responding, for the log; empty while it responds.
    QString failure() const { return m_failure; }

private:
    CardResponse exchange(const CardCommand &command, int expected);

    CardConnection &m_connection;
    const Clock::time_point m_deadline;
    QString m_failure;
};

/**
 * Serial number (UID) of the chip; the reader gives it rather than the card (PC/SC part 3, section
 * 3.2.2.1.3).
 * \return 4 to 10 bytes; empty on failure, with the reason in `error`
 */
QByteArray readSerial(CardChannel &card, QString *error);

} // namespace portable
