// SPDX-License-Identifier: MIT
/**
 * \file
 * The device interface of the document camera: preview, settings, capture, documents, scanning,
 * recording, printing, barcodes, upload, status and files. The shared library `doccamera`
 * implements this header and biometrics.h. The rules below apply to every function unless its own
 * description says otherwise.
 *
 * Input text   NUL-terminated UTF-8, never null, valid for the duration of the call: the library
 *              copies what it keeps. "Local text" is in the local 8-bit encoding instead.
 * Output text  UTF-8; null means an empty text. A `char *` is allocated with malloc and freed by
 *              the caller. A `const char *` belongs to the library and stays valid until the same
 *              function is called again. Lists are joined with "|".
 * Outputs      Pointers and references to fill in are never null. Images and matrices share their
 *              pixels by reference counting: the library never writes to pixels it has returned.
 * Failure      bool false, number 0, text null or empty, outputs emptied. The reason goes to the
 *              library's own log. No exception leaves the library.
 * Arguments    Come from web pages: any value must be safe.
 * Threads      Any function may be called from any thread at any time, whether or not a camera is
 *              open; starts and stops, frames, settings, captures and recording run concurrently. A
 *              call may wait for another to finish, but settings and queries never wait for the
 *              camera to deliver. No function needs the event loop of the calling thread.
 * Listeners    Never null. The library calls them on a thread of its own, or by a queued call on
 *              the main thread, holding no lock, and never after main() has returned. A listener
 *              returns quickly, calls no function of this interface and copies its arguments, which
 *              are valid only during the call. Its `context` is the pointer passed with the
 *              listener, or null where none is.
 *
 * "Implementation-defined" marks values whose meaning differs between makers: the server passes
 * them between client and library unchanged. Their parameters are named for what the portable
 * library takes them for; docs/portable.md has its values, function by function.
 */
#pragma once

#include <QtGlobal>

#include <utility>
#include <vector>

class QImage;
class QObject;
class QString;
namespace cv {
class Mat;
}

extern "C" {

/**
 * \name Preview
 *
 * One source at a time is the main preview; the fourth source may be open beside it. Source 1 is
 * the document camera; which cameras the other numbers select is implementation-defined. `rotation`
 * is in degrees clockwise: 90, 180 and 270 also become the angle of vSetRotate, 0 keeps that angle,
 * and any other value fails.
 *
 * A start replaces the main preview that is open and returns true once the camera is open. After a
 * failed start no main preview is open, and the start may be retried at once.
 */
///@{
bool bStartPlay(short rotation); ///< Source 1, the main camera.
bool bStartPlay2(short rotation); ///< Source 2.
bool bStartPlay3(short rotation); ///< Source 3.
bool bStartPlay5(short rotation); ///< Source 5.
bool bStartPlay6(short rotation); ///< Source 6.
bool bStartPlay8(short rotation); ///< Source 8.
bool bStartPlay9(short rotation); ///< Source 9.

/// Starts the dual camera: main and second camera side by side in one picture.
bool bStartPlayOpen();

/// Stops the main preview. \return true when none is open afterwards, even if none was before
bool bStopPlay();

/// Opens the fourth source beside the main preview.
bool bStartPlay4();

/// Closes the fourth source. \return true when it is closed afterwards, even if it was before
bool bStopPlay4();

/**
 * Returns a frame of the main preview, rotated and flipped, in any QImage format. Blocks until
 * there is a frame newer than the last one this function returned, and so paces the preview.
 * \return false, with a null image, when no preview is open, it was stopped during the call, or the
 *         camera delivers nothing
 */
bool getVideoFrame(QImage &frame);

/**
 * Returns a current frame of the main preview, rotated and flipped, 8-bit BGR (CV_8UC3). Does not
 * wait for a newer frame and does not consume one from getVideoFrame.
 */
bool getVideoFrameMat(cv::Mat &frame);

/// As getVideoFrameMat, for single pictures: a library may return one of better quality here.
bool getVideoFrameMatEx(cv::Mat &frame);

/**
 * Runs the library's own audio and video preview; when it returns true, the caller restarts the
 * main preview. Both options are implementation-defined. It may return when its window is closed,
 * within an hour; the server's other commands wait for that.
 */
bool bAVPreview(qint64 option1, qint64 option2);

/// Turns the library's own image display on or off, if it has one.
void vSetImageDispFlag(bool on);
///@}

/**
 * \name Settings
 *
 * Last as long as the process and may be changed before a camera is open. A value out of range
 * changes nothing. `camera` is the number of a source, 1 being the main camera; sizes are in
 * pixels, before rotation.
 */
///@{

/**
 * Selects what captures take; the preview is unaffected.
 * \param mode  0 whole picture, 1 crop area (bSetImageArea), 2 the sheet, detected and deskewed
 */
bool bSetMode(int mode);

/// Sets the camera's working mode; its values are implementation-defined.
void vSetCamaraMode(short mode);

/// Selects a size by its index in the list of getResolutionIndex, from 0.
void vSetResolutionEx(int camera, int index);

/// Requests a size; the camera uses it or the nearest one it supports.
void setResolution(int camera, int width, int height);

int iGetResolutionX(int camera); ///< Width in use; 0 when there is no such camera.
int iGetResolutionY(int camera); ///< Height in use; 0 when there is no such camera.

/// Replaces `sizes` with the camera's (width, height) pairs, in an order of the library's own.
void getResolutionIndex(int camera, std::vector<std::pair<double, double>> &sizes);

/// Rotates preview and captures. \param angle  degrees clockwise: 0, 90, 180 or 270
void vSetRotate(short angle);
short iGetRotate(); ///< The angle set by vSetRotate; 0 by default.

/// Mirrors the rotated picture. \param mode  0 none, 1 left-right, 2 top-bottom, 3 both
void vSetFlip(short mode);
short iGetFlip(); ///< The mode set by vSetFlip; 0 by default.

bool vSetExposure(int value); ///< Unit and range are implementation-defined.
bool vSetBrightness(int value); ///< Unit and range are implementation-defined.
bool vSetContrast(int value); ///< Unit and range are implementation-defined.

/// Focuses once. \return true when focusing has started; the result is not awaited
bool AutoFocus();

/// Sets the resolution stored in saved pictures and pages, in dots per inch.
bool vSetDPI(qint64 x, qint64 y);
void vGetDPI(int *x, int *y); ///< The values set by vSetDPI.

/**
 * Sets the crop area for mode 1: its top left and bottom right corners, in pixels of the rotated
 * picture.
 */
bool bSetImageArea(int x1, int y1, int x2, int y2);
long lGetImageAreaX1(); ///< Left edge of the crop area; all four are 0 while none is set.
long lGetImageAreaY1(); ///< Top edge.
long lGetImageAreaX2(); ///< Right edge.
long lGetImageAreaY2(); ///< Bottom edge.

/// Sets the quality of JPEG files, 1 to 100.
bool vSetImageQuality(int quality);
short sGetImageQuality(); ///< The quality set by vSetImageQuality.

/// Sets how bBookScanner works; the modes are implementation-defined.
bool bSetBookScannerMode(int mode);
int igetBookScannerMode(); ///< The mode set by bSetBookScannerMode.

/**
 * Sets the listener for the camera's capture button, replacing the previous one.
 * \param listener  its first argument is 1 when the button was pressed; the others, but for the
 *                  context at the end, are implementation-defined
 */
void vSetCapturePin(void (*listener)(int pressed, int, int, unsigned int, int, void *context));
///@}

/**
 * \name Capture
 *
 * A capture is the current picture at full resolution, cut as bSetMode selects, with the watermark.
 * The bSave functions write it into a directory under a name to which the library adds the
 * extension. They return true once the file is complete, and false without an open preview.
 */
///@{
bool bSaveJPG(const char *directory, const char *name); ///< Color JPEG.
bool bSaveTifJPG(const char *directory, const char *name); ///< Color TIFF, JPEG-compressed.
bool bSaveGray(const char *directory, const char *name); ///< Grey picture.
bool bSaveTIF(const char *directory, const char *name); ///< Bilevel TIFF.
bool bSaveBMP(const char *directory, const char *name); ///< Color bitmap.
bool bSavePNG(const char *directory, const char *name); ///< Color PNG.

/// Saves one capture twice: as a grey picture and as a bilevel TIFF.
bool bSaveGrayAndTIF(const char *greyDirectory, const char *greyName, const char *tiffDirectory,
                     const char *tiffName);

/// Splits a picture into two; both arguments are implementation-defined.
bool SplitPic(const char *image, const char *directory);

/**
 * Returns a capture as base64 of an image file, whose format is implementation-defined.
 * \param kind  0 color, 1 grey, 2 bilevel
 */
const char *sGetImageBase64_Byte(int kind);

/// Returns the bytes of the file at `path` as base64 without line breaks.
char *Base64Encode(const char *path);

/**
 * Writes the decoded bytes to a file.
 * \param base64  local text
 * \param path    local text: the file to write
 */
bool Base64Decode(const char *base64, const char *path);
///@}

/**
 * \name Documents
 *
 * One PDF, one OFD and one merged picture may be in progress at a time, each from its start to its
 * end; without a start, pages and ends return false. A page without an image argument is a capture.
 * A BW page is bilevel. `position` is the new page's number, counted from 1; -1.0 appends, and so
 * does 1.0 in an OFD.
 */
///@{

/// \param name  without extension
bool bSavePDFStart(const char *directory, const char *name);
bool bSavePDFColorPage(); ///< Appends a capture in color.
bool bSavePDFBWPage(); ///< Appends a bilevel capture.
bool bSavePDFEnd(); ///< Writes the file; true once it is complete.
bool bAddPDFColorPage(const char *image, float position); ///< Adds an image file, local text.
bool bAddPDFBWPage(const char *image, float position); ///< Adds an image file, local text.

/// Appends an image file given as base64, which may begin with "data:image/...;base64,".
bool bAddPDFBase64ColorPage(const char *base64);

bool bSaveOFDStart(const char *directory, const char *name); ///< As bSavePDFStart.
bool bSaveOFDColorPage(); ///< Appends a capture in color.
bool bSaveOFDBWPage(); ///< Appends a bilevel capture.
bool bSaveOFDEnd(); ///< Writes the file; true once it is complete.
bool bAddOFDPage(const char *image, float position); ///< Adds an image file.
bool bAddOFDBase64ColorPage(const char *base64); ///< As bAddPDFBase64ColorPage.

/// Begins a picture merged from several captures; all arguments are implementation-defined.
bool bSaveMergeStart(const char *directory, const char *name, short direction, short gap,
                     qint64 maxWidth, qint64 maxHeight);
bool bSaveMergePage(); ///< Adds a capture.
bool bSaveMergeEnd(); ///< Writes the file; true once it is complete.
///@}

/**
 * \name Scanning
 *
 * The library takes captures by itself while the preview runs. All arguments are
 * implementation-defined; results are negative on failure.
 */
///@{

/**
 * Sets the receiver of automatic-scan events, replacing the previous one.
 * \param receiver  its slot is invoked through Qt's meta-object system, queued into its thread
 * \param slot      as the SLOT macro spells it, "1name(int)"; the number is implementation-defined
 */
void iAutoScan_observr(QObject *receiver, const char *slot);

/// Captures whenever a document is ready.
int iAutoScan(int mode, const char *directory, const char *prefix);

/// Captures at a fixed interval, without events for the receiver.
int iTimerScan(int intervalSeconds, const char *directory, const char *prefix, int shotCount);

/// Captures an open book, without events for the receiver. \param formatOrNull  may be null
bool bBookScanner(const char *directory, const char *prefix, const char *formatOrNull);
///@}

/**
 * \name Recording of the main preview
 *
 * Container, codecs and frame rate are implementation-defined.
 */
///@{

/// Records into a file. \return false while another recording exists
bool bStartRec(const char *path);

bool bStartRecMp3(const char *path); ///< As bStartRec, in the library's second format.

/**
 * Asks the recording to end and returns at once: isRecording becomes false when the file is
 * complete.
 * \return false when there is no recording; not an error, as it is called whenever a preview ends
 */
bool bStopRec();
bool bPauseRec(); ///< Leaves out what follows until bResumeRec.
bool bResumeRec(); ///< False when the recording is not paused.
bool isRecording(); ///< True from the start until the file is complete, also while paused.

/// Sets the frame size of later recordings, in pixels.
void vSetRecSize(qint64 width, qint64 height);
///@}

/**
 * \name Printing, watermark, barcodes
 *
 * The printer and the numeric arguments of printing are implementation-defined; true means that the
 * job is queued. The watermark appears on later captures.
 */
///@{

bool bPrint(int copies); ///< Prints a capture.
bool bPrintImage(short copies, const char *image, short colorMode); ///< An image file, local text.
bool bPrintImageFile(const char *image, int copies); ///< An image file.

/// Sets the watermark; `on` and `opacity` are implementation-defined. \param text  local text
void vSetWaterPrint(short on, const char *text, short opacity);
void vSetWaterPrintFont(const char *family); ///< Font family, local text.
void vSetWaterPrintFontSize(short points); ///< In points, at the resolution of vSetDPI.
void vSetWaterPrintFontColor(long color); ///< Its byte order is implementation-defined.
void vSetWaterPrintPos(short x, short y); ///< Top left corner in the capture, in pixels.

/**
 * Reads the codes in an image file; each combination of type and text is listed once.
 * \param image  local text
 * \return empty when there is none, null when the file can't be read
 */
char *sGetBarCode(const char *image);

/// As sGetBarCode for one kind of code; the kinds are implementation-defined.
char *sGetBarCodeEx(long kind, const char *image);

/// Reads the codes in the current picture. The server passes the bytes to the client as Latin-1.
char *sGetBarCodeOnline();
///@}

/**
 * \name Upload
 *
 * Sends an image file to a web server and returns when the server has answered or the library has
 * given up. Arguments and transfer are implementation-defined. Output texts are the server's
 * response.
 */
///@{

char *sUpLoadImage(const char *address, const char *file, const char *fileField, bool removeFile,
                   const char *extraFields);
char *sUpLoadImageEx2(const char *host, const char *page, long port, const char *file);
bool bUpLoadImage(const char *host, const char *page, long port, const char *file);
bool sUpLoadImageEx5(const char *host, const char *page, long port, const char *file,
                     const char *extraFields, const char *fileField, QString *response);
///@}

/// \name Status
///@{

/// Lists the USB devices, each with an identifier like "usb#vid_2b19&pid_0200", in lower case.
char *sGetDevicesId();

char *sEnumUSBDevice(); ///< Lists the USB devices in an implementation-defined form.
char *sGetSerialNum(); ///< Returns the document camera's serial number.

/// Writes the library's version: at most `capacity` bytes, including the terminating NUL.
void doccameraVeriosn(char *buffer, int capacity);
///@}

/**
 * \name Files
 *
 * Whether an existing target is replaced, and which programs open and display files, is
 * implementation-defined. "File" means a regular file: directories and devices are left alone.
 * Deleting or moving acts on a symbolic link itself, not on its target.
 */
///@{
bool bDeleteFile(const char *path); ///< Moves to the recycle bin if there is one, else deletes.
bool bDeleteFileForever(const char *path); ///< Deletes without a recycle bin.
bool bCopyFile(const char *from, const char *to);
bool bMoveFile(const char *from, const char *to); ///< Works across file systems.
bool bReNameFile(const char *from, const char *to);
bool bFileIsExist(const char *path); ///< True for a file, false for a directory.
bool bDirIsExist(const char *path); ///< True for a directory, false for a file.
bool bCreateDir(const char *path); ///< Creates missing parents; true if it exists already.
bool OpenFile(const char *path); ///< Opens a file on the screen; true once that was requested.
bool bDispPath(const char *path); ///< Shows a directory on the screen; true once requested.
bool IsExeExist(); ///< Whether the program that the library uses to open files is installed.

/// Lists the names of a directory's files of one format; the formats are implementation-defined.
const char *sGetAllFormatFiles(const char *directory, const char *format);
///@}

} // extern "C"
