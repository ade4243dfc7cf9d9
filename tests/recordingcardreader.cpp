// SPDX-License-Identifier: MIT
#include "devicelib/cardreader.h"
#include "tests/recordingcall.h"

using recording::call;
using recording::fill;

// clang-format off
char *sIDCardReader()                                     { return call<char *>(__func__); }
void ReadSFZCardVX(QString *text)                         { fill(__func__, *text); }
void readIDMsg_qt(QString *text)                          { fill(__func__, *text); }
void readIDMsgVX_qt(QString *text)                        { fill(__func__, *text); }
void ReadSFZCardBas_VX(QString *text)                     { fill(__func__, *text); }
char *ReadCard(void *reserved, const char *parameter)
    { return call<char *>(__func__, reserved, parameter); }
void ReadSFZCardBas_DK(QString *text)                     { fill(__func__, *text); }

void iReadCardBas_noPasam_qt(int type, QString *text)     { fill(__func__, *text, type); }
void ReadCardBasExVX(QString *text, int type)             { fill(__func__, *text, type); }
bool GetDeviceStatus_dc()                                 { return call<bool>(__func__); }
bool ReadSBKCardBas_DK(int type, QString *text)
    { return fill<bool>(__func__, *text, type); }

bool GetBankCardInfoVX(QString *text, int type)
    { return fill<bool>(__func__, *text, type); }
int iReadICCardSnr()                                      { return call<int>(__func__); }

bool bOpenIDCardUSBPort(const char *port)                 { return call<bool>(__func__, port); }
bool openIDCardSerialPort(const char *port)               { return call<bool>(__func__, port); }
bool bCloseIDCardDevie()                                  { return call<bool>(__func__); }
bool bgetSAMStatus()                                      { return call<bool>(__func__); }
char *GetSAMID()                                          { return call<char *>(__func__); }
char *sReadIDCardSnr()                                    { return call<char *>(__func__); }
bool bPlayVoice(int number)                               { return call<bool>(__func__, number); }
// clang-format on
