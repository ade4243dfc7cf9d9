// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QStringList>

/// What an integrator can set, in `server.ini` beside the program.
struct BrowserSettings
{
    /// Whether a page fills the screen.
    enum class FullScreen {
        Always,
        Auto, ///< with two or more screens, so that a developer can work on a single one
        Never
    };

    /// Programs by name or path, all with Chromium's options; the first installed one is used.
    QStringList browsers{QStringLiteral("chromium"),      QStringLiteral("chromium-browser"),
                         QStringLiteral("uos-browser"),   QStringLiteral("google-chrome-stable"),
                         QStringLiteral("google-chrome"), QStringLiteral("microsoft-edge-stable")};
    FullScreen fullScreen = FullScreen::Always;
    QSize windowSize{1280, 800}; ///< in pixels, of a page that does not fill the screen
    QStringList options; ///< further options for the browser

    /// Reads the file and never writes it. Invalid values leave the defaults above.
    static BrowserSettings read(const QString &path);
};
