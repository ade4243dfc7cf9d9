// SPDX-License-Identifier: MIT
/// \file Files that come with the library: programs that it starts, and modules, which are kept
/// apart because they bring many other libraries along.
#pragma once

#include <QString>

namespace portable {

/// The path of a file in the folder of the library that this code is part of.
QString besideLibrary(const QString &name);

/**
 * Loads a module, which stays, and looks up what it exports. Any thread.
 * \return null, with a reason that names the file
 */
const void *symbolOfModule(const QString &module, const char *symbol, QString *error);

} // namespace portable
