// SPDX-License-Identifier: MIT
/**
 * \file
 * The device interface for faces, liveness and fingerprints. The shared library `doccamera`
 * implements it together with doccamera.h, whose rules for texts, ownership, failure, threads,
 * listeners and implementation-defined values apply here too.
 *
 * Images       Paths of image files.
 * Scores       Higher means more alike; scale and threshold are implementation-defined. A negative
 *              score is a failure: unreadable image, no face or finger, unsupported function.
 * Features     Are created and compared by this library only, but come back through a web page:
 *              they may contain anything, and no length is passed. The caller guarantees a NUL
 *              after the last byte: a library whose features contain no zero byte finds the end
 *              by it.
 * Listeners    A function that returns true calls its listener; one that returns false never does;
 *              one without a result always does.
 */
#pragma once

#include <QtGlobal>

class QByteArray;

extern "C" {

/// \name Faces in images
///@{
int lImageMatch(const char *image1, const char *image2); ///< Two faces. May take seconds.
qint64 lFaceMatch(const char *image); ///< A face and the one in front of the camera.
qint64 lImageIdMatch(const char *image1, const char *image2); ///< A face and a card's photo.
bool bImageMatch(const char *image1, const char *image2); ///< Whether both show the same person.
///@}

/// \name Face features
///@{

/// Compares two features: raw bytes, more than 100 each. The functions below return them as base64.
qint64 lFaceFeatureMatch(const char *feature1, const char *feature2);

/**
 * Extracts a face's feature; the first three arguments are implementation-defined.
 * \param onFeature  receives base64 text, on the calling thread before the function returns
 */
bool bFaceFeatureGet(bool fromFile, const char *image, const char *option,
                     void (*onFeature)(const char *feature, void *context), void *context);
///@}

/**
 * \name Faces in front of the camera
 *
 * True means that the work has started; the listener is called once, when it is done. All other
 * arguments are implementation-defined.
 */
///@{

/**
 * Compares the face in front of the camera with an image. The caller has closed the fourth source.
 * \param onResult  receives the score
 */
bool bImageMatchOnline(const char *image, int timeoutSeconds, int option1, int option2,
                       void (*onResult)(int result, void *context));

/**
 * Extracts the feature of the face in front of the camera.
 * \param onFeature  receives base64 text
 */
bool bFaceFeatureGetOnline(int timeoutSeconds, int option,
                           void (*onFeature)(const char *feature, void *context));
///@}

/// \name Liveness
///@{
bool bLivingBodyDetect(); ///< Whether a live person is in front of the camera. May take seconds.

/**
 * As bLivingBodyDetect, in the background: true means that it has started. Both numbers are
 * implementation-defined.
 * \param onResult  called once; any result other than 0 means a live person
 */
bool bLivingBodyDetectOnline(int timeoutSeconds, int option,
                             void (*onResult)(int result, void *context));

/**
 * Takes over the camera, without a preceding bStopPlay, and reports on a liveness check until
 * CloseLivingBody.
 * \param onData  receives `length` bytes without a NUL. Kind 0: base64 of a JPEG to show; kind 1:
 *                the result, in an implementation-defined form; any other kind is to be ignored
 */
bool AutoLivingBody(void (*onData)(const char *data, int length, int kind));

/**
 * Ends AutoLivingBody.
 * \param onDone  called last, even when there was nothing to end
 */
void CloseLivingBody(void (*onDone)());

/**
 * Shows the library's own liveness check on the screen.
 * \param mode      0; other values are implementation-defined
 * \param onResult  called once; 1 means passed
 */
void DemoUIShow(int mode, void (*onResult)(int result));
///@}

/// \name Fingerprints
///@{

/**
 * Captures one finger; returns at once.
 * \param timeoutMs  how long to wait for the finger, in milliseconds
 * \param onCapture  called once with the image (UTF-8 text in an implementation-defined form), the
 *                   feature (hexadecimal digits), the score (negative: no capture, and image and
 *                   feature are to be ignored) and a message for people
 */
void fingerCaptureRawData(int timeoutMs,
                          void (*onCapture)(QByteArray image, QByteArray feature, int score,
                                            const char *message, void *context),
                          void *context);

/**
 * Compares a finger with stored ones.
 * \param mode            implementation-defined
 * \param feature         raw bytes of one feature
 * \param count           how many are stored, according to the page: may exceed their real number
 * \param storedFeatures  their raw bytes, one after another
 */
int lFingerMatch(int mode, const char *feature, int count, const char *storedFeatures);
///@}

} // extern "C"
