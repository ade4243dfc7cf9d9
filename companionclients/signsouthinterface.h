// SPDX-License-Identifier: MIT
#pragma once

#include "companionclients/companionclient.h"

#include <QByteArray>

/**
 * The client of the signature service: one request per signing job goes out, the service's reply
 * goes to all pages as it is.
 *
 * Request, numbers of 32 bits in native byte order: type (1 or 2), length of the JSON text, the
 * text. Reply: length, payload.
 */
class SignSouthInterface : public CompanionClient
{
    Q_OBJECT

public:
    static SignSouthInterface *instance();

    /// Starts the service and connects. \return whether the connection stands
    bool start();

    /// Ends the connection; the service goes on.
    void stop() { leave(); }

    /**
     * Sends a request; without a connection a trace line, and nothing is sent.
     * \param location  where the signature is to stand: numbers parted by ","
     * \param timeout   for the customer, as the service means it
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
     * Takes one reply in. Holds the main thread until it has exactly the length announced, or the
     * service is gone: then what has come is dropped.
     */
    void slot_readyRead();

private:
    SignSouthInterface();

    void send(int type, const QByteArray &json);
    bool readPayload(int length, QByteArray *payload);
};
