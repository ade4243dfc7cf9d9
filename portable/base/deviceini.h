// SPDX-License-Identifier: MIT
/// \file Single values of devices.ini, wherever base/datafolder.h finds it.
#pragma once

#include <QString>

namespace portable {

/// Path of the devices.ini in force, whether it exists or not.
QString deviceConfigPath();

/**
 * A value of devices.ini; the file is read at each call.
 * \param key  "group/key"
 * \return empty when the file or the key is missing
 */
QString deviceSetting(const QString &key);

/// Absolute path of the folder that devices.ini names, or else of `usual`. A relative one is looked
/// for where devices.ini is: see base::findData().
QString deviceFolder(const QString &key, const QString &usual);

} // namespace portable
