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
    QList<QByteArray> parts; ///< as many as its type has
};

/**
 * Takes the server's requests apart, in whatever pieces their bytes come. A request: its type, then
 * its parts, each preceded by its length in bytes; numbers are of 32 bits in native byte order.
 */
class FrameReader
{
public:
    static constexpr int longestPart = 16 * 1024 * 1024; ///< bytes

    /// \param partsOfType  how many parts the requests of each type have
    explicit FrameReader(const QMap<int, int> &partsOfType);

    /**
     * Takes bytes in. \return the requests that are complete now, in their order
     *
     * After an unknown type or a length that is negative or above `longestPart` nothing more is
     * read: where the next request begins can't be told.
     */
    QList<Request> feed(const QByteArray &bytes);

    /// Why it stopped reading; empty while all is well.
    QString error() const { return m_error; }

private:
    bool takeNumber(int *number);
    bool takeType();
    bool takePart();

    const QMap<int, int> m_partsOfType;
    QByteArray m_bytes; ///< what has not been taken yet
    Request m_request; ///< the one that is coming
    int m_partsToCome = 0; ///< 0 between requests
    QString m_error;
};
