// SPDX-License-Identifier: MIT
#include "portable/base/base64text.h"

#include <algorithm>

namespace portable {

QByteArray bytesOfBase64(const char *text, QString *error)
{
    QByteArray base64(text);
    if (base64.startsWith("data:image/")) {
        base64.remove(0, base64.indexOf(',') + 1);
    }
    const auto isSpace = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    base64.resize(int(std::remove_if(base64.begin(), base64.end(), isSpace) - base64.begin()));
    const auto firstOther = std::find_if_not(base64.cbegin(), base64.cend(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')
            || c == '+' || c == '/';
    });
    const auto padding = base64.cend() - firstOther;
    if (base64.isEmpty() || padding > 2 || base64.size() % 4 == 1
        || std::count(firstOther, base64.cend(), '=') != padding) {
        *error = QStringLiteral("it is not base64");
        return {};
    }
    return QByteArray::fromBase64(base64);
}

} // namespace portable
