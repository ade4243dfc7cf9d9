// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/**
 * The text of a log without what may be about a person: of what pages sent, only names of commands
 * and arguments that are short numbers stay; every other quoted text, long runs of digits and of
 * letters without a blank, and characters beyond ASCII are replaced by how many they were.
 */
QByteArray withoutPersonalData(const QByteArray &log);

/// The text of a settings file without passwords, tokens and keys, and what addresses hide.
QByteArray withoutSecretSettings(const QByteArray &ini);
