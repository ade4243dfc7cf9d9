// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

namespace deviceprocess {

/// Gets the calls of iAutoScan_observr's slot in place of the server's object. Main thread.
class Relay : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void take(int number);
};

/// Makes the relay; on the main thread, before calls are carried out.
void makeRelay();

QObject *relayReceiver();
const char *relaySlot(); ///< As SLOT() makes it.

} // namespace deviceprocess
