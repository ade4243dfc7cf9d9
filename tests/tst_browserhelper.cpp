// SPDX-License-Identifier: MIT
//
// The browser helper, used over its local socket, with a script in place of the browser.

#include "companions/browser/browserhelper.h"
#include "companions/common/companionprogram.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

#include <array>
#include <csignal>
#include <memory>

namespace {

constexpr BrowserTimes quickly{1, 3000}; // opened at once
constexpr BrowserTimes patiently{60000, 3000}; // never opened

QByteArray number(int value)
{
    const qint32 bytes = value;
    return QByteArray(reinterpret_cast<const char *>(&bytes), sizeof bytes);
}

QByteArray sized(const QByteArray &text)
{
    return number(text.size()) + text;
}

QByteArray request(const QByteArray &url)
{
    return number(1) + sized(url);
}

QByteArray request(const QByteArray &url, const QByteArray &data)
{
    return number(2) + sized(url) + sized(data);
}

/// The server's end of the socket.
class Client
{
public:
    Client()
    {
        m_socket.connectToServer(QStringLiteral("SOUTHINTERFACE_BROWSER"));
        m_socket.waitForConnected();
    }

    void send(const QByteArray &bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }

    /// Waits for the next reply.
    QString reply()
    {
        if (!QTest::qWaitFor([this] { return m_socket.bytesAvailable() > 0; }, 10000)) {
            return QStringLiteral("no reply");
        }
        return QString::fromUtf8(m_socket.readAll());
    }

private:
    QLocalSocket m_socket;
};

bool runs(qint64 process)
{
    QFile status(QStringLiteral("/proc/%1/stat").arg(process));
    return status.open(QIODevice::ReadOnly) && !status.readAll().contains(") Z ");
}

} // namespace

class TestBrowserHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { m_helper.reset(); }

    void platforms_data();
    void platforms();
    void addresses_data();
    void addresses();
    void theScreenIsTheCustomers();
    void aPageLivesAsLongAsItsClient();
    void theNextRequestReplacesThePage();
    void aStubbornBrowserIsKilledWithAllItStarted();
    void whatCannotWorkIsReported_data();
    void whatCannotWorkIsReported();
    void aPageThatCannotBeWrittenIsReported();

private:
    QString path(const char *name) const { return m_folder.filePath(QString::fromUtf8(name)); }
    QByteArray content(const char *name) const;
    QList<qint64> processes() const;
    qint64 showing(const QByteArray &address) const;
    QByteArray page(const char *name);
    void startHelper(const BrowserTimes &times);

    QTemporaryDir m_folder;
    BrowserSettings m_settings;
    QVector<QRect> m_screens;
    std::unique_ptr<BrowserHelper> m_helper;
};

void TestBrowserHelper::initTestCase()
{
    qputenv("TMPDIR", m_folder.path().toLocal8Bit()); // for local sockets
    qputenv("XDG_RUNTIME_DIR", m_folder.path().toLocal8Bit());
    qputenv("FOLDER", m_folder.path().toLocal8Bit());
    // With "quick" it ends at once; with "stubborn" it ignores SIGTERM, as does what it has
    // started.
    QFile script(path("browser"));
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write(
        "#!/bin/sh\n"
        "printf '%s\\n' \"$@\" >$FOLDER/arguments\n"
        "cp \"$XDG_RUNTIME_DIR/webbrowser/page.html\" $FOLDER/shown\n"
        "case \"$*\" in *quick*) echo 'no X here' >&2; exit 3;; esac\n"
        "case \"$*\" in *stubborn*) trap '' TERM; sleep 60 & echo $! >>$FOLDER/processes;; esac\n"
        "echo $$ >>$FOLDER/processes\n"
        "case \"$*\" in *stubborn*) wait; esac\n"
        "exec sleep 60\n");
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void TestBrowserHelper::init()
{
    for (const char *name : {"arguments", "shown", "processes"}) {
        QFile::remove(path(name));
    }
    m_settings = BrowserSettings();
    m_settings.browsers = QStringList{QStringLiteral("/nowhere"), path("browser")};
    m_screens = {QRect(0, 0, 1920, 1080), QRect(1920, 30, 1024, 600)};
}

void TestBrowserHelper::startHelper(const BrowserTimes &times)
{
    m_helper = std::make_unique<BrowserHelper>([this] { return m_settings; },
                                               [this] { return m_screens; }, times);
    QCOMPARE(m_helper->start(), RequestServer::Start::Listening);
}

QByteArray TestBrowserHelper::content(const char *name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The processes that browsers have reported so far.
QList<qint64> TestBrowserHelper::processes() const
{
    QList<qint64> processes;
    for (const QByteArray &line : content("processes").split('\n')) {
        if (!line.isEmpty()) {
            processes << line.toLongLong();
        }
    }
    return processes;
}

/// Waits for a browser that shows an address. \return its process; 0 if none comes
qint64 TestBrowserHelper::showing(const QByteArray &address) const
{
    const bool comes = QTest::qWaitFor(
        [&] {
            return content("shown").contains('"' + address + '"')
                && content("processes").endsWith('\n') && runs(processes().last());
        },
        10000);
    return comes ? processes().last() : 0;
}

/// Creates an empty page. \return its path
QByteArray TestBrowserHelper::page(const char *name)
{
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly)) {
        qFatal("can't write a page");
    }
    return file.fileName().toUtf8();
}

void TestBrowserHelper::platforms_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("platform");
    QTest::newRow("X") << QByteArray("DISPLAY") << QByteArray("xcb;offscreen");
    QTest::newRow("Wayland") << QByteArray("WAYLAND_DISPLAY") << QByteArray("wayland;offscreen");
    QTest::newRow("no display") << QByteArray("NONE") << QByteArray("offscreen");
    QTest::newRow("already set") << QByteArray("QT_QPA_PLATFORM") << QByteArray("1");
}

void TestBrowserHelper::platforms()
{
    QFETCH(QByteArray, variable);
    const std::array<const char *, 4> names{"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM",
                                            "QT_LOGGING_RULES"};
    std::array<QByteArray, 4> before;
    for (std::size_t i = 0; i < names.size(); ++i) {
        before[i] = qgetenv(names[i]);
        qunsetenv(names[i]);
    }
    qputenv(variable.constData(), "1");
    qputenv("QT_LOGGING_RULES", "the server's");
    prepareCompanion();
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    const bool hasRules = qEnvironmentVariableIsSet("QT_LOGGING_RULES");
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (before[i].isNull()) {
            qunsetenv(names[i]);
        } else {
            qputenv(names[i], before[i]);
        }
    }
    QTEST(platform, "platform");
    QVERIFY(!hasRules);
}

void TestBrowserHelper::addresses_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("address"); // empty if refused
    const QString folder = m_folder.path();
    const auto row = [](const char *title, const QString &text, const QByteArray &address) {
        QTest::newRow(title) << text << address;
    };
    const auto encoded = [&folder](const char *name) {
        return "file://" + folder.toUtf8() + '/' + name;
    };
    page("叫 号#1?.html");
    page("a.html");
    // clang-format off
    row("a path is a path, whatever is in it", folder + QStringLiteral("/叫 号#1?.html"),
        encoded("%E5%8F%AB%20%E5%8F%B7%231%3F.html"));
    row("a path with two slashes names no machine", QStringLiteral("/") + folder + QStringLiteral("/a.html"), encoded("a.html"));
    row("a file's URL keeps query and fragment", QStringLiteral("FILE://") + folder + QStringLiteral("/a.html?x=1#y"), encoded("a.html?x=1#y"));
    row("a page of the web",    QStringLiteral("https://user@host:8/a b\"<'?q=叫#f"), "https://user@host:8/a%20b%22%3C'?q=%E5%8F%AB#f");
    row("no such file",         folder + QStringLiteral("/b.html"),              "");
    row("a folder",             folder,                                          "");
    row("another machine's file", QStringLiteral("file://host") + folder + QStringLiteral("/a.html"), "");
    row("a script",             QStringLiteral("javascript:alert(1)"),           "");
    row("data",                 QStringLiteral("data:text/html,<b>x"),           "");
    row("the browser's inside", QStringLiteral("chrome://settings"),             "");
    row("an option",            QStringLiteral("--gpu-launcher=/bin/ls"),        "");
    row("no host",              QStringLiteral("http://"),                       "");
    row("a relative path",      QStringLiteral("a.html"),                        "");
    row("nothing",              QString(),                                       "");
    // clang-format on
}

void TestBrowserHelper::addresses()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, address);
    const PageAddress page = pageAddress(text);
    QCOMPARE(page.url.toEncoded(), address);
    QCOMPARE(page.refusal.isEmpty(), !address.isEmpty());
}

void TestBrowserHelper::theScreenIsTheCustomers()
{
    const auto line = [this](int screens) {
        return BrowserWindow::arguments(m_settings, m_screens.mid(0, screens), QStringLiteral("/p"),
                                        QStringLiteral("/x y.html"));
    };
    const auto kiosk = QStringLiteral("--kiosk");
    QVERIFY(line(2).contains(kiosk));
    QVERIFY(line(2).contains(QStringLiteral("--window-position=1920,30")));
    QVERIFY(line(2).contains(QStringLiteral("--window-size=1024,600")));
    QCOMPARE(line(2).last(), QStringLiteral("--app=file:///x%20y.html"));
    QVERIFY(line(1).contains(kiosk));
    QVERIFY(line(1).contains(QStringLiteral("--window-size=1920,1080")));
    m_settings.fullScreen = BrowserSettings::FullScreen::Auto;
    QVERIFY(line(2).contains(kiosk));
    QVERIFY(!line(1).contains(kiosk));
    QVERIFY(line(1).contains(QStringLiteral("--window-size=1280,800")));
    m_screens[0].setSize({1024, 1024}); // no window is larger than the screen
    QVERIFY(line(1).contains(QStringLiteral("--window-size=1024,800")));

    QFile file(path("server.ini"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\nbrowser=gnome-www-browser\npadsize=@Size(800 600)\n"
               "[webbrowser]\nbrowser=mine\nfullscreen=never\noptions=--a, --b=c d\n");
    file.close();
    m_settings = BrowserSettings::read(file.fileName());
    QCOMPARE(m_settings.browsers, QStringList(QStringLiteral("mine")));
    QCOMPARE(m_settings.windowSize, QSize(800, 600));
    QVERIFY(!line(2).contains(kiosk));
    QVERIFY(line(2).contains(QStringLiteral("--b=c d")));

    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\npadsize=@Size(800 0)\n");
    file.close();
    QCOMPARE(BrowserSettings::read(file.fileName()).windowSize, QSize(1280, 800));
}

void TestBrowserHelper::aPageLivesAsLongAsItsClient()
{
    startHelper(quickly);
    const QByteArray url = page("柜员.html");
    auto client = std::make_unique<Client>();
    const QByteArray frame = request(url, "name=李,\"</script>&=#");
    for (const char byte : frame) { // in the smallest pieces
        client->send(QByteArray(1, byte));
        QCoreApplication::processEvents();
    }
    QCOMPARE(client->reply(), QStringLiteral("opened ") + QString::fromUtf8(url));

    // The address is in the file, whole and harmless, and not on the command line.
    const qint64 browser = showing(pageAddress(QString::fromUtf8(url)).url.toEncoded()
                                   + "#data=name%3D%E6%9D%8E%2C%22%3C%2Fscript%3E%26%3D%23");
    QVERIFY2(browser, content("shown").constData());
    QCOMPARE(processes().size(), 1);
    QCOMPARE(content("shown").count("</script>"), 1);
    QVERIFY(!content("arguments").contains("data="));
    const auto file = path("webbrowser/page.html");
    QCOMPARE(QFile::permissions(file) & (QFile::ReadGroup | QFile::ReadOther),
             QFile::Permissions());

    // The server probes, and starts another helper before each request: neither changes anything.
    Client().send(QByteArray());
    QCOMPARE(BrowserHelper([this] { return m_settings; }, [this] { return m_screens; }).start(),
             RequestServer::Start::AnotherRuns);
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::processEvents(); // both connections are there by now, and gone
    }
    QVERIFY(runs(browser));
    QVERIFY(QFile::exists(file));

    client.reset();
    QTRY_VERIFY(!runs(browser));
    QTRY_VERIFY(!QFile::exists(file));
}

void TestBrowserHelper::theNextRequestReplacesThePage()
{
    startHelper(quickly);
    Client first;
    first.send(request("http://a/#x", "1"));
    QCOMPARE(first.reply(), QStringLiteral("opened http://a/"));
    const qint64 a = showing("http://a/#x&data=1");
    QVERIFY(a);

    Client second; // of another client, two at once: the last one counts
    second.send(request("http://b/") + request("http://c/"));
    QCOMPARE(second.reply(), QStringLiteral("opened http://c/"));
    const qint64 c = showing("http://c/");
    QVERIFY(c);
    QVERIFY(!runs(a));

    // A refused one closes the window too: it shows somebody else's page.
    second.send(request("javascript:alert(1)", "x"));
    QVERIFY(second.reply().startsWith(QLatin1String("failed neither")));
    QVERIFY(!runs(c));

    second.send(request("http://d/"));
    QCOMPARE(second.reply(), QStringLiteral("opened http://d/"));
    ::kill(pid_t(showing("http://d/")), SIGKILL); // it closes by itself
    QCOMPARE(second.reply(), QStringLiteral("closed browser crashed"));
}

void TestBrowserHelper::aStubbornBrowserIsKilledWithAllItStarted()
{
    startHelper({1, 20});
    m_settings.options = QStringList{QStringLiteral("--stubborn")};
    auto client = std::make_unique<Client>();
    client->send(request("http://a/"));
    QCOMPARE(client->reply(), QStringLiteral("opened http://a/"));
    QTRY_COMPARE_WITH_TIMEOUT(processes().size(), 2, 10000);
    client.reset();
    for (const qint64 process : processes()) {
        QTRY_VERIFY_WITH_TIMEOUT(!runs(process), 10000);
    }
}

void TestBrowserHelper::whatCannotWorkIsReported_data()
{
    QTest::addColumn<QString>("browser");
    QTest::addColumn<QString>("option");
    QTest::addColumn<bool>("display");
    QTest::addColumn<int>("dataSize");
    QTest::addColumn<QString>("reply");
    const auto text = [](const char *latin1) { return QString::fromLatin1(latin1); };
    // clang-format off
    QTest::newRow("no display")   << text("browser")  << QString()       << false << 1 << text("failed no display");
    QTest::newRow("no browser")   << text("/nowhere") << QString()       << true  << 1 << text("failed no browser is installed, looked for /nowhere");
    QTest::newRow("ends at once") << text("browser")  << text("--quick") << true  << 1 << text("failed browser ended with status 3");
    QTest::newRow("too much")     << text("browser")  << QString()       << true  << 3000000 << text("failed the address with its data is too long");
    // clang-format on
}

void TestBrowserHelper::whatCannotWorkIsReported()
{
    startHelper(patiently);
    QFETCH(QString, browser);
    QFETCH(QString, option);
    QFETCH(bool, display);
    QFETCH(int, dataSize);
    m_settings.browsers = QStringList{QDir(m_folder.path()).absoluteFilePath(browser)};
    m_settings.options = QStringList{option};
    if (!display) {
        m_screens.clear();
    }
    Client client;
    client.send(request("http://a/", QByteArray(dataSize, 'x')));
    QTEST(client.reply(), "reply");
}

void TestBrowserHelper::aPageThatCannotBeWrittenIsReported()
{
    startHelper(quickly);
    const QString file = path("webbrowser/page.html");
    QVERIFY(QDir().mkpath(file)); // a folder in its place
    const auto remove = qScopeGuard([&file] { QDir().rmdir(file); });
    Client client;
    client.send(request("http://a/"));
    QCOMPARE(client.reply(),
             QStringLiteral("failed can't write ") + file + QStringLiteral(": Is a directory"));
}

QTEST_GUILESS_MAIN(TestBrowserHelper)
#include "tst_browserhelper.moc"
