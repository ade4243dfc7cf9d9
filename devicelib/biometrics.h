// SPDX-License-Identifier: MIT
/**
 * \file
 * Faces, liveness and fingerprints. The shared library `doccamera` implements this header together
 * with doccamera.h, whose rules on texts, ownership, failure, threads and listeners hold here too.
 *
 * Images       Are paths of image files.
 * Scores       Higher is more alike; scale and threshold are the library's choice. A negative one
 *              means failure: no readable image, no face or finger, no such function. The portable
 *              library: 0 to 100; a face counts as the same from 60 on, a finger from 40 on.
 * Features     Are made and compared by this library alone, but come back through a page, so they
 *              may be anything, and no length comes with them. The caller sees to a NUL behind the
 *              last byte: a library whose features hold no zero byte finds the end by it.
 * Listeners    A function that returns true calls its listener, one that returns false never does,
 *              and one without a result always does.
 */
#pragma once

#include <QtGlobal>

class QByteArray;

extern "C" {

/// \name Faces in images
///@{
int lImageMatch(const char *image1, const char *image2); ///< Two faces. May take seconds.
qint64 lFaceMatch(const char *image); ///< With the face before the camera.
qint64 lImageIdMatch(const char *image1, const char *image2); ///< A face and a card's photo.
bool bImageMatch(const char *image1, const char *image2); ///< Whether two faces are one person's.
///@}

/// \name Features of faces
///@{

/// Two features: raw bytes, more than 100 each. The functions below give them as base64.
qint64 lFaceFeatureMatch(const char *feature1, const char *feature2);

/**
 * The feature of a face; what flag and texts mean is the library's choice. The portable library:
 * true is the face in the image text1, false the one before the open camera; text2 means nothing.
 * \param onFeature  receives base64 text, before the function returns and on the same thread
 */
bool bFaceFeatureGet(bool flag, const char *text1, const char *text2,
                     void (*onFeature)(const char *feature, void *context), void *context);
///@}

/**
 * \name Faces before the camera
 *
 * True means that the work has begun; the listener is called once, when it is done. The numbers are
 * the library's choice. The portable library: a is how many seconds to wait for a face (0: 10; at
 * most 60), the others mean nothing; one such work at a time, and none while liveness is checked.
 */
///@{

/**
 * Compares with an image; the caller has closed the fourth source.
 * \param text      its path, for the portable library
 * \param onResult  receives the score
 */
bool bImageMatchOnline(const char *text, int a, int b, int c,
                       void (*onResult)(int result, void *context));

/**
 * The feature of the face before the camera.
 * \param onFeature  receives base64 text; empty when no face came, for the portable library
 */
bool bFaceFeatureGetOnline(int a, int b, void (*onFeature)(const char *feature, void *context));
///@}

/// \name Liveness
///@{
bool bLivingBodyDetect(); ///< Whether a living person is before the camera. May take seconds.

/**
 * The same in the background: true means that it has begun. The numbers are the library's choice;
 * the portable library: a is the longest time in seconds (0: 10), b means nothing.
 * \param onResult  called once; other than 0 means a living person
 */
bool bLivingBodyDetectOnline(int a, int b, void (*onResult)(int result, void *context));

/**
 * Takes the camera over, without a bStopPlay before, and reports on a liveness check until
 * CloseLivingBody.
 * \param onData  `length` bytes without a NUL. Kind 0: base64 of a JPEG to show; 1: the result,
 *                whose form is the library's choice; others are to be ignored. The portable
 *                library: a JSON object, once, after which nothing more comes (docs/faces.md).
 */
bool AutoLivingBody(void (*onData)(const char *data, int length, int kind));

/**
 * Ends AutoLivingBody; the portable library: any other check before the camera too.
 * \param onDone  called last, also when there was nothing to end
 */
void CloseLivingBody(void (*onDone)());

/**
 * Shows the liveness check of the library's own on the screen; the portable library checks without
 * showing anything.
 * \param number    0; others are the library's choice
 * \param onResult  called once; 1 means passed
 */
void DemoUIShow(int number, void (*onResult)(int result));
///@}

/// \name Fingerprints
///@{

/**
 * Captures one finger; returns at once.
 * \param timeoutMs  how long to wait for the finger, in milliseconds; the portable library: 0 is 10
 *                   seconds, a minute the most
 * \param onCapture  called once: image (UTF-8 text whose form is the library's choice), feature
 *                   (hexadecimal digits), score (negative: no capture, then both are ignored), and
 *                   a message for people. The portable library: base64 of a PNG; the quality of
 *                   the print from 0 to 100 (docs/fingers.md).
 */
void fingerCaptureRawData(int timeoutMs,
                          void (*onCapture)(QByteArray image, QByteArray feature, int score,
                                            const char *message, void *context),
                          void *context);

/**
 * Compares a finger with stored ones; the portable library: the best score of them.
 * \param mode            the library's choice; nothing for the portable library
 * \param feature         raw bytes of one feature
 * \param count           how many are stored; may be more than there are
 * \param storedFeatures  their raw bytes, one after another
 */
int lFingerMatch(int mode, const char *feature, int count, const char *storedFeatures);
///@}

} // extern "C"
