// SPDX-License-Identifier: MIT
//
// Cards and the reader. Card texts are the device library's and go to the page unchanged; only the
// fallback from reader to reader looks into them.

#include "devicelib/cardreader.h"
#include "dispatch/arguments.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"
#include "identity/readidcardthread.h"
#include "log/trace.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <climits>

namespace {

/// Readers need a moment between two reads.
constexpr unsigned long betweenReadersMs = 5;
constexpr unsigned long beforeSecondFamilyMs = 1000;

/// A card or reader type: the whole text; the default for an empty one, 0 for no number.
int typeOr(int standard, const QString &args)
{
    return args.isEmpty() ? standard : numberFrom<int>(args);
}

template <class Read> QString readInto(Read read)
{
    QString text;
    read(&text);
    return text;
}

QJsonValue memberOf(const QString &json, const char *key)
{
    return QJsonDocument::fromJson(json.toUtf8()).object().value(QLatin1String(key));
}

/// The "code" of an ID card text; 100 unless it is there as a text.
int codeOf(const QString &json)
{
    constexpr int unreadable = 100;
    const QJsonValue code = memberOf(json, "code");
    return code.isString() ? code.toString().toInt() : unreadable;
}

/// The "result" of a card text; 0, no success, unless it is there as a number.
int resultOf(const QString &json)
{
    return int(qBound<double>(INT_MIN, memberOf(json, "result").toDouble(), INT_MAX));
}

} // namespace

QString MessageRun::sIDCardReader_callback(QString, QString, MessageRun *)
{
    ReadIdCardThread::instance()->readCard();
    return QStringLiteral(" ");
}

QString MessageRun::sIDCardReaderVX_callback(QString name, QString, MessageRun *)
{
    return reply(name, readInto(ReadSFZCardVX));
}

QString MessageRun::readIDMsg_callback(QString name, QString, MessageRun *)
{
    return reply(name, readInto(readIDMsg_qt));
}

QString MessageRun::readIDMsgVX_callback(QString name, QString, MessageRun *)
{
    return reply(name, readInto(readIDMsgVX_qt));
}

QString MessageRun::iReadCardBas_noPasam_callback(QString name, QString args, MessageRun *)
{
    const int type = typeOr(1, args);
    return reply(name, readInto([type](QString *text) { iReadCardBas_noPasam_qt(type, text); }));
}

// Accepted, not supported: an empty result whatever the type.
QString MessageRun::iReadCardBas_noPasamVX_callback(QString name, QString, MessageRun *)
{
    return reply(name);
}

QString MessageRun::iReadCardBasEx_callback(QString name, QString args, MessageRun *)
{
    const int type = typeOr(3, args);
    return reply(name, readInto([type](QString *text) { ReadCardBasExVX(text, type); }));
}

// The second family's module, where it is connected; else the first family's with a fixed type,
// and its text without the JSON around it.
QString MessageRun::WReadCardBasEx_callback(QString name, QString args, MessageRun *)
{
    if (!GetDeviceStatus_dc()) {
        return reply(name, readInto([](QString *text) { ReadCardBasExVX(text, 3); }));
    }
    QThread::msleep(beforeSecondFamilyMs);
    QString text;
    const bool read = ReadSBKCardBas_DK(typeOr(1, args), &text);
    return reply(name,
                 QStringLiteral("{\"lRet\":%1,\"outInfo\":\"%2\"}").arg(read ? 0 : 1).arg(text));
}

// Three readers in turn; the last one's text goes out whatever it holds.
QString MessageRun::WReadSFZCardBas_callback(QString name, QString, MessageRun *)
{
    QThread::msleep(betweenReadersMs);
    const QString first = readInto(ReadSFZCardBas_VX);
    const int code = codeOf(first);
    traceLine("messagerun", __LINE__, __func__) << code;
    if (code == 0) {
        return reply(name, first);
    }
    traceLine("messagerun", __LINE__, __func__) << first;

    QThread::msleep(betweenReadersMs);
    const QString second = utf8Of(DeviceText(::ReadCard(nullptr, nullptr)));
    if (resultOf(second) != 0) {
        return reply(name, second);
    }
    traceLine("messagerun", __LINE__, __func__) << second;

    QThread::msleep(betweenReadersMs);
    return reply(name, readInto(ReadSFZCardBas_DK));
}

// Only the second field counts.
QString MessageRun::ReadCard_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    const char *parameter = fields.count() >= 2 ? fields.utf8(1) : nullptr;
    return reply(name, utf8Of(DeviceText(::ReadCard(nullptr, parameter))));
}

// A second try goes to the other reader: 0 after 2, else 2.
QString MessageRun::GetBankCardInfo_callback(QString name, QString args, MessageRun *)
{
    const int type = typeOr(2, args);
    QString text;
    const bool read = GetBankCardInfoVX(&text, type) || GetBankCardInfoVX(&text, type == 2 ? 0 : 2);
    return read ? reply(name, text) : reply(name);
}

QString MessageRun::bOpenIDCardReader_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bOpenIDCardUSBPort(args.toUtf8().constData()));
}

QString MessageRun::bOpenIDCardSerialPort_callback(QString name, QString args, MessageRun *)
{
    return reply(name, openIDCardSerialPort(args.toUtf8().constData()));
}

QString MessageRun::bCloseIDCardDevie_callback(QString name, QString, MessageRun *)
{
    return reply(name, bCloseIDCardDevie());
}

QString MessageRun::bGetSAMStatus_callback(QString name, QString, MessageRun *)
{
    return reply(name, bgetSAMStatus());
}

QString MessageRun::GetSAMID_callback(QString name, QString, MessageRun *)
{
    return reply(name, latin1Of(DeviceText(::GetSAMID())));
}

QString MessageRun::sReadIDCardSnr_callback(QString name, QString, MessageRun *)
{
    return reply(name, latin1Of(DeviceText(sReadIDCardSnr())));
}

QString MessageRun::iReadICCardSnr_callback(QString name, QString, MessageRun *)
{
    return reply(name, iReadICCardSnr());
}

QString MessageRun::bPlayVoice_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bPlayVoice(numberFrom<int>(args)));
}
