// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/unsupported.h"

using portable::unsupported;

// clang-format off

// Settings
bool bSetMode(int)                                { return unsupported<bool>(__func__); }
void vSetCamaraMode(short)                        { unsupported(__func__); }
void vSetResolutionEx(int, int)                   { unsupported(__func__); }
void setResolution(int, int, int)                 { unsupported(__func__); }
bool vSetExposure(int)                            { return unsupported<bool>(__func__); }
bool vSetBrightness(int)                          { return unsupported<bool>(__func__); }
bool vSetContrast(int)                            { return unsupported<bool>(__func__); }
bool AutoFocus()                                  { return unsupported<bool>(__func__); }
bool vSetDPI(qint64, qint64)                      { return unsupported<bool>(__func__); }
void vGetDPI(int *x, int *y)
    { *x = *y = 0; unsupported(__func__); }
bool bSetImageArea(int, int, int, int)            { return unsupported<bool>(__func__); }
long lGetImageAreaX1()                            { return unsupported<long>(__func__); }
long lGetImageAreaY1()                            { return unsupported<long>(__func__); }
long lGetImageAreaX2()                            { return unsupported<long>(__func__); }
long lGetImageAreaY2()                            { return unsupported<long>(__func__); }
bool vSetImageQuality(int)                        { return unsupported<bool>(__func__); }
short sGetImageQuality()                          { return unsupported<short>(__func__); }
bool bSetBookScannerMode(int)                     { return unsupported<bool>(__func__); }
int igetBookScannerMode()                         { return unsupported<int>(__func__); }
void vSetCapturePin(void (*)(int, int, int, unsigned int, int, void *))
    { unsupported(__func__); }

// Capture
bool bSaveJPG(const char *, const char *)         { return unsupported<bool>(__func__); }
bool bSaveTifJPG(const char *, const char *)      { return unsupported<bool>(__func__); }
bool bSaveGray(const char *, const char *)        { return unsupported<bool>(__func__); }
bool bSaveTIF(const char *, const char *)         { return unsupported<bool>(__func__); }
bool bSaveBMP(const char *, const char *)         { return unsupported<bool>(__func__); }
bool bSavePNG(const char *, const char *)         { return unsupported<bool>(__func__); }
bool bSaveGrayAndTIF(const char *, const char *, const char *, const char *)
    { return unsupported<bool>(__func__); }
bool SplitPic(const char *, const char *)         { return unsupported<bool>(__func__); }
const char *sGetImageBase64_Byte(int)             { return unsupported<const char *>(__func__); }
char *Base64Encode(const char *)                  { return unsupported<char *>(__func__); }
bool Base64Decode(const char *, const char *)     { return unsupported<bool>(__func__); }

// Documents
bool bSavePDFStart(const char *, const char *)    { return unsupported<bool>(__func__); }
bool bSavePDFColorPage()                          { return unsupported<bool>(__func__); }
bool bSavePDFBWPage()                             { return unsupported<bool>(__func__); }
bool bSavePDFEnd()                                { return unsupported<bool>(__func__); }
bool bAddPDFColorPage(const char *, float)        { return unsupported<bool>(__func__); }
bool bAddPDFBWPage(const char *, float)           { return unsupported<bool>(__func__); }
bool bAddPDFBase64ColorPage(const char *)         { return unsupported<bool>(__func__); }
bool bSaveOFDStart(const char *, const char *)    { return unsupported<bool>(__func__); }
bool bSaveOFDColorPage()                          { return unsupported<bool>(__func__); }
bool bSaveOFDBWPage()                             { return unsupported<bool>(__func__); }
bool bSaveOFDEnd()                                { return unsupported<bool>(__func__); }
bool bAddOFDPage(const char *, float)             { return unsupported<bool>(__func__); }
bool bAddOFDBase64ColorPage(const char *)         { return unsupported<bool>(__func__); }
bool bSaveMergeStart(const char *, const char *, short, short, qint64, qint64)
    { return unsupported<bool>(__func__); }
bool bSaveMergePage()                             { return unsupported<bool>(__func__); }
bool bSaveMergeEnd()                              { return unsupported<bool>(__func__); }

// Scanning
void iAutoScan_observr(QObject *, const char *)   { unsupported(__func__); }
int iAutoScan(int, const char *, const char *)
    { return unsupported<int>(__func__, -1); }
int iTimerScan(int, const char *, const char *, int)
    { return unsupported<int>(__func__, -1); }
bool bBookScanner(const char *, const char *, const char *)
    { return unsupported<bool>(__func__); }

// Recording
bool bStartRec(const char *)                      { return unsupported<bool>(__func__); }
bool bStartRecMp3(const char *)                   { return unsupported<bool>(__func__); }
bool bPauseRec()                                  { return unsupported<bool>(__func__); }
bool bResumeRec()                                 { return unsupported<bool>(__func__); }
void vSetRecSize(qint64, qint64)                  { unsupported(__func__); }

// Asked with every end of a preview, and polled: no fault, so no log line.
bool bStopRec()                                   { return false; }
bool isRecording()                                { return false; }

// Printing, watermark, barcode
bool bPrint(int)                                  { return unsupported<bool>(__func__); }
bool bPrintImage(short, const char *, short)      { return unsupported<bool>(__func__); }
bool bPrintImageFile(const char *, int)           { return unsupported<bool>(__func__); }
void vSetWaterPrint(short, const char *, short)   { unsupported(__func__); }
void vSetWaterPrintFont(const char *)             { unsupported(__func__); }
void vSetWaterPrintFontSize(short)                { unsupported(__func__); }
void vSetWaterPrintFontColor(long)                { unsupported(__func__); }
void vSetWaterPrintPos(short, short)              { unsupported(__func__); }
char *sGetBarCode(const char *)                   { return unsupported<char *>(__func__); }
char *sGetBarCodeEx(long, const char *)           { return unsupported<char *>(__func__); }
char *sGetBarCodeOnline()                         { return unsupported<char *>(__func__); }
// clang-format on
