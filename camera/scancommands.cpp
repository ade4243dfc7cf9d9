// SPDX-License-Identifier: MIT
//
// Repeated capture, run by the device library.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

// The result is returned but not sent: the page only gets the events of slot_iAutoshot, which have
// the same name.
QString MessageRun::iAutoScan_callback(QString name, QString args, MessageRun *self)
{
    const Arguments fields(args);
    int result = 0;
    if (fields.count() >= 3) {
        iAutoScan_observr(self, SLOT(slot_iAutoshot(int)));
        result = iAutoScan(fields.number<int>(0), fields.utf8(1), fields.utf8(2));
    }
    return framed(name, QString::number(result));
}

// Replies "true" even when nothing was started.
QString MessageRun::iTimerScan_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() >= 4) {
        iTimerScan(fields.number<int>(0), fields.utf8(1), fields.utf8(2), fields.number<int>(3));
    }
    return reply(name, true);
}

QString MessageRun::bBookScanner_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 2
                     && bBookScanner(fields.utf8(0), fields.utf8(1),
                                     fields.count() >= 3 ? fields.utf8(2) : nullptr));
}

void MessageRun::slot_iAutoshot(int pagenum)
{
    reply(QStringLiteral("iAutoScan"), pagenum);
}
