// SPDX-License-Identifier: MIT
//
// Command texts of pages, on a device library that answers anything. The first byte says how it
// answers, a field follows with the texts that it returns, then the commands, a line each.
#include "dispatch/messagerun.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzztarget.h"
#include "tests/pages.h"

#include <QCoreApplication>

namespace {

constexpr int mostCommands = 16; // of one input

MessageRun &dispatcher()
{
    static auto &object = *new MessageRun;
    return object;
}

PagePair &pages()
{
    static auto &pair = *new PagePair;
    return pair;
}

void send(const QByteArray &command)
{
    dispatcher().recv_msg(QString::fromUtf8(command), nullptr);
}

/// The page has received what was sent to it: whole texts, and this one at the end.
void checkReplies()
{
    const QString last = QStringLiteral("the last text");
    MessageRun::send_msg(last);
    QString text;
    do {
        text = pages().page().next();
        fuzz::require(!text.isNull(), "a page gets what is sent to it");
    } while (text != last);
}

} // namespace

void fuzz::prepare()
{
    useOwnClock();
    gpWebSocket = pages().serverSide();
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    const int way = fields.byte();
    const QByteArray text = fields.part();
    const QList<QByteArray> commands = fields.rest().split('\n');
    orderDevice(way, text);
    for (const QByteArray &command : commands.mid(0, mostCommands)) {
        send(command);
        QCoreApplication::processEvents();
    }
    callListeners(way, text);
    orderDevice(0, {});
    send("bStopPlay()");
    send("bStopPlay4()");
    closeWindows();
    checkReplies();
}

QList<QByteArray> fuzz::seeds()
{
    static const char *const names[] = {
#define COMMAND(command, failure, ...) #command,
#include "dispatch/commandlist.h"
    };
    QList<QByteArray> seeds;
    for (const char *name : names) {
        const int way = seeds.size() % 16;
        seeds << QByteArray(1, char(way)) + field("name|number") + name + "(1,2,3,4,5,6,7,8,1)\n"
                + name + "(/tmp/a.jpg,b)";
    }
    return seeds;
}
