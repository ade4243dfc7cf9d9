// SPDX-License-Identifier: MIT
//
// Cards and card readers. The device library's card texts go to the page unchanged; only the
// fallback from one reader to the next looks into them.

#include "base/clock.h"
#include "devicelib/cardreader.h"
#include "dispatch/arguments.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"
#include "identity/readidcardthread.h"
#include "log/trace.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <climits>

using namespace std::chrono_literals;

namespace {

/// Readers need a pause before each read.
constexpr auto readerPause = 5ms;
constexpr auto secondFamilyPause = 1000ms;

constexpr int maxFailureLogged = 500; // characters; the text of a card that was read is longer

void pause(base::Clock::Duration time)
{
    base::Clock::shared().sleepFor(time);
}

/// A card or reader type: the whole text; the default for an empty one, 0 if it is not a number.
int typeOr(int defaultType, const QString &args)
{
    return args.isEmpty() ? defaultType : numberFrom<int>(args);
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

/// The "code" of an ID card text; 100 unless it is a string.
int codeOf(const QString &json)
{
    constexpr int unreadable = 100;
    const QJsonValue code = memberOf(json, "code");
    return code.isString() ? code.toString().toInt() : unreadable;
}

/// The "result" of a card text; 0, a failure, unless it is a number.
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

// Not supported: the result is empty for every type.
QString MessageRun::iReadCardBas_noPasamVX_callback(QString name, QString, MessageRun *)
{
    return reply(name);
}

QString MessageRun::iReadCardBasEx_callback(QString name, QString args, MessageRun *)
{
    const int type = typeOr(3, args);
    return reply(name, readInto([type](QString *text) { ReadCardBasExVX(text, type); }));
}

// The second reader family where connected; otherwise the first with a fixed type, whose text is
// not wrapped in JSON.
QString MessageRun::WReadCardBasEx_callback(QString name, QString args, MessageRun *)
{
    if (!GetDeviceStatus_dc()) {
        return reply(name, readInto([](QString *text) { ReadCardBasExVX(text, 3); }));
    }
    pause(secondFamilyPause);
    QString text;
    const bool read = ReadSBKCardBas_DK(typeOr(1, args), &text);
    return reply(name,
                 QStringLiteral("{\"lRet\":%1,\"outInfo\":\"%2\"}").arg(read ? 0 : 1).arg(text));
}

// Three readers in turn; the last one's text is the reply whatever it says.
QString MessageRun::WReadSFZCardBas_callback(QString name, QString, MessageRun *)
{
    pause(readerPause);
    const QString first = readInto(ReadSFZCardBas_VX);
    const int code = codeOf(first);
    traceLine("messagerun", __LINE__, __func__) << code;
    if (code == 0) {
        return reply(name, first);
    }
    traceLine("messagerun", __LINE__, __func__) << withoutData(first, maxFailureLogged);

    pause(readerPause);
    const QString second = utf8Of(DeviceText(::ReadCard(nullptr, nullptr)));
    if (resultOf(second) != 0) {
        return reply(name, second);
    }
    traceLine("messagerun", __LINE__, __func__) << withoutData(second, maxFailureLogged);

    pause(readerPause);
    return reply(name, readInto(ReadSFZCardBas_DK));
}

// Only the second field is used.
QString MessageRun::ReadCard_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    const char *parameter = fields.count() >= 2 ? fields.utf8(1) : nullptr;
    return reply(name, utf8Of(DeviceText(::ReadCard(nullptr, parameter))));
}

// The second try uses the other reader: 0 after 2, else 2.
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
