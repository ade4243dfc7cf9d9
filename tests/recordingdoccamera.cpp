// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "tests/recordingcall.h"

#include <QImage>
#include <QPoint>

using recording::call;
using recording::fill;

// clang-format off

// Preview
bool bStartPlay(short rotation)                           { return call<bool>(__func__, rotation); }
bool bStartPlay2(short rotation)                          { return call<bool>(__func__, rotation); }
bool bStartPlay3(short rotation)                          { return call<bool>(__func__, rotation); }
bool bStartPlay5(short rotation)                          { return call<bool>(__func__, rotation); }
bool bStartPlay6(short rotation)                          { return call<bool>(__func__, rotation); }
bool bStartPlay8(short rotation)                          { return call<bool>(__func__, rotation); }
bool bStartPlay9(short rotation)                          { return call<bool>(__func__, rotation); }
bool bStartPlayOpen()                                     { return call<bool>(__func__); }
bool bStopPlay()                                          { return call<bool>(__func__); }
bool bStartPlay4()                                        { return call<bool>(__func__); }
bool bStopPlay4()                                         { return call<bool>(__func__); }
bool getVideoFrame(QImage &frame)                         { return fill<bool>(__func__, frame); }
bool getVideoFrameMat(cv::Mat &frame)                     { return fill<bool>(__func__, frame); }
bool getVideoFrameMatEx(cv::Mat &frame)                   { return fill<bool>(__func__, frame); }
bool bAVPreview(qint64 first, qint64 second)
    { return call<bool>(__func__, first, second); }
void vSetImageDispFlag(bool on)                           { call(__func__, on); }

// Settings
bool bSetMode(int mode)                                   { return call<bool>(__func__, mode); }
void vSetCamaraMode(short mode)                           { call(__func__, mode); }
void vSetResolutionEx(int camera, int index)              { call(__func__, camera, index); }
void setResolution(int camera, int width, int height)     { call(__func__, camera, width, height); }
int iGetResolutionX(int camera)                           { return call<int>(__func__, camera); }
int iGetResolutionY(int camera)                           { return call<int>(__func__, camera); }
void getResolutionIndex(int camera, std::vector<std::pair<double, double>> &sizes)
    { fill(__func__, sizes, camera); }
void vSetRotate(short angle)                              { call(__func__, angle); }
short iGetRotate()                                        { return call<short>(__func__); }
void vSetFlip(short mode)                                 { call(__func__, mode); }
short iGetFlip()                                          { return call<short>(__func__); }
bool vSetExposure(int value)                              { return call<bool>(__func__, value); }
bool vSetBrightness(int value)                            { return call<bool>(__func__, value); }
bool vSetContrast(int value)                              { return call<bool>(__func__, value); }
bool AutoFocus()                                          { return call<bool>(__func__); }
bool vSetDPI(qint64 x, qint64 y)                          { return call<bool>(__func__, x, y); }
void vGetDPI(int *x, int *y)
{
    QPoint dpi;
    fill(__func__, dpi);
    *x = dpi.x();
    *y = dpi.y();
}
bool bSetImageArea(int x1, int y1, int x2, int y2)
    { return call<bool>(__func__, x1, y1, x2, y2); }
long lGetImageAreaX1()                                    { return call<long>(__func__); }
long lGetImageAreaY1()                                    { return call<long>(__func__); }
long lGetImageAreaX2()                                    { return call<long>(__func__); }
long lGetImageAreaY2()                                    { return call<long>(__func__); }
bool vSetImageQuality(int quality)                        { return call<bool>(__func__, quality); }
short sGetImageQuality()                                  { return call<short>(__func__); }
bool bSetBookScannerMode(int mode)                        { return call<bool>(__func__, mode); }
int igetBookScannerMode()                                 { return call<int>(__func__); }
void vSetCapturePin(void (*listener)(int, int, int, unsigned int, int, void *))
    { call(__func__, listener); }

// Capture
bool bSaveJPG(const char *directory, const char *name)
    { return call<bool>(__func__, directory, name); }
bool bSaveTifJPG(const char *directory, const char *name)
    { return call<bool>(__func__, directory, name); }
bool bSaveGray(const char *directory, const char *name)
    { return call<bool>(__func__, directory, name); }
bool bSaveTIF(const char *directory, const char *name)
    { return call<bool>(__func__, directory, name); }
bool bSaveBMP(const char *directory, const char *name)
    { return call<bool>(__func__, directory, name); }
bool bSavePNG(const char *directory, const char *name)
    { return call<bool>(__func__, directory, name); }
bool bSaveGrayAndTIF(const char *p1, const char *p2, const char *p3, const char *p4)
    { return call<bool>(__func__, p1, p2, p3, p4); }
bool SplitPic(const char *p1, const char *p2)             { return call<bool>(__func__, p1, p2); }
const char *sGetImageBase64_Byte(int number)
    { return call<const char *>(__func__, number); }
char *Base64Encode(const char *text)                      { return call<char *>(__func__, text); }
bool Base64Decode(const char *first, const char *second)
    { return call<bool>(__func__, first, second); }

// Documents
bool bSavePDFStart(const char *p1, const char *p2)        { return call<bool>(__func__, p1, p2); }
bool bSavePDFColorPage()                                  { return call<bool>(__func__); }
bool bSavePDFBWPage()                                     { return call<bool>(__func__); }
bool bSavePDFEnd()                                        { return call<bool>(__func__); }
bool bAddPDFColorPage(const char *image, float number)
    { return call<bool>(__func__, image, number); }
bool bAddPDFBWPage(const char *image, float number)
    { return call<bool>(__func__, image, number); }
bool bAddPDFBase64ColorPage(const char *base64)           { return call<bool>(__func__, base64); }
bool bSaveOFDStart(const char *p1, const char *p2)        { return call<bool>(__func__, p1, p2); }
bool bSaveOFDColorPage()                                  { return call<bool>(__func__); }
bool bSaveOFDBWPage()                                     { return call<bool>(__func__); }
bool bSaveOFDEnd()                                        { return call<bool>(__func__); }
bool bAddOFDPage(const char *image, float number)
    { return call<bool>(__func__, image, number); }
bool bAddOFDBase64ColorPage(const char *base64)           { return call<bool>(__func__, base64); }
bool bSaveMergeStart(const char *p1, const char *p2, short p3, short p4, qint64 p5, qint64 p6)
    { return call<bool>(__func__, p1, p2, p3, p4, p5, p6); }
bool bSaveMergePage()                                     { return call<bool>(__func__); }
bool bSaveMergeEnd()                                      { return call<bool>(__func__); }

// Scanning
void iAutoScan_observr(QObject *receiver, const char *slot)
{
    recording::keepObserver(receiver, slot);
    call(__func__, receiver, slot);
}
int iAutoScan(int number, const char *text1, const char *text2)
    { return call<int>(__func__, number, text1, text2); }
int iTimerScan(int number1, const char *text1, const char *text2, int number2)
    { return call<int>(__func__, number1, text1, text2, number2); }
bool bBookScanner(const char *t1, const char *t2, const char *t3OrNull)
    { return call<bool>(__func__, t1, t2, t3OrNull); }

// Recording
bool bStartRec(const char *path)                          { return call<bool>(__func__, path); }
bool bStartRecMp3(const char *path)                       { return call<bool>(__func__, path); }
bool bStopRec()                                           { return call<bool>(__func__); }
bool bPauseRec()                                          { return call<bool>(__func__); }
bool bResumeRec()                                         { return call<bool>(__func__); }
bool isRecording()                                        { return call<bool>(__func__); }
void vSetRecSize(qint64 width, qint64 height)             { call(__func__, width, height); }

// Printing, watermark, barcode
bool bPrint(int number)                                   { return call<bool>(__func__, number); }
bool bPrintImage(short a, const char *image, short b)
    { return call<bool>(__func__, a, image, b); }
bool bPrintImageFile(const char *image, int number)
    { return call<bool>(__func__, image, number); }
void vSetWaterPrint(short a, const char *text, short b)   { call(__func__, a, text, b); }
void vSetWaterPrintFont(const char *font)                 { call(__func__, font); }
void vSetWaterPrintFontSize(short size)                   { call(__func__, size); }
void vSetWaterPrintFontColor(long color)                 { call(__func__, color); }
void vSetWaterPrintPos(short x, short y)                  { call(__func__, x, y); }
char *sGetBarCode(const char *image)                      { return call<char *>(__func__, image); }
char *sGetBarCodeEx(long kind, const char *image)
    { return call<char *>(__func__, kind, image); }
char *sGetBarCodeOnline()                                 { return call<char *>(__func__); }

// Upload, status, files
char *sUpLoadImage(const char *p1, const char *p2, const char *p3, bool flag, const char *p4)
    { return call<char *>(__func__, p1, p2, p3, flag, p4); }
char *sUpLoadImageEx2(const char *p1, const char *p2, long p3, const char *p4)
    { return call<char *>(__func__, p1, p2, p3, p4); }
bool bUpLoadImage(const char *p1, const char *p2, long p3, const char *p4)
    { return call<bool>(__func__, p1, p2, p3, p4); }
bool sUpLoadImageEx5(const char *p1, const char *p2, long p3, const char *p4, const char *p6,
                     const char *p7, QString *answer)
    { return fill<bool>(__func__, *answer, p1, p2, p3, p4, p6, p7); }
char *sGetDevicesId()                                     { return call<char *>(__func__); }
char *sEnumUSBDevice()                                    { return call<char *>(__func__); }
char *sGetSerialNum()                                     { return call<char *>(__func__); }
void doccameraVeriosn(char *buffer, int capacity)
{
    QByteArray version;
    fill(__func__, version, capacity);
    if (capacity > 0) {
        qstrncpy(buffer, version.constData(), uint(capacity));
    }
}
bool bDeleteFile(const char *path)                        { return call<bool>(__func__, path); }
bool bDeleteFileForever(const char *path)                 { return call<bool>(__func__, path); }
bool bCopyFile(const char *from, const char *to)          { return call<bool>(__func__, from, to); }
bool bMoveFile(const char *from, const char *to)          { return call<bool>(__func__, from, to); }
bool bReNameFile(const char *from, const char *to)        { return call<bool>(__func__, from, to); }
bool bFileIsExist(const char *path)                       { return call<bool>(__func__, path); }
bool bDirIsExist(const char *path)                        { return call<bool>(__func__, path); }
bool bCreateDir(const char *path)                         { return call<bool>(__func__, path); }
bool OpenFile(const char *path)                           { return call<bool>(__func__, path); }
bool bDispPath(const char *path)                          { return call<bool>(__func__, path); }
bool IsExeExist()                                         { return call<bool>(__func__); }
const char *sGetAllFormatFiles(const char *directory, const char *format)
    { return call<const char *>(__func__, directory, format); }

// clang-format on
