// SPDX-License-Identifier: MIT
#pragma once

#include "companionclients/companionclient.h"

#include <QByteArray>

/**
 * The client of the signature service: sends one request per signing job, and passes the service's
 * reply on to all pages unchanged.
 *
 * Request: type (1 or 2), length of the JSON text, the text. Reply: length, payload. The numbers
 * have 32 bits in native byte order.
 */
class SignSouthInterface : public CompanionClient
{
    Q_OBJECT

public:
    static SignSouthInterface *instance();

    /// Starts the service and connects. \return whether it is connected
    bool start();

    /// Disconnects; the service keeps running.
    void stop() { closeConnection(); }

    /**
     * Sends a request; if not connected, only writes a trace line.
     * \param location  where the signature goes: numbers separated by ","
     * \param timeout   how long the customer may take, in the service's unit
     */
    void DoGWQ_StartSign(const QString &pdfpath, const QString &xmlpath, const QString &location,
                         const QString &retain, int timeout);
    void DoGWQ_StartSignEx(const QString &pdfpath, const QString &xmlpath, const QString &location,
                           const QString &retain, int timeout);

Q_SIGNALS:
    /// A reply of more than 100 bytes; shorter ones are dropped.
    void sig_msg(QByteArray payload);

public Q_SLOTS:
    void slot_stateChanged(QLocalSocket::LocalSocketState state);

    /**
     * Reads one reply. Blocks the main thread until exactly the announced number of bytes has
     * arrived, or the service has disconnected: then the incomplete reply is dropped.
     */
    void slot_readyRead();

private:
    SignSouthInterface();

    void send(int type, const QByteArray &json);
    bool readPayload(int length, QByteArray *payload);
};
