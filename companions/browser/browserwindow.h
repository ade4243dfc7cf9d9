// SPDX-License-Identifier: MIT
#pragma once

#include "companions/browser/browsersettings.h"

#include <QObject>
#include <QProcess>
#include <QRect>
#include <QTimer>
#include <QVector>

/// A browser in a process group of its own, so that the whole of it can be ended.
class BrowserProcess : public QProcess
{
    Q_OBJECT

protected:
    void setupChildProcess() override;
};

/**
 * The one browser window: full screen on the customer's screen, or by its settings a window
 * without tabs.
 *
 * The page's address is not on the browser's command line: every user of the machine can read
 * command lines, and the server counts those that hold its name, which a page's path may. The
 * browser is given a small file instead, in the folder for run-time files, that leads to the page.
 */
class BrowserWindow : public QObject
{
    Q_OBJECT

public:
    /// \param settleTime  a browser that still runs after it, in ms, has its window up
    explicit BrowserWindow(int settleTime);
    ~BrowserWindow() override;

    /**
     * Shows a page in place of the one before. How it went comes as a signal: opened() or
     * failed(), once; after opened(), closed() when the window has not been closed from here.
     *
     * \param address  percent-encoded; one that ends up too long for a browser fails
     * \param screens  the desktop's; none means that there is no display, and fails
     */
    void open(const QByteArray &address, const QVector<QRect> &screens,
              const BrowserSettings &settings);

    /**
     * Ends the browser, with all its processes: asks first, kills after 3 s. Blocks that long.
     * Emits nothing.
     */
    void close();

    /// The options for a browser that shows the file.
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
    void removeLeadingFile();

    const QString m_folder; ///< for run-time files
    const QString m_leadingFile; ///< leads the browser to the page
    BrowserProcess m_browser;
    qint64 m_group = 0; ///< the browser's process group; 0 without one
    QTimer m_settling; ///< runs until the window counts as opened
    QByteArray m_lastOutput; ///< of the browser, for the log when it fails
};
