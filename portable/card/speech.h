// SPDX-License-Identifier: MIT
#pragma once

class QString;

namespace portable {

/// The prompt of a number, in Chinese; empty for a number without one. docs/cards.md lists them.
QString prompt(int number);

/**
 * Starts to speak with the speech program of this machine (espeak-ng or spd-say), and returns at
 * once. One prompt at a time: while another is spoken, none is started. Callable from any thread.
 * \param text  in Chinese
 * \return false, with a line in the log, when it isn't spoken
 */
bool speak(const QString &text);

} // namespace portable
