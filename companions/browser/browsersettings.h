// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QStringList>

/// What an integrator can set, in `server.ini` beside the program.
struct BrowserSettings
{
    /// When a page fills the screen.
    enum class FullScreen {
        Always,
        Auto, ///< with two screens or more: a developer goes on working on the only one
        Never
    };

    /// Programs, by name or path: the first that is installed is taken. All are of one family.
    QStringList browsers{QStringLiteral("chromium"),      QStringLiteral("chromium-browser"),
                         QStringLiteral("uos-browser"),   QStringLiteral("google-chrome-stable"),
                         QStringLiteral("google-chrome"), QStringLiteral("microsoft-edge-stable")};
    FullScreen fullScreen = FullScreen::Always;
    QSize windowSize{1280, 800}; ///< in pixels, when a page does not fill the screen
    QStringList options; ///< further options for the browser

    /// Reads the file; it is never written. Unreadable values leave what stands above.
    static BrowserSettings read(const QString &path);
};
