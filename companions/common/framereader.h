// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

/// One request of the server.
struct Request
{
    int type = 0;
    QList<QByteArray> parts; ///< as many as its type requires
};

/**
 * Parses the server's requests from bytes that may arrive in any pieces. A request is its type,
 * then its parts, each preceded by its length in bytes; numbers have 32 bits in native byte order.
 */
class FrameReader
{
public:
    /// In bytes: what the server takes from a page.
    static constexpr int maxPartSize = 128 * 1024 * 1024;

    /// \param partsOfType  number of parts by type of request
    explicit FrameReader(const QMap<int, int> &partsOfType);

    /**
     * Takes received bytes. \return the requests they complete, in order
     *
     * Nothing more is read after an unknown type or a length that is negative or above
     * `maxPartSize`: the start of the next request is unknown.
     */
    QList<Request> feed(const QByteArray &bytes);

    /// Why it stopped reading; empty if it has not.
    QString error() const { return m_error; }

private:
    bool peekNumber(int *number);
    bool takeType();
    bool takePart();

    const QMap<int, int> m_partsOfType;
    QByteArray m_bytes; ///< received and not forgotten yet
    int m_parsed = 0; ///< bytes of these that are parsed
    Request m_request; ///< the one being received
    int m_partsMissing = 0; ///< 0 between requests
    QString m_error;
};
