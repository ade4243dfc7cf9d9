// SPDX-License-Identifier: MIT
/**
 * \file
 * The document camera library: preview, settings, capture, documents, scanning, recording,
 * printing, barcodes, upload, status and files. The shared library `doccamera` implements this
 * header and biometrics.h. Unless a function says otherwise, these rules hold for all of them.
 *
 * Texts in     NUL-terminated UTF-8, never null, valid for the length of the call: the library
 *              copies what it keeps. "Local text" is in the local 8-bit encoding instead.
 * Texts out    UTF-8; null stands for an empty text. A `char *` is allocated with malloc, and the
 *              caller releases it with free. A `const char *` belongs to the library and is valid
 *              until the same function is called again. Lists of names are joined with "|".
 * Outputs      Pointers and references to fill in are never null. Images and matrices share their
 *              pixels by reference counting: once handed out, the library never writes to them.
 * Failure      bool false, number 0, text null or empty, outputs emptied. The reason goes to the
 *              library's own log. No exception leaves the library.
 * Arguments    Stem from a web page: any value may come and must do no harm.
 * Threads      Every function may be called from any thread at any time, with or without an open
 *              camera; starts and stops, frames, settings, captures and recording are concurrent.
 *              One call may wait for another to finish, but settings and queries never wait for
 *              the camera to deliver. No function needs the event loop of the calling thread.
 * Listeners    Are never null. The library calls them on a thread of its own, or by a queued call
 *              on the main thread, while it holds no lock, and not any more once main() has
 *              returned. A listener returns soon, calls no function of this interface and copies
 *              what it is given, which is valid during the call only. Its `context` is the pointer
 *              that came with the listener, or null where none did.
 *
 * "The library's choice" marks what differs from maker to maker: the server passes such values
 * between page and library as they are.
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
 * One source is the main preview; beside it the fourth one may be open. Which camera stands behind
 * a number is the library's choice, but 1 is the document camera. `rotation`, in degrees clockwise,
 * is that of vSetRotate from now on when it is 90, 180 or 270; 0 leaves what vSetRotate has set;
 * others fail.
 *
 * A start takes the place of a main preview that is open and returns true once the camera has been
 * opened. After a failed one no main preview is open, and the start may be tried again at once.
 */
///@{
bool bStartPlay(short rotation); ///< Main camera, source 1.
bool bStartPlay2(short rotation); ///< Source 2.
bool bStartPlay3(short rotation); ///< Source 3.
bool bStartPlay5(short rotation); ///< Source 5.
bool bStartPlay6(short rotation); ///< Source 6.
bool bStartPlay8(short rotation); ///< Source 8.
bool bStartPlay9(short rotation); ///< Source 9.

/// The dual camera: main and second camera side by side in one picture.
bool bStartPlayOpen();

/// Ends the main preview. \return true when none is open any more, also when none was
bool bStopPlay();

/// Opens the fourth source; the main preview goes on beside it.
bool bStartPlay4();

/// Closes the fourth source. \return true when it is not open any more, also when it was not
bool bStopPlay4();

/**
 * Hands out a frame of the main preview, rotated and flipped, in any format of QImage. Blocks until
 * there is one newer than the last that this function handed out, and so paces the preview.
 * \return false, with a null image, when no preview is open, it was stopped meanwhile, or the
 *         camera delivers nothing
 */
bool getVideoFrame(QImage &frame);

/**
 * One current frame of the main preview, rotated and flipped, 8-bit BGR (CV_8UC3). Does not wait
 * for a newer one, nor take it from getVideoFrame.
 */
bool getVideoFrameMat(cv::Mat &frame);

/// As getVideoFrameMat, for single pictures: a library may give a finer one here.
bool getVideoFrameMatEx(cv::Mat &frame);

/**
 * Runs an audio and video preview of the library's own; after true the caller starts the main
 * preview anew. What the numbers mean is the library's choice.
 */
bool bAVPreview(qint64 first, qint64 second);

/// Switches the image display of the library, where it has one.
void vSetImageDispFlag(bool on);
///@}

/**
 * \name Settings
 *
 * Hold while the process runs, and may be made before a camera is open. A value out of range
 * changes nothing. `camera` counts the sources, 1 being the main one; sizes are in pixels,
 * before rotation.
 */
///@{

/**
 * \param mode  0 whole picture, 1 crop area, 2 automatic page detection with deskew; captures only.
 *              The portable library: where no page is found, the whole picture
 */
bool bSetMode(int mode);

/// Working mode of the camera; the values are the library's choice. The portable one has none.
void vSetCamaraMode(short mode);

/// \param index  of a size in the list of getResolutionIndex, from 0
void vSetResolutionEx(int camera, int index);

/// Asks for a size; the camera takes this or the nearest it has.
void setResolution(int camera, int width, int height);

int iGetResolutionX(int camera); ///< Width in use; 0 for a camera that is not there.
int iGetResolutionY(int camera); ///< Height in use; 0 for a camera that is not there.

/// Replaces `sizes` by the (width, height) pairs of the camera, in the library's order.
void getResolutionIndex(int camera, std::vector<std::pair<double, double>> &sizes);

/// \param angle  of preview and captures, degrees clockwise: 0, 90, 180 or 270
void vSetRotate(short angle);
short iGetRotate(); ///< The angle of vSetRotate; 0 at first.

/// \param mode  of the turned picture: 0 none, 1 left-right, 2 upside-down, 3 both
void vSetFlip(short mode);
short iGetFlip(); ///< The mode of vSetFlip; 0 at first.

/**
 * Unit and range are the library's choice. The portable library, for all three: -100 to 100, 0
 * being how the camera is by itself, -100 and 100 the ends of its range; where it has no such
 * control the pictures are changed instead.
 */
bool vSetExposure(int value);
bool vSetBrightness(int value); ///< As vSetExposure.
bool vSetContrast(int value); ///< As vSetExposure.

/**
 * Focuses once. \return true when that was begun: the outcome is not awaited. The portable library:
 * also for a camera that has no focus to set, which the log says
 */
bool AutoFocus();

/// Dots per inch of saved pictures and of pages. The portable library: 50 to 1200, 300 at first.
bool vSetDPI(qint64 x, qint64 y);
void vGetDPI(int *x, int *y); ///< The values of vSetDPI.

/**
 * Crop area for mode 1: top left and bottom right corner in pixels of the turned picture. The
 * portable library: what lies outside the picture is cut off, the bottom right corner is itself
 * outside the area, and four times 0 is the whole picture.
 */
bool bSetImageArea(int x1, int y1, int x2, int y2);
long lGetImageAreaX1(); ///< As bSetImageArea; all four 0 while none is set.
long lGetImageAreaY1(); ///< As lGetImageAreaX1.
long lGetImageAreaX2(); ///< As lGetImageAreaX1.
long lGetImageAreaY2(); ///< As lGetImageAreaX1.

/// \param quality  of JPEG files, 1 to 100. The portable library: 85 at first
bool vSetImageQuality(int quality);
short sGetImageQuality(); ///< The quality of vSetImageQuality.

/**
 * How bBookScanner works; the values are the library's choice. The portable library, for scans that
 * start from now on: 0 first the left page, then the right one; 1 the other way round, for books
 * that are read from right to left; 2 both pages in one file. 0 at first.
 */
bool bSetBookScannerMode(int mode);
int igetBookScannerMode(); ///< The mode of bSetBookScannerMode.

/**
 * Hears of the capture button of the camera, in place of a former listener. The portable library
 * knows of no buttons, and never calls it.
 * \param listener  first argument 1 when it was pressed; the others are the library's choice
 */
void vSetCapturePin(void (*listener)(int, int, int, unsigned int, int, void *));
///@}

/**
 * \name Capture
 *
 * Saving takes the current picture at full resolution, as bSetMode says, with the watermark, and
 * writes it into a directory under a name, to which the library adds the extension. It is true once
 * the file is whole, and false without an open preview.
 */
///@{
bool bSaveJPG(const char *directory, const char *name); ///< Color JPEG.
bool bSaveTifJPG(const char *directory, const char *name); ///< Color TIFF with JPEG inside.
bool bSaveGray(const char *directory, const char *name); ///< Grey picture.
bool bSaveTIF(const char *directory, const char *name); ///< Bilevel TIFF.
bool bSaveBMP(const char *directory, const char *name); ///< Color bitmap.
bool bSavePNG(const char *directory, const char *name); ///< Color PNG.

/// One picture twice: directory and name of the grey file, directory and name of the TIFF.
bool bSaveGrayAndTIF(const char *p1, const char *p2, const char *p3, const char *p4);

/**
 * Splits a picture; what the texts mean is the library's choice. The portable library: p1 is the
 * picture file of an open book, p2 the directory that gets its halves, <name>_left.jpg and
 * <name>_right.jpg. They meet at the fold, or in the middle where none is seen.
 */
bool SplitPic(const char *p1, const char *p2);

/**
 * The current picture as base64 of an image file. The portable library: JPEG, and PNG for 2.
 * \param number  0 color, 1 grey, 2 bilevel
 */
const char *sGetImageBase64_Byte(int number);

/**
 * \return base64, without line breaks, of the file at the path `text`. The portable library: of a
 *         file of 128 MB at most
 */
char *Base64Encode(const char *text);

/**
 * \param first   local text: base64
 * \param second  local text: the file to write the decoded bytes to
 */
bool Base64Decode(const char *first, const char *second);
///@}

/**
 * \name Documents
 *
 * One PDF, one OFD and one merged picture may be under way at a time, each from its start to its
 * end; pages and ends without a start are false. A page without an image is the current picture, as
 * in Capture, and a BW page is bilevel. `number` is where the page goes, counted from 1; -1.0
 * appends, and so does 1.0 in an OFD.
 *
 * The portable library keeps pages on disk, in $TMPDIR or else /var/tmp. Its rules:
 *
 * Places       A start fails where no file could be made. Nothing stands there before the end,
 *              which makes missing directories and replaces an existing file. A name that has the
 *              extension (".pdf", ".ofd", ".jpg") doesn't get it twice.
 * Ends         An end without a page is false and writes nothing. One that can't write leaves the
 *              document as it is, to be ended again. A start ends a document that was not ended,
 *              and says so in the log.
 * Numbers      A whole number N from 2 on makes the page the Nth; those behind it move by one. All
 *              others append: 1, and what lies beyond the end.
 * Pictures     A JPEG goes in as it is, unless it needs turning (EXIF) or is of a kind that viewers
 *              may fail at (CMYK, arithmetic coding); other image files become JPEGs. A BW page is
 *              CCITT group 4 in a PDF, a PNG of one bit a pixel in an OFD. What isn't a whole image
 *              fails and leaves the document as it was.
 * Size         A page is as large as its pixels at the resolution that the image file tells, if
 *              that is one from 50 to 4800 dpi, or else at that of vSetDPI.
 */
///@{

/// \param p1  directory  \param p2  name without extension
bool bSavePDFStart(const char *p1, const char *p2);
bool bSavePDFColorPage(); ///< The current picture in color.
bool bSavePDFBWPage(); ///< The current picture, bilevel.
bool bSavePDFEnd(); ///< Writes the file: true once it is whole.
bool bAddPDFColorPage(const char *image, float number); ///< An image file, local text.
bool bAddPDFBWPage(const char *image, float number); ///< An image file, local text.

/// Appends an image file. \param base64  "data:image/...;base64," may stand before it
bool bAddPDFBase64ColorPage(const char *base64);

bool bSaveOFDStart(const char *p1, const char *p2); ///< As bSavePDFStart.
bool bSaveOFDColorPage(); ///< The current picture in color.
bool bSaveOFDBWPage(); ///< The current picture, bilevel.
bool bSaveOFDEnd(); ///< Writes the file: true once it is whole.
bool bAddOFDPage(const char *image, float number); ///< An image file.
bool bAddOFDBase64ColorPage(const char *base64); ///< As bAddPDFBase64ColorPage.

/**
 * Begins a picture that several are merged into; the arguments are the library's choice. The
 * portable library writes a JPEG, white where no picture is. One larger than p5, p6 or the 65500
 * pixels of a JPEG is scaled down as a whole. Other arguments than these fail.
 * \param p1  the portable library: directory
 * \param p2  the portable library: name without extension
 * \param p3  the portable library: 0 one under another, 1 side by side
 * \param p4  the portable library: gap between two, 0 to 1000 pixels
 * \param p5  the portable library: largest width of the result in pixels, 0 for no limit
 * \param p6  the portable library: largest height of the result in pixels, 0 for no limit
 */
bool bSaveMergeStart(const char *p1, const char *p2, short p3, short p4, qint64 p5, qint64 p6);
bool bSaveMergePage(); ///< The current picture.
bool bSaveMergeEnd(); ///< Writes the file: true once it is whole.
///@}

/**
 * \name Scanning
 *
 * The library captures by itself, beside the preview. Numbers and texts (mode, directory, prefix of
 * the names, interval) are the library's choice; results are negative for failure.
 *
 * The portable library: one scan runs at a time, a start ends the one before. It ends with the main
 * preview: at once when bStopRec was called first, or in 5 s. A shot is what Capture saves, as
 * <directory>/<prefix>001.jpg, 002 and so on, from 1 in each scan; existing files are replaced, and
 * the number of a shot that fails is the next one's. Directories are made; the prefix is no path.
 */
///@{

/**
 * Who hears of the events of an automatic scan, in place of a former receiver.
 * \param receiver  its slot is invoked through Qt's meta-object system, queued into its thread
 * \param slot      as the macro SLOT writes it, "1name(int)"; the number is the library's choice.
 *                  The portable library: that of the shot, once its file is whole
 */
void iAutoScan_observr(QObject *receiver, const char *slot);

/**
 * Captures whenever a document lies ready. The portable library: whenever something has moved
 * before the camera and then nothing does for 0.7 s, thus not what lies there at the start.
 * \param number  the portable library: 0 ends any scan, a positive one starts
 * \param text1   the portable library: directory
 * \param text2   the portable library: prefix
 * \return the portable library: 0 once it runs or has ended
 */
int iAutoScan(int number, const char *text1, const char *text2);

/**
 * Captures at a fixed interval; the observer hears nothing of it.
 * \param number1  the portable library: interval in seconds, before the first shot too; 0 ends any
 *                 scan
 * \param text1    the portable library: directory
 * \param text2    the portable library: prefix
 * \param number2  the portable library: so many shots, 0 for no end
 * \return as iAutoScan
 */
int iTimerScan(int number1, const char *text1, const char *text2, int number2);

/**
 * Captures an open book. The portable library: as iAutoScan, but each shot is parted at the fold
 * into two files, as bSetBookScannerMode says; the observer hears nothing of it.
 * \param t1        the portable library: directory; empty ends any scan
 * \param t2        the portable library: prefix
 * \param t3OrNull  may be null. The portable library: "jpg", also without a text, "png" or "tif"
 */
bool bBookScanner(const char *t1, const char *t2, const char *t3OrNull);
///@}

/**
 * \name Recording of the main preview
 *
 * The portable library: 25 pictures a second, without sound. While cameras change the last picture
 * stands, and with the preview the recording ends. Missing directories are made, an existing file
 * is replaced. Should the process be killed, the file plays up to its last second.
 */
///@{

/**
 * Records into this file; false while another is being made. The portable library: a path that ends
 * in .mp4, .avi or .mkv is taken as it is, any other gets ".mp4". The pictures are H.264, but
 * MPEG-4 in an AVI.
 */
bool bStartRec(const char *path);

/**
 * The same in the second format. The portable library: MPEG-4 pictures, for players that know no
 * H.264; a path without one of the three extensions gets ".avi".
 */
bool bStartRecMp3(const char *path);

/**
 * Asks the recording to end and returns at once: isRecording turns false when the file is whole.
 * \return false when there is none, which is no fault: it is asked at the end of every preview
 */
bool bStopRec();
bool bPauseRec(); ///< What comes until bResumeRec is left out.
bool bResumeRec(); ///< False when it is not paused.
bool isRecording(); ///< True from the start until the file is whole, also while paused.

/**
 * Frame size of later recordings, in pixels. The portable library: made even and kept within 16 to
 * 4096; pictures of another shape get bars. With 0 or less on a side, as at first, it is the
 * picture's own size.
 */
void vSetRecSize(qint64 width, qint64 height);
///@}

/**
 * \name Printing, watermark, barcode
 *
 * The printer and the numbers of printing are the library's choice; true means the job is queued.
 * The watermark goes on later captures.
 *
 * The portable library prints with CUPS, on its default printer or the one of devices.ini, and on
 * that printer's default paper: one page, the picture as large as it fits, turned by a quarter
 * where that makes it larger. Copies are 1 to 99; 0 stands for 1, others fail. True once CUPS has
 * taken the job, even when the printer is stopped. A print server that hangs delays the answer by
 * some seconds.
 */
///@{
/// A capture of the current picture. \param number  the portable library: copies
bool bPrint(int number);

/**
 * An image file.
 * \param a      the portable library: copies
 * \param image  local text
 * \param b      the portable library: 0 in color, 1 in grey, others fail
 */
bool bPrintImage(short a, const char *image, short b);

/// An image file. \param number  the portable library: copies, in color
bool bPrintImageFile(const char *image, int number);

/**
 * \param text  local text; what `a` and `b` mean is the library's choice. The portable library: a 0
 *              is off, others on; b is the opacity in percent, 0 being 100
 */
void vSetWaterPrint(short a, const char *text, short b);
void vSetWaterPrintFont(const char *font); ///< Font family, local text.
void vSetWaterPrintFontSize(short size); ///< In points, at the resolution of vSetDPI.

/// Its byte order is the library's choice. The portable library: 0xRRGGBB.
void vSetWaterPrintFontColor(long color);

/**
 * Top left corner in the capture, pixels. The portable library: negative values are the distance of
 * the text's end from the right or bottom edge; text is moved into the picture.
 */
void vSetWaterPrintPos(short x, short y);

/**
 * The codes in an image file, each type and text once. Empty when it has none, null when the file
 * can't be read. The portable library reads them however they lie; a text whose encoding the code
 * doesn't tell it takes for UTF-8 or else GB18030. A picture that takes longer than five seconds it
 * gives up, and answers with what it has found.
 * \param image  local text
 */
char *sGetBarCode(const char *image);

/**
 * The same for one kind of code; the kinds are the library's choice.
 * \param kind  the portable library: 0 all, 1 QR and Micro QR, 2 Data Matrix, 3 PDF417, 4 Code 128,
 *              5 Code 39, 6 EAN and UPC, 7 Code 93, 8 Codabar, 9 ITF, 10 Aztec, 11 GS1 DataBar;
 *              null for others
 */
char *sGetBarCodeEx(long kind, const char *image);

/**
 * The codes in the current picture. The server hands the bytes to the page as Latin-1; the portable
 * library's are UTF-8 here too, so that nothing is lost and a page can put them together again.
 */
char *sGetBarCodeOnline();
///@}

/**
 * \name Upload
 *
 * Sends an image file to a web server, and returns when that has answered or the library gave up.
 * The arguments and the transfer are the library's choice. Texts out are the server's answer.
 *
 * The portable library: a form (multipart/form-data) by POST, see docs/upload.md. A status other
 * than 2xx is a failure. Extra fields are "key=value&key=value", percent-encoded.
 */
///@{

/**
 * The portable library:
 * \param p1    address of http or https
 * \param p2    path of the file
 * \param p3    name of the form field for the file; empty: "file"
 * \param flag  removes the file once the server has accepted it
 * \param p4    extra fields
 */
char *sUpLoadImage(const char *p1, const char *p2, const char *p3, bool flag, const char *p4);

/**
 * The portable library:
 * \param p1  host, or address of http or https
 * \param p2  page on the server: path, and query if need be; it goes behind the path of p1
 * \param p3  port; 0: that of p1, or the usual one
 * \param p4  path of the file
 */
char *sUpLoadImageEx2(const char *p1, const char *p2, long p3, const char *p4);
bool bUpLoadImage(const char *p1, const char *p2, long p3, const char *p4); ///< As sUpLoadImageEx2.

/**
 * The portable library: p1 to p4 as for sUpLoadImageEx2.
 * \param p6      extra fields
 * \param p7      name of the form field for the file; empty: "file"
 * \param answer  the server's answer, where there was one also on failure
 */
bool sUpLoadImageEx5(const char *p1, const char *p2, long p3, const char *p4, const char *p6,
                     const char *p7, QString *answer);
///@}

/// \name Status
///@{

/// The USB devices present, each with an identifier like "usb#vid_2b19&pid_0200", in lower case.
char *sGetDevicesId();

/**
 * The USB devices present; the form is the library's choice. The portable library: as
 * sGetDevicesId, with a blank and the device's name behind each that has one.
 */
char *sEnumUSBDevice();

/**
 * Serial number of the document camera. The portable library: what the camera of the main preview
 * says of itself by USB, or camera 1 while there is none; many cameras say nothing.
 */
char *sGetSerialNum();

/// Fills in the version of the library: at most `capacity` bytes with the NUL at the end.
void doccameraVeriosn(char *buffer, int capacity);
///@}

/**
 * \name Files
 *
 * Whether a target that exists is replaced, and which programs open and display, is the library's
 * choice. Files are regular files: directories and devices are left alone. Where a file is deleted
 * or moved, a link is not followed: the link itself goes.
 *
 * The portable library: nothing that exists is replaced, and directories for a target are not made;
 * the desktop's own programs open and display, by way of xdg-open.
 */
///@{
bool bDeleteFile(const char *path); ///< Into the recycle bin if there is one, else for ever.
bool bDeleteFileForever(const char *path); ///< Past any recycle bin.
bool bCopyFile(const char *from, const char *to);
bool bMoveFile(const char *from, const char *to); ///< Also to another file system.

/// The portable library: as bMoveFile, but a name without "/" means the same directory.
bool bReNameFile(const char *from, const char *to);

bool bFileIsExist(const char *path); ///< True for a file, not for a directory.
bool bDirIsExist(const char *path); ///< True for a directory, not for a file.
bool bCreateDir(const char *path); ///< With its parents. True also when it exists already.
bool OpenFile(const char *path); ///< Opens a file on the screen: true once that was asked for.
bool bDispPath(const char *path); ///< Shows a directory on the screen, likewise.

/// Whether the program that the library looks for is there. The portable library: xdg-open.
bool IsExeExist();

/**
 * Names of the files of a format in a directory; formats are named by the library's choice. The
 * portable library: an extension ("jpg") or a pattern ("*.jp*g"), in any case, several joined with
 * ";"; empty or "*.*" for all. The names come without the directory, sorted; hidden files don't.
 */
const char *sGetAllFormatFiles(const char *directory, const char *format);
///@}

} // extern "C"
