// SPDX-License-Identifier: MIT
#include "companions/browser/browserwindow.h"

#include "companions/common/customerscreen.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace {

constexpr int politeMs = 3000; // for a browser to end by itself
constexpr int killedMs = 5000; // for the system to clear a killed one away
constexpr int keptOutput = 2000; // bytes of what the browser said last
constexpr int longestAddress = 2 * 1024 * 1024; // bytes; Chromium drops longer ones

/// The user's own folder for them; a temporary one where Qt finds none that is nobody else's.
QString folderForRunTimeFiles()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!folder.isEmpty()) {
        return folder + QStringLiteral("/webbrowser");
    }
    static const QTemporaryDir temporary(
        QDir::temp().filePath(QStringLiteral("webbrowser-XXXXXX")));
    return temporary.path();
}

/// An address as a JavaScript text inside a page: nothing in it can end the text or the script.
QByteArray scriptText(const QByteArray &address)
{
    QByteArray text;
    for (const char c : address) {
        if (c == '"' || c == '\\' || c == '<' || c == '>' || c < 0x20 || c == 0x7f) {
            text += '%' + QByteArray(1, c).toHex().toUpper();
        } else {
            text += c;
        }
    }
    return '"' + text + '"';
}

/// Writes the file that leads to the page, readable by this user alone. \return why it can't
QString writeLeadingFile(const QString &path, const QByteArray &address)
{
    QFile::remove(path); // and with it whatever rights it had
    QFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly)
        || !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)) {
        return file.errorString();
    }
    file.write("<!DOCTYPE html><meta charset=\"utf-8\"><script>location.replace("
               + scriptText(address) + ")</script>\n");
    return file.flush() ? QString() : file.errorString();
}

/// The first of the programs that is installed; empty when none is.
QString findProgram(const QStringList &programs)
{
    for (const QString &program : programs) {
        const QString path = QStandardPaths::findExecutable(program);
        if (!path.isEmpty()) {
            return path;
        }
    }
    return QString();
}

} // namespace

void BrowserProcess::setupChildProcess()
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM); // no page stays when the helper goes
}

BrowserWindow::BrowserWindow(int settleTime)
    : m_folder(folderForRunTimeFiles())
    , m_leadingFile(m_folder + QStringLiteral("/page.html"))
{
    m_settling.setSingleShot(true);
    m_settling.setInterval(settleTime);
    m_browser.setProcessChannelMode(QProcess::MergedChannels);
    m_browser.setStandardInputFile(QProcess::nullDevice());
    connect(&m_settling, &QTimer::timeout, this, &BrowserWindow::opened);
    connect(&m_browser, &QProcess::readyRead, this, &BrowserWindow::keepLastOutput);
    connect(&m_browser, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &BrowserWindow::ended);
}

BrowserWindow::~BrowserWindow()
{
    close();
}

QStringList BrowserWindow::arguments(const BrowserSettings &settings, const QVector<QRect> &screens,
                                     const QString &profile, const QString &file)
{
    using FullScreen = BrowserSettings::FullScreen;
    const QRect screen = screens[smallestScreen(screens)];
    const bool fills = settings.fullScreen == FullScreen::Always
        || (settings.fullScreen == FullScreen::Auto && screens.size() > 1);
    const QSize size = fills ? screen.size() : settings.windowSize.boundedTo(screen.size());

    QStringList options{
        QStringLiteral("--window-position=%1,%2").arg(screen.left()).arg(screen.top()),
        QStringLiteral("--window-size=%1,%2").arg(size.width()).arg(size.height()),
        QStringLiteral("--user-data-dir=") + profile,
        QStringLiteral("--incognito"), // the next customer finds nothing of this one
        QStringLiteral("--no-first-run"),
        QStringLiteral("--no-default-browser-check"),
        QStringLiteral("--noerrdialogs"),
        QStringLiteral("--password-store=basic"), // asks nobody to unlock a key ring
        QStringLiteral("--disable-component-update"),
        QStringLiteral("--disable-background-networking"),
        QStringLiteral("--disable-sync"),
        QStringLiteral("--disable-pinch"),
        QStringLiteral("--overscroll-history-navigation=0"),
        // No question to the customer about translating, or whether the page may reach the server.
        QStringLiteral("--disable-features=Translate,LocalNetworkAccessChecks,"
                       "LocalNetworkAccessChecksWebSockets"),
    };
    if (fills) {
        options << QStringLiteral("--kiosk");
    }
    if (geteuid()
        == 0) { // Chromium's sandbox refuses to run as root; the other hides its complaint
        options << QStringLiteral("--no-sandbox") << QStringLiteral("--test-type");
    }
    return options << settings.options
                   << QStringLiteral("--app=")
        + QString::fromLatin1(QUrl::fromLocalFile(file).toEncoded());
}

void BrowserWindow::open(const QByteArray &address, const QVector<QRect> &screens,
                         const BrowserSettings &settings)
{
    close();
    if (screens.isEmpty()) {
        Q_EMIT failed(QStringLiteral("no display"));
        return;
    }
    if (address.size() > longestAddress) {
        Q_EMIT failed(QStringLiteral("the address with its data is too long"));
        return;
    }
    const QString program = findProgram(settings.browsers);
    if (program.isEmpty()) {
        Q_EMIT failed(QStringLiteral("no browser is installed, looked for ")
                      + settings.browsers.join(QStringLiteral(", ")));
        return;
    }
    const QString why = writeLeadingFile(m_leadingFile, address);
    if (!why.isEmpty()) {
        Q_EMIT failed(QStringLiteral("can't write %1: %2").arg(m_leadingFile, why));
        return;
    }
    const QString profile = m_folder + QStringLiteral("/profile");
    start(program, arguments(settings, screens, profile, m_leadingFile));
}

void BrowserWindow::start(const QString &program, const QStringList &options)
{
    qInfo().noquote() << "starting" << program << options.join(QLatin1Char(' '));
    m_lastOutput.clear();
    m_browser.start(program, options);
    if (!m_browser.waitForStarted()) {
        removeLeadingFile();
        Q_EMIT failed(program + QStringLiteral(": ") + m_browser.errorString());
        return;
    }
    m_group = m_browser.processId();
    m_settling.start();
}

void BrowserWindow::close()
{
    m_settling.stop();
    if (m_group != 0) {
        const auto group = pid_t(std::exchange(m_group, 0));
        ::kill(-group, SIGTERM);
        if (m_browser.state() != QProcess::NotRunning && !m_browser.waitForFinished(politeMs)) {
            qWarning() << "the browser does not end, killing it";
        }
        ::kill(-group, SIGKILL); // what the browser left behind as well
        m_browser.waitForFinished(killedMs);
        removeLeadingFile();
    }
}

/// It holds what the page was told. Only ever our own: another instance may show a page.
void BrowserWindow::removeLeadingFile()
{
    QFile::remove(m_leadingFile);
}

/// The browser has ended: from here, then there is nothing to tell, or by itself.
void BrowserWindow::ended()
{
    if (m_group == 0) {
        return;
    }
    keepLastOutput();
    const bool wasOpen = !m_settling.isActive();
    close();
    const QString program = QFileInfo(m_browser.program()).fileName();
    const QString why = m_browser.exitStatus() == QProcess::CrashExit
        ? program + QStringLiteral(" crashed")
        : program + QStringLiteral(" ended with status %1").arg(m_browser.exitCode());
    qInfo().noquote() << "what the browser said last:" << QString::fromUtf8(m_lastOutput);
    if (wasOpen) {
        Q_EMIT closed(why);
    } else {
        Q_EMIT failed(why);
    }
}

void BrowserWindow::keepLastOutput()
{
    m_lastOutput = (m_lastOutput + m_browser.readAll()).right(keptOutput);
}
