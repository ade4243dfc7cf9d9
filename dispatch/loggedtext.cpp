// SPDX-License-Identifier: MIT
#include "dispatch/loggedtext.h"

#include "dispatch/commandfacts.h"

namespace {

LoggedTextRules s_rules;

/// A relayed text may hold anything, and so may what isn't a command.
bool isPersonalText(const QString &name)
{
    const commands::Facts *facts = commands::factsOf(name);
    return !facts || commands::isPersonal(*facts);
}

} // namespace

void setLoggedTextRules(const LoggedTextRules &rules)
{
    s_rules = rules;
}

const LoggedTextRules &loggedTextRules()
{
    return s_rules;
}

QString loggedText(const QString &message)
{
    QString text = message;
    if (s_rules.hidesPersonal) {
        constexpr int longestName = 64; // what is longer is no name
        const int open = message.left(longestName).indexOf(QLatin1Char('('));
        const bool isRelayed =
            message.startsWith(QLatin1Char('#')) || message.startsWith(QLatin1Char('@'));
        const int shown = isRelayed ? 1 : qMin(open < 0 ? longestName : open, message.size());
        const QString name = message.left(shown);
        if (message.size() > shown && (isRelayed || isPersonalText(name))) {
            return QStringLiteral("%1(%2 characters, not logged)")
                .arg(name)
                .arg(message.size() - shown);
        }
    }
    if (s_rules.maxChars > 0 && text.size() > s_rules.maxChars) {
        text = QStringLiteral("%1... (%2 characters)")
                   .arg(text.left(s_rules.maxChars))
                   .arg(message.size());
    }
    return text;
}
