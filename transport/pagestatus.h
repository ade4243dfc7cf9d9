// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

/// A page, as the status of the server shows it.
struct PageStatus
{
    QString address; ///< "address-port" of its end of the connection
    QString origin; ///< as its browser says; of a program empty, or whatever it says
    quint64 framesSent = 0;
    quint64 framesDropped = 0; ///< as it did not read
    double frameAgeMs = 0; ///< half of its latest frames were at most so old when they left
    double oldestFrameMs = 0; ///< 99 % of them
    qint64 bytesWaiting = 0; ///< that it has still to read
    int textsWaiting = 0; ///< of it, that are still to be carried out
    QString lastCommand; ///< name without arguments; "#", "@", "(unknown)"; empty: none yet
};

/// All pages.
struct PagesStatus
{
    int count = 0;
    qint64 bytesWaiting = 0; ///< of all
    QVector<PageStatus> first; ///< of some
};
