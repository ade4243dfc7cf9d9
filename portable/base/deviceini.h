// SPDX-License-Identifier: MIT
/// \file Single values of the devices.ini in the program's directory.
#pragma once

#include <QString>

namespace portable {

/// Path of the devices.ini in the program's directory, whether it exists or not.
QString deviceConfigPath();

/**
 * A value of devices.ini; the file is read at each call.
 * \param key  "group/key"
 * \return empty when the file or the key is missing
 */
QString deviceSetting(const QString &key);

/// Absolute path of the folder that devices.ini names, or else of `usual`; both may be relative to
/// the program's directory.
QString deviceFolder(const QString &key, const QString &usual);

} // namespace portable
