// SPDX-License-Identifier: MIT
/// \file What the log shows of a text that a page has sent.
#pragma once

#include <QString>

/// Rules of an access policy about the log. Main thread only.
struct LoggedTextRules
{
    bool hidesPersonal = false; ///< instead of personal arguments, only their length
    int maxChars = 0; ///< of a text's beginning that is shown; 0: all
};

/// Sets the rules; at first all of a text is shown.
void setLoggedTextRules(const LoggedTextRules &rules);
const LoggedTextRules &loggedTextRules();

/// The text itself, or what the rules leave of it. Main thread only.
QString loggedText(const QString &message);
