// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/environment.h"

#include <QMap>

/// Files of a support archive, by their names in it: without personal data.
QMap<QString, QByteArray> bundleFiles(const Environment &environment);

/**
 * Writes the files into an archive (tar, gzip), for this user only.
 * \return why it couldn't; empty if it could
 */
QString writeBundle(const QMap<QString, QByteArray> &files, const QString &archive);
