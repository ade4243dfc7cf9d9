// SPDX-License-Identifier: MIT
#pragma once

#include "companions/browser/browsersettings.h"

#include <QObject>
#include <QProcess>
#include <QRect>
#include <QTimer>
#include <QVector>

/// How long the browser gets, in milliseconds; tests shorten it.
struct BrowserTimes
{
    int settle = 1500; ///< a browser that still runs after this has its window open
    int quit = 3000; ///< to quit when asked to, before it is killed
};

/// A browser in its own process group, so that all of its processes can be killed.
class BrowserProcess : public QProcess
{
    Q_OBJECT

protected:
    void setupChildProcess() override;
};

/**
 * The one browser window: full screen on the customer's screen or, if configured so, a window
 * without tabs.
 *
 * The page's address is kept off the browser's command line: every user of the machine can read
 * command lines, and the server counts those that contain its name, as a page's path may. The
 * browser opens a small file in the runtime folder instead, which redirects it to the page.
 */
class BrowserWindow : public QObject
{
    Q_OBJECT

public:
    explicit BrowserWindow(const BrowserTimes &times);
    ~BrowserWindow() override;

    /**
     * Shows a page, replacing the previous one. Emits opened() or failed(), once; after opened()
     * also closed(), unless close() or another open() closes the window.
     *
     * \param address  percent-encoded; fails when it is too long for a browser
     * \param screens  of the desktop; fails without any, as there is no display
     */
    void open(const QByteArray &address, const QVector<QRect> &screens,
              const BrowserSettings &settings);

    /**
     * Ends the browser with all its processes: asks it to quit, kills it if that takes too long.
     * Blocks meanwhile. Emits nothing.
     */
    void close();

    /// The command-line options that make the browser show the file.
    static QStringList arguments(const BrowserSettings &settings, const QVector<QRect> &screens,
                                 const QString &profile, const QString &file);

Q_SIGNALS:
    void opened();
    void failed(const QString &why);
    void closed(const QString &why);

private:
    void start(const QString &program, const QStringList &options);
    void ended();
    void keepLastOutput();
    void removeRedirectFile();

    const int m_quitTime; ///< in milliseconds
    const QString m_folder; ///< for runtime files
    const QString m_redirectFile; ///< redirects the browser to the page
    BrowserProcess m_browser;
    qint64 m_group = 0; ///< the browser's process group; 0 if none runs
    QTimer m_settling; ///< runs until the window counts as opened
    QByteArray m_lastOutput; ///< of the browser, logged if it fails
};
