// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace portable {

/**
 * Decodes base64; a prefix "data:image/...;base64," and white space are skipped, and the padding is
 * optional. Empty, with a reason, when the text is empty or not base64.
 */
QByteArray bytesOfBase64(const char *text, QString *error);

} // namespace portable
