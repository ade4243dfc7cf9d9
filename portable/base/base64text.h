// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace portable {

/**
 * The bytes of a base64 text; "data:image/...;base64," before it and white space in it are passed
 * over. Empty, with a reason, when it is no base64.
 */
QByteArray bytesOfBase64(const char *text, QString *error);

} // namespace portable
