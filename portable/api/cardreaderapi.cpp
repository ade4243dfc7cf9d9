// SPDX-License-Identifier: MIT
#include "devicelib/cardreader.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/card/cardreaders.h"
#include "portable/card/speech.h"

#include <QString>

using portable::CardKind;
using portable::CardReaders;
using portable::CardResult;
using portable::heapText;

namespace {

QString textOf(const CardResult &result)
{
    return QString::fromUtf8(portable::cardText(result));
}

CardResult readIdentityCard()
{
    return CardReaders::instance().read(CardKind::Identity);
}

CardResult readSocialCard(int type)
{
    return CardReaders::instance().read(CardKind::SocialSecurity, type);
}

} // namespace

namespace portable::api {

char *sIDCardReader()
{
    return heapText(portable::asciiCardText(readIdentityCard()));
}

void ReadSFZCardVX(QString *text)
{
    *text = textOf(readIdentityCard());
}

void readIDMsg_qt(QString *text)
{
    *text = textOf(readIdentityCard());
}

void readIDMsgVX_qt(QString *text)
{
    *text = textOf(readIdentityCard());
}

void ReadSFZCardBas_VX(QString *text)
{
    *text = textOf(readIdentityCard());
}

char *ReadCard(void *, const char *)
{
    return heapText(portable::cardText(readIdentityCard()));
}

void ReadSFZCardBas_DK(QString *text)
{
    *text = textOf(readIdentityCard());
}

void iReadCardBas_noPasam_qt(int type, QString *text)
{
    *text = textOf(readSocialCard(type));
}

void ReadCardBasExVX(QString *text, int type)
{
    *text = textOf(readSocialCard(type));
}

bool GetDeviceStatus_dc()
{
    return CardReaders::instance().isConnected();
}

bool ReadSBKCardBas_DK(int type, QString *text)
{
    const CardResult result = readSocialCard(type);
    *text = portable::quotedCardText(result); // the caller sets it between quotes as it is
    return result.isRead();
}

bool GetBankCardInfoVX(QString *text, int type)
{
    const CardResult result = CardReaders::instance().read(CardKind::Bank, type);
    *text = textOf(result);
    return result.isRead();
}

int iReadICCardSnr()
{
    const QByteArray serial = CardReaders::instance().readSerial(CardKind::Ic);
    quint32 number = 0;
    for (const char byte : serial.right(4)) {
        number = number << 8 | quint8(byte);
    }
    return int(number & 0x7FFFFFFF); // negative numbers are for failures elsewhere
}

bool bOpenIDCardUSBPort(const char *)
{
    return CardReaders::instance().openUsb();
}

bool openIDCardSerialPort(const char *port)
{
    return CardReaders::instance().openSerial(QString::fromUtf8(port));
}

bool bCloseIDCardDevie()
{
    CardReaders::instance().close();
    return true;
}

bool bgetSAMStatus()
{
    return CardReaders::instance().hasModule();
}

char *GetSAMID()
{
    return heapText(CardReaders::instance().moduleNumber());
}

char *sReadIDCardSnr()
{
    const QByteArray serial = CardReaders::instance().readSerial(CardKind::Identity);
    return heapText(serial.isEmpty() ? QByteArray() : serial.toHex().toUpper());
}

bool bPlayVoice(int number)
{
    const QString text = portable::prompt(number);
    if (text.isEmpty()) {
        return portable::logFailure(__func__,
                                    QStringLiteral("there is no voice prompt %1").arg(number));
    }
    return portable::speak(text);
}

} // namespace portable::api
