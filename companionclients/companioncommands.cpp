// SPDX-License-Identifier: MIT
//
// Signing, and pages on the customer's screen. Each of the two first disconnects the other's
// companion: they never use the screen at the same time.

#include "companionclients/signsouthinterface.h"
#include "companionclients/webbrowsersouthinterface.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

#include <QCoreApplication>

namespace {

using Sign = void (SignSouthInterface::*)(const QString &, const QString &, const QString &,
                                          const QString &, int);

/// \return the result of a signing command: whether the request was sent; the signature comes later
bool requestSignature(const QString &args, Sign sign)
{
    Webbrowsersouthinterface::instance()->stopWeb();
    SignSouthInterface *service = SignSouthInterface::instance();
    if (!service->start()) {
        return false;
    }
    const Arguments fields(args);
    if (fields.count() < 5) {
        service->stop();
        return false;
    }
    // "," separates the command's fields, so pages separate the numbers of the location by ".".
    const QString location = fields.text(2).replace(QLatin1Char('.'), QLatin1Char(','));
    if (Arguments(location).count() < 4) {
        return false; // without disconnecting
    }
    (service->*sign)(fields.text(0), fields.text(1), location, fields.text(3),
                     fields.number<int>(4));
    return true;
}

QString replySigning(const QString &name, const QString &args, Sign sign)
{
    MessageRun::reply(name, requestSignature(args, sign));
    return QString();
}

/// Starts the browser helper in place of the signature service; null if it does not come up.
Webbrowsersouthinterface *startBrowser()
{
    SignSouthInterface::instance()->stop();
    Webbrowsersouthinterface *browser = Webbrowsersouthinterface::instance();
    return browser->start() ? browser : nullptr;
}

QString showPage(const QString &name, const QString &data, const char *page)
{
    Webbrowsersouthinterface *browser = startBrowser();
    const QString url =
        QCoreApplication::applicationDirPath() + QLatin1String("/webSite/") + QLatin1String(page);
    return MessageRun::reply(name, browser && browser->openURL(url, data));
}

} // namespace

QString MessageRun::DoGWQ_StartSign_callback(QString name, QString args, MessageRun *)
{
    return replySigning(name, args, &SignSouthInterface::DoGWQ_StartSign);
}

QString MessageRun::DoGWQ_StartSignEx_callback(QString name, QString args, MessageRun *)
{
    return replySigning(name, args, &SignSouthInterface::DoGWQ_StartSignEx);
}

QString MessageRun::OpenURL_callback(QString name, QString args, MessageRun *)
{
    Webbrowsersouthinterface *browser = startBrowser();
    return reply(name, browser && browser->openURL(args));
}

QString MessageRun::WebbrowserExit_callback(QString name, QString, MessageRun *)
{
    SignSouthInterface::instance()->stop();
    Webbrowsersouthinterface::instance()->stopWeb();
    return reply(name, true);
}

QString MessageRun::GWQ_CallNumber_callback(QString name, QString args, MessageRun *)
{
    return showPage(name, args, "callNo.html");
}

QString MessageRun::GWQ_PaymentInfo_callback(QString name, QString args, MessageRun *)
{
    return showPage(name, args, "pay.html");
}

QString MessageRun::DoGWQ_StartInfo_callback(QString name, QString args, MessageRun *)
{
    return showPage(name, args, "infoExchange.html");
}

QString MessageRun::GWQ_TellerInfo_callback(QString name, QString args, MessageRun *)
{
    return showPage(name, args, "teller.html");
}

QString MessageRun::DoGWQ_StartEvaluator_callback(QString name, QString args, MessageRun *)
{
    return showPage(name, args, "evaluate.html");
}
