// SPDX-License-Identifier: MIT
#include "companions/browser/browserwindow.h"

#include "base/display.h"
#include "base/logtext.h"
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

constexpr int killedMs = 5000; // for the system to end a killed one
constexpr int keptOutput = 2000; // bytes of the browser's last output
constexpr int maxAddress = 2 * 1024 * 1024; // bytes; Chromium drops longer ones

/// The user's private runtime folder, or a temporary one where Qt finds none.
QString runtimeFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!folder.isEmpty()) {
        return folder + QStringLiteral("/webbrowser");
    }
    static const QTemporaryDir temporary(
        QDir::temp().filePath(QStringLiteral("webbrowser-XXXXXX")));
    return temporary.path();
}

/// A JavaScript string literal for a page; nothing in the address can end the literal or the
/// script.
QByteArray scriptLiteral(const QByteArray &address)
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

/// Writes a page, readable by this user only, that redirects. \return the error; empty on success
QString writeRedirectFile(const QString &path, const QByteArray &address)
{
    QFile::remove(path); // along with its permissions
    QFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly)
        || !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)) {
        return file.errorString();
    }
    file.write("<!DOCTYPE html><meta charset=\"utf-8\"><script>location.replace("
               + scriptLiteral(address) + ")</script>\n");
    return file.flush() ? QString() : file.errorString();
}

/// The first installed program; empty if there is none.
QString findProgram(const QStringList &programs)
{
    for (const QString &program : programs) {
        QString path = QStandardPaths::findExecutable(program);
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

BrowserWindow::BrowserWindow(const BrowserTimes &times)
    : m_quitTime(times.quit)
    , m_folder(runtimeFolder())
    , m_redirectFile(m_folder + QStringLiteral("/page.html"))
{
    m_settling.setSingleShot(true);
    m_settling.setInterval(times.settle);
    m_browser.setProcessChannelMode(QProcess::MergedChannels);
    m_browser.setStandardInputFile(QProcess::nullDevice());
    m_browser.setProcessEnvironment(base::desktopEnvironment());
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
        QStringLiteral("--incognito"), // leaves nothing of this customer to the next
        QStringLiteral("--no-first-run"),
        QStringLiteral("--no-default-browser-check"),
        QStringLiteral("--noerrdialogs"),
        QStringLiteral("--password-store=basic"), // never asks to unlock a keyring
        QStringLiteral("--disable-component-update"),
        QStringLiteral("--disable-background-networking"),
        QStringLiteral("--disable-sync"),
        QStringLiteral("--disable-pinch"),
        QStringLiteral("--overscroll-history-navigation=0"),
        // Never ask the customer about translations, or whether the page may reach the server.
        QStringLiteral("--disable-features=Translate,LocalNetworkAccessChecks,"
                       "LocalNetworkAccessChecksWebSockets"),
    };
    if (fills) {
        options << QStringLiteral("--kiosk");
    }
    if (geteuid() == 0) { // Chromium can't run as root with its sandbox; hide its warning
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
    if (address.size() > maxAddress) {
        Q_EMIT failed(QStringLiteral("the address with its data is too long"));
        return;
    }
    const QString program = findProgram(settings.browsers);
    if (program.isEmpty()) {
        Q_EMIT failed(QStringLiteral("no browser is installed, looked for ")
                      + settings.browsers.join(QStringLiteral(", ")));
        return;
    }
    const QString why = writeRedirectFile(m_redirectFile, address);
    if (!why.isEmpty()) {
        Q_EMIT failed(QStringLiteral("can't write %1: %2").arg(m_redirectFile, why));
        return;
    }
    const QString profile = m_folder + QStringLiteral("/profile");
    start(program, arguments(settings, screens, profile, m_redirectFile));
}

void BrowserWindow::start(const QString &program, const QStringList &options)
{
    qInfo().noquote() << "starting"
                      << base::oneLine(program + QLatin1Char(' ') + options.join(QLatin1Char(' ')));
    m_lastOutput.clear();
    m_browser.start(program, options);
    if (!m_browser.waitForStarted()) {
        removeRedirectFile();
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
        if (m_browser.state() != QProcess::NotRunning && !m_browser.waitForFinished(m_quitTime)) {
            qWarning() << "the browser does not quit, killing it";
        }
        ::kill(-group, SIGKILL); // including what the browser left behind
        m_browser.waitForFinished(killedMs);
        removeRedirectFile();
    }
}

/// The file holds the page's data. Call only after writing it: it may be another instance's.
void BrowserWindow::removeRedirectFile()
{
    QFile::remove(m_redirectFile);
}

/// The browser has ended. There is nothing to report if close() has ended it.
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
    qInfo().noquote() << "last output of the browser:"
                      << base::oneLine(base::withoutSecrets(QString::fromUtf8(m_lastOutput)));
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
