// SPDX-License-Identifier: MIT
#include "devicelib/cardreader.h"
#include "portable/unsupported.h"

#include <QString>

using portable::unsupported;

namespace {

/** A reader that fills in a text: leaves it empty. */
void emptied(const char *function, QString *text)
{
    text->clear();
    unsupported(function);
}

} // namespace

// clang-format off

// Identity cards
char *sIDCardReader()                             { return unsupported<char *>(__func__); }
void ReadSFZCardVX(QString *text)                 { emptied(__func__, text); }
void readIDMsg_qt(QString *text)                  { emptied(__func__, text); }
void readIDMsgVX_qt(QString *text)                { emptied(__func__, text); }
void ReadSFZCardBas_VX(QString *text)             { emptied(__func__, text); }
char *ReadCard(void *, const char *)              { return unsupported<char *>(__func__); }
void ReadSFZCardBas_DK(QString *text)             { emptied(__func__, text); }

// Social security cards
void iReadCardBas_noPasam_qt(int, QString *text)  { emptied(__func__, text); }
void ReadCardBasExVX(QString *text, int)          { emptied(__func__, text); }
bool GetDeviceStatus_dc()                         { return unsupported<bool>(__func__); }
bool ReadSBKCardBas_DK(int, QString *text)        { emptied(__func__, text); return false; }

// Bank and IC cards
bool GetBankCardInfoVX(QString *text, int)        { emptied(__func__, text); return false; }
int iReadICCardSnr()                              { return unsupported<int>(__func__); }

// The reader itself
bool bOpenIDCardUSBPort(const char *)             { return unsupported<bool>(__func__); }
bool openIDCardSerialPort(const char *)           { return unsupported<bool>(__func__); }
bool bCloseIDCardDevie()                          { return unsupported<bool>(__func__); }
bool bgetSAMStatus()                              { return unsupported<bool>(__func__); }
char *GetSAMID()                                  { return unsupported<char *>(__func__); }
char *sReadIDCardSnr()                            { return unsupported<char *>(__func__); }
bool bPlayVoice(int)                              { return unsupported<bool>(__func__); }
// clang-format on
