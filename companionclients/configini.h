// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>

/**
 * Settings of the counter pages' browser, from `server.ini`, wherever base/datafolder.h finds it.
 *
 * The constructor reads the file and writes the values back at once, which creates a missing file
 * or key; but not to a file outside the data folder, which is the administrator's. It is no error
 * if the file can't be written.
 */
class ConfigIni
{
public:
    ConfigIni();

    quint16 port; ///< key "port", default 1818; not used: the server's port is fixed
    QString browser; ///< key "browser"; always set to gnome-www-browser
    QSize padsize; ///< key "padsize", default 1280 x 800: size of the page's window in pixels
};
