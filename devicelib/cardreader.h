// SPDX-License-Identifier: MIT
/**
 * \file
 * The device interface of the card readers: identity, social security, bank and IC cards. The
 * shared library `cardreader` implements it. The rules below apply to every function unless its
 * own description says otherwise.
 *
 * Input text   NUL-terminated UTF-8, never null, valid for the duration of the call.
 * Output text  A `char *` is allocated with malloc, freed by the caller, and may be null, which
 *              means an empty text. A `QString *` is never null; its previous content is replaced.
 * Card data    Fields, order and photo encoding are implementation-defined: the client receives the
 *              text unchanged. So are the types of cards and readers. docs/cards.md describes those
 *              of the portable library.
 * Failure      bool false, number 0, text null, empty or an implementation-defined error text. The
 *              reason goes to the library's own log, card data never does. No exception leaves the
 *              library.
 * Arguments    Come from web pages: any value must be safe.
 * Threads      Any function may be called from any thread at any time, even before a reader was
 *              opened: reading then uses the default one. Calls may wait for each other. A read
 *              ends within seconds, with or without a card: the main thread may be waiting for it.
 */
#pragma once

class QString;

extern "C" {

/// \name Identity cards: each function reads one, on its own kind of reader
///@{
char *sIDCardReader(); ///< On the default reader. Returns Latin-1.
void ReadSFZCardVX(QString *text);
void readIDMsg_qt(QString *text);
void readIDMsgVX_qt(QString *text);

/// \param text  a JSON object whose "code" is the text "0" on success
void ReadSFZCardBas_VX(QString *text);

/**
 * \param reserved   null
 * \param parameter  implementation-defined; null for none
 * \return UTF-8, a JSON object whose "result" is a number other than 0 on success
 */
char *ReadCard(void *reserved, const char *parameter);
void ReadSFZCardBas_DK(QString *text); ///< On the second reader family.
///@}

/// \name Social security cards: basic data, without a PIN
///@{
void iReadCardBas_noPasam_qt(int type, QString *text);
void ReadCardBasExVX(QString *text, int type);

/// Whether the social security module of the second reader family is connected; returns quickly.
bool GetDeviceStatus_dc();

/**
 * Reads on that module.
 * \param text  the server puts it between quotes in a JSON object, without escaping it
 * \return true when a card was read
 */
bool ReadSBKCardBas_DK(int type, QString *text);
///@}

/// \name Bank and IC cards
///@{
bool GetBankCardInfoVX(QString *text, int type); ///< True when a card was read.
int iReadICCardSnr(); ///< The serial number of an IC card.
///@}

/// \name The reader itself
///@{
bool bOpenIDCardUSBPort(const char *port); ///< A port's name.
bool openIDCardSerialPort(const char *port); ///< A device like "/dev/ttyS0".
bool bCloseIDCardDevie(); ///< True when no reader is open afterwards.
bool bgetSAMStatus(); ///< Whether the security module (SAM) responds.
char *GetSAMID(); ///< The number of the security module. Returns Latin-1.
char *sReadIDCardSnr(); ///< The serial number of an identity card's chip. Returns Latin-1.
bool bPlayVoice(int number); ///< Speaks a prompt; the numbers are implementation-defined.
///@}

} // extern "C"
