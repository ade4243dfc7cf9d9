// SPDX-License-Identifier: MIT
#include "deviceprocess/host/relay.h"

#include "deviceprocess/arguments.h"
#include "deviceprocess/host/callerlink.h"

namespace deviceprocess {

namespace {

Relay *relay = nullptr; // never destroyed: the library may call it until the end

} // namespace

void Relay::take(int number)
{
    Writer event;
    event.value(number);
    CallerLink::sendEvent(std::uint32_t(FunctionId::iAutoScan_observr), event);
}

void makeRelay()
{
    relay = new Relay;
}

QObject *relayReceiver()
{
    return relay;
}

const char *relaySlot()
{
    return SLOT(take(int));
}

} // namespace deviceprocess
