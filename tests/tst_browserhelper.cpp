// SPDX-License-Identifier: MIT
//
// The browser helper, asked over its local socket, with a script in place of the browser.

#include "companions/browser/browserhelper.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>

namespace {

constexpr int settleMs = 300;

QByteArray number(int value)
{
    const qint32 bytes = value;
    return QByteArray(reinterpret_cast<const char *>(&bytes), sizeof bytes);
}

QByteArray sized(const QByteArray &text)
{
    return number(text.size()) + text;
}

QByteArray askFor(const QByteArray &url)
{
    return number(1) + sized(url);
}

QByteArray askFor(const QByteArray &url, const QByteArray &data)
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

    /// What has been replied since the last call, waited for.
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

} // namespace

class TestBrowserHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { m_helper.reset(); }

    void addresses_data();
    void addresses();
    void theScreenIsTheCustomers();
    void aPageLivesAsLongAsItsClient();
    void theNextRequestReplacesThePage();
    void aStubbornBrowserIsKilledWithAllItStarted();
    void whatCannotWorkIsTold_data();
    void whatCannotWorkIsTold();

private:
    QString path(const char *name) const { return m_folder.filePath(QString::fromUtf8(name)); }
    QByteArray content(const char *name) const;
    QList<qint64> started() const;
    QByteArray page(const char *name);

    QTemporaryDir m_folder;
    BrowserSettings m_settings;
    QVector<QRect> m_screens;
    std::unique_ptr<BrowserHelper> m_helper;
};

namespace {

bool runs(qint64 process)
{
    QFile status(QStringLiteral("/proc/%1/stat").arg(process));
    return status.open(QIODevice::ReadOnly) && !status.readAll().contains(") Z ");
}

} // namespace

void TestBrowserHelper::initTestCase()
{
    qputenv("TMPDIR", m_folder.path().toLocal8Bit()); // where local sockets lie
    qputenv("XDG_RUNTIME_DIR", m_folder.path().toLocal8Bit());
    qputenv("FOLDER", m_folder.path().toLocal8Bit());
    // "quick" ends at once; "stubborn" ignores the polite request, and so does what it started.
    QFile script(path("browser"));
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write(
        "#!/bin/sh\n"
        "printf '%s\\n' \"$@\" >$FOLDER/arguments\n"
        "cp \"$XDG_RUNTIME_DIR/webbrowser/page.html\" $FOLDER/shown\n"
        "case \"$*\" in *quick*) echo 'no X here' >&2; exit 3;; esac\n"
        "case \"$*\" in *stubborn*) trap '' TERM; sleep 60 & echo $! >>$FOLDER/started;; esac\n"
        "echo $$ >>$FOLDER/started\n"
        "case \"$*\" in *stubborn*) wait; esac\n"
        "exec sleep 60\n");
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void TestBrowserHelper::init()
{
    for (const char *name : {"arguments", "shown", "started"}) {
        QFile::remove(path(name));
    }
    m_settings = BrowserSettings();
    m_settings.browsers = QStringList{QStringLiteral("/nowhere"), path("browser")};
    m_screens = {QRect(0, 0, 1920, 1080), QRect(1920, 30, 1024, 600)};
    m_helper = std::make_unique<BrowserHelper>([this] { return m_settings; },
                                               [this] { return m_screens; }, settleMs);
    QCOMPARE(m_helper->start(), RequestServer::Start::Listening);
}

QByteArray TestBrowserHelper::content(const char *name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The processes of the browsers started so far, once there is one.
QList<qint64> TestBrowserHelper::started() const
{
    if (!QTest::qWaitFor([this] { return content("started").endsWith('\n'); }, 10000)) {
        qFatal("no browser was started");
    }
    QList<qint64> processes;
    for (const QByteArray &line : content("started").split('\n')) {
        if (!line.isEmpty()) {
            processes << line.toLongLong();
        }
    }
    return processes;
}

/// A file to show; its path.
QByteArray TestBrowserHelper::page(const char *name)
{
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly)) {
        qFatal("can't write a page");
    }
    return file.fileName().toUtf8();
}

void TestBrowserHelper::addresses_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("address"); // empty: refused
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
}

void TestBrowserHelper::aPageLivesAsLongAsItsClient()
{
    const QByteArray url = page("柜员.html");
    auto client = std::make_unique<Client>();
    const QByteArray frame = askFor(url, "name=李,\"</script>&=#");
    for (const char byte : frame) { // in the smallest pieces
        client->send(QByteArray(1, byte));
        QTest::qWait(1);
    }
    QCOMPARE(client->reply(), QStringLiteral("opened ") + QString::fromUtf8(url));
    QCOMPARE(started().size(), 1);
    QVERIFY(runs(started()[0]));

    // The address is in the file, whole and harmless, and not on the command line.
    const QByteArray shown = content("shown");
    QVERIFY2(shown.contains(".html#data=name%3D%E6%9D%8E%2C%22%3C%2Fscript%3E%26%3D%23\")"),
             shown.constData());
    QCOMPARE(shown.count("</script>"), 1);
    QVERIFY(!content("arguments").contains("data="));
    const auto file = path("webbrowser/page.html");
    QCOMPARE(QFile::permissions(file) & (QFile::ReadGroup | QFile::ReadOther),
             QFile::Permissions());

    // The server probes, and starts another helper before each request: neither takes anything
    // away.
    Client().send(QByteArray());
    QCOMPARE(BrowserHelper([this] { return m_settings; }, [this] { return m_screens; }).start(),
             RequestServer::Start::AnotherRuns);
    QTest::qWait(50);
    QVERIFY(runs(started()[0]));
    QVERIFY(QFile::exists(file));

    client.reset();
    QTRY_VERIFY(!runs(started()[0]));
    QTRY_VERIFY(!QFile::exists(file));
}

void TestBrowserHelper::theNextRequestReplacesThePage()
{
    Client first;
    first.send(askFor("http://a/#x", "1"));
    QCOMPARE(first.reply(), QStringLiteral("opened http://a/"));
    QVERIFY(content("shown").contains("\"http://a/#x&data=1\""));

    Client second; // of another client, two at once: the last one counts
    second.send(askFor("http://b/") + askFor("http://c/"));
    QCOMPARE(second.reply(), QStringLiteral("opened http://c/"));
    QVERIFY(content("shown").contains("\"http://c/\""));
    QVERIFY(!runs(started().first()));
    QVERIFY(runs(started().last()));

    // A refused one closes the window too: what it shows is somebody else's.
    second.send(askFor("javascript:alert(1)", "x"));
    QVERIFY(second.reply().startsWith(QLatin1String("failed neither")));
    QVERIFY(!runs(started().last()));

    // A window that goes by itself is told.
    second.send(askFor("http://d/"));
    QCOMPARE(second.reply(), QStringLiteral("opened http://d/"));
    ::kill(pid_t(started().last()), SIGKILL);
    QCOMPARE(second.reply(), QStringLiteral("closed browser crashed"));
}

void TestBrowserHelper::aStubbornBrowserIsKilledWithAllItStarted()
{
    m_settings.options = QStringList{QStringLiteral("--stubborn")};
    auto client = std::make_unique<Client>();
    client->send(askFor("http://a/"));
    QCOMPARE(client->reply(), QStringLiteral("opened http://a/"));
    QCOMPARE(started().size(), 2);
    client.reset();
    for (const qint64 process : started()) {
        QTRY_VERIFY_WITH_TIMEOUT(!runs(process), 10000);
    }
}

void TestBrowserHelper::whatCannotWorkIsTold_data()
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

void TestBrowserHelper::whatCannotWorkIsTold()
{
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
    client.send(askFor("http://a/", QByteArray(dataSize, 'x')));
    QTEST(client.reply(), "reply");
}

QTEST_GUILESS_MAIN(TestBrowserHelper)
#include "tst_browserhelper.moc"
