// SPDX-License-Identifier: MIT
/**
 * \file
 * Card readers: identity, social security, bank and IC cards. The shared library `cardreader`
 * implements this header. Unless a function says otherwise, these rules hold for all of them.
 *
 * Texts in     NUL-terminated UTF-8, never null, valid for the length of the call.
 * Texts out    A `char *` is allocated with malloc, released by the caller with free, and may be
 *              null, which stands for an empty text. A `QString *` is never null; what it held
 *              before is replaced.
 * Card data    Fields, order and photo encoding are the library's choice: the page receives the
 *              text as it is. So are the types of cards and readers. The portable library:
 *              docs/cards.md; type 2 tries contactless cards first, any other those with contacts.
 * Failure      bool false, number 0, text null or empty (or an error text that is the library's
 *              choice). The reason goes to the library's own log, card data never does. No
 *              exception leaves the library.
 * Arguments    Stem from a web page: any value may come and must do no harm.
 * Threads      Every function may be called from any thread at any time, also before a reader was
 *              opened: reading then takes the default one. Calls may wait for each other. A read
 *              ends within seconds, with or without a card: the main thread may be waiting for it.
 */
#pragma once

class QString;

extern "C" {

/// \name Identity cards: each function reads one, on a reader of its own kind
///@{
char *sIDCardReader(); ///< In Latin-1. On the default reader.
void ReadSFZCardVX(QString *text);
void readIDMsg_qt(QString *text);
void readIDMsgVX_qt(QString *text);

/// \param text  JSON object; its "code" is the text "0" for success
void ReadSFZCardBas_VX(QString *text);

/**
 * In UTF-8, a JSON object; its "result" is a number, other than 0 for success.
 * \param reserved   null
 * \param parameter  the library's choice; null for none. The portable library doesn't look at it.
 */
char *ReadCard(void *reserved, const char *parameter);
void ReadSFZCardBas_DK(QString *text); ///< On the second reader family.
///@}

/// \name Social security cards: basic data, no PIN
///@{
void iReadCardBas_noPasam_qt(int type, QString *text);
void ReadCardBasExVX(QString *text, int type);

/// Whether the social security module of the second reader family is connected; fast.
bool GetDeviceStatus_dc();

/**
 * On that module; true when a card was read. The server sets the text between quotes in a JSON
 * object as it is: the portable library gives the inside of a JSON string.
 */
bool ReadSBKCardBas_DK(int type, QString *text);
///@}

/// \name Bank and IC cards
///@{
bool GetBankCardInfoVX(QString *text, int type); ///< True when a card was read.

/**
 * The serial number of an IC card. The portable library: the last four bytes of its chip's number,
 * the first of them the highest, without the sign bit.
 */
int iReadICCardSnr();
///@}

/// \name The reader itself
///@{
bool bOpenIDCardUSBPort(const char *port); ///< A name; the portable library ignores it.
bool openIDCardSerialPort(const char *port); ///< A device like "/dev/ttyS0".
bool bCloseIDCardDevie(); ///< True when none is open any more.
bool bgetSAMStatus(); ///< Whether the security module (SAM) answers.
char *GetSAMID(); ///< In Latin-1. The number of the security module.
char *sReadIDCardSnr(); ///< In Latin-1. The serial number of an identity card's chip.
bool bPlayVoice(int number); ///< Speaks a prompt; the portable library's numbers: docs/cards.md.
///@}

} // extern "C"
