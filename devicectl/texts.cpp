// SPDX-License-Identifier: MIT
#include "devicectl/texts.h"

#include <QByteArray>
#include <QStringList>

#include <optional>

namespace {

std::optional<bool> s_isChinese;

/// As gettext chooses: LC_ALL before LC_MESSAGES before LANG.
bool isChineseLocale()
{
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QByteArray value = qgetenv(variable);
        if (!value.isEmpty()) {
            return value.startsWith("zh");
        }
    }
    return false;
}

} // namespace

void speakChinese(bool chinese)
{
    s_isChinese = chinese;
}

QString said(const Text &text)
{
    if (!s_isChinese) {
        s_isChinese = isChineseLocale();
    }
    return QString::fromUtf8(*s_isChinese ? text.chinese : text.english);
}
