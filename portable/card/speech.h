// SPDX-License-Identifier: MIT
#pragma once

class QString;

namespace portable {

/// The prompt with this number, in Chinese; empty if there is none. docs/cards.md lists them.
QString prompt(int number);

/**
 * Starts speaking with this machine's speech program (espeak-ng or spd-say) and returns at once.
 * Fails while a previous text is still being spoken. Callable from any thread.
 * \param text  in Chinese
 * \return false if it isn't spoken, with the reason in the log
 */
bool speak(const QString &text);

} // namespace portable
