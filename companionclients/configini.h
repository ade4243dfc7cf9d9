// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>

/**
 * The settings of the counter pages' browser, from `server.ini` beside the program.
 *
 * The constructor reads the file and writes the values back at once, so that a missing file or
 * key exists afterwards. A file that can't be written is no error: the values stand in memory.
 */
class ConfigIni
{
public:
    ConfigIni();

    quint16 port; ///< key "port", 1818; kept for pages' sake: the server's port is fixed
    QString browser; ///< key "browser"; always gnome-www-browser, whatever the file says
    QSize padsize; ///< key "padsize", 1280 x 800 pixels: the page window on the pad screen
};
