// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// A message for people in both languages, in UTF-8.
struct Text
{
    const char *english;
    const char *chinese;
};

/// Chooses the language of said(), which at first is that of the locale.
void speakChinese(bool chinese);

/// The text in the language of the user. "%1" and so on are for QString::arg().
QString said(const Text &text);
