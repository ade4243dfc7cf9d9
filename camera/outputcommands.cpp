// SPDX-License-Identifier: MIT
//
// Printing, watermark and barcodes. Paths and watermark texts are passed in the local 8-bit
// encoding, except by bPrintImageFile.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"

namespace {

/// Decimal if possible, otherwise hexadecimal with or without "0x", otherwise 0.
long colorFrom(const QString &text)
{
    bool isDecimal = false;
    const long color = text.toLong(&isDecimal);
    return isDecimal ? color : text.toLong(nullptr, 16);
}

} // namespace

QString MessageRun::bPrint_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bPrint(Arguments(args).number<int>(0)));
}

QString MessageRun::bPrintImage_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(
        name,
        fields.count() >= 3
            && bPrintImage(fields.number<short>(0), fields.local8Bit(1), fields.number<short>(2)));
}

QString MessageRun::bPrintImageFile_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name, bPrintImageFile(fields.utf8(0), fields.number<int>(1)));
}

// The watermark commands reply "true" even when too few fields were given to make the call.
QString MessageRun::vSetWaterPrint_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() >= 3) {
        vSetWaterPrint(fields.number<short>(0), fields.local8Bit(1), fields.number<short>(2));
    }
    return reply(name, true);
}

QString MessageRun::vSetWaitePrintFont_callback(QString name, QString args, MessageRun *)
{
    vSetWaterPrintFont(Arguments(args).local8Bit(0));
    return reply(name, true);
}

QString MessageRun::vSetWaterPrintFontSize_callback(QString name, QString args, MessageRun *)
{
    vSetWaterPrintFontSize(Arguments(args).number<short>(0));
    return reply(name, true);
}

QString MessageRun::vSetWaterPrintFontColor_callback(QString name, QString args, MessageRun *)
{
    vSetWaterPrintFontColor(colorFrom(Arguments(args).text(0)));
    return reply(name, true);
}

QString MessageRun::vSetWaterPrintPos_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    vSetWaterPrintPos(fields.number<short>(0), fields.number<short>(1));
    return reply(name, true);
}

QString MessageRun::sGetBarCode_callback(QString name, QString args, MessageRun *)
{
    return reply(name, utf8Of(DeviceText(sGetBarCode(Arguments(args).local8Bit(0)))));
}

QString MessageRun::sGetBarCodeEx_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 2) {
        return reply(name);
    }
    return reply(name,
                 utf8Of(DeviceText(sGetBarCodeEx(fields.number<long>(0), fields.local8Bit(1)))));
}

// Latin-1, unlike the other barcode texts.
QString MessageRun::sGetBarCodeOnline_callback(QString name, QString, MessageRun *)
{
    return reply(name, latin1Of(DeviceText(sGetBarCodeOnline())));
}

// Not supported.
QString MessageRun::sOCRToString_callback(QString name, QString, MessageRun *)
{
    return reply(name, false);
}
