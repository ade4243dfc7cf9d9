// SPDX-License-Identifier: MIT
// What an access policy decides, without sockets: tables of what must pass and what must not.
#include "access/argumentrules.h"
#include "access/auditlog.h"
#include "access/policyfile.h"
#include "access/policywatch.h"
#include "base/neighbor.h"
#include "deviceprocess/host/landlock.h"
#include "dispatch/loggedtext.h"
#include "log/qlog.h"
#include "tests/accesspolicy.h"
#include "tests/files.h"
#include "tests/manualclock.h"
#include "tests/rows.h"

#include <QTemporaryDir>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>

using namespace accesspolicy;

namespace {

const char usualHead[] = "GET / HTTP/1.1\r\nHost: localhost:1818\r\n";

std::optional<Refusal> knock(const Policy &policy, const QByteArray &head,
                             const QHostAddress &local = QHostAddress::LocalHost)
{
    const VisitorCounts counts;
    Origin origin;
    return Doorkeeper(std::make_shared<const Policy>(policy), QString())
        .atHandshake({handshakeFrom(head + "\r\n"), local, counts}, &origin);
}

} // namespace

class TestAccess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_root = QFileInfo(m_folder.path()).canonicalFilePath();
        qputenv("HOME", QFile::encodeName(at("home")));
        for (const char *file :
             {"scan/a.jpg", "scan/sub/b.jpg", "scan/with,comma.jpg", "scan/x.py", "scan/照片.jpg",
              "scan2/a.jpg", "secret/s.txt", "prog/server.ini", "prog/webSite/pay.html",
              "home/.ssh/id", "home/pictures/p.jpg", "home/pictures/.thumbs/t.jpg"}) {
            writeFile(at(file));
        }
        const std::pair<const char *, const char *> links[] = {{"a.jpg", "in"},
                                                               {"../secret/s.txt", "out"},
                                                               {"../secret", "outdir"},
                                                               {"loop", "loop"},
                                                               {"../nowhere", "dangling"},
                                                               {"/proc/self/root", "magic"},
                                                               {"/proc/self/cwd", "cwd"},
                                                               {"sub", "indir"},
                                                               {"../secret/new.jpg", "shot.jpg"},
                                                               {"/dev/null", "null"},
                                                               {"x.py", "innocent.jpg"},
                                                               {"with,comma.jpg", "comma"}};
        for (const auto &[target, name] : links) {
            QCOMPARE(symlink(target, qPrintable(at("scan/") + line(name))), 0);
        }
        QCOMPARE(mkfifo(qPrintable(at("scan/pipe")), 0600), 0);
        QCOMPARE(symlink("scan", qPrintable(at("scanlink"))), 0);
        m_never = NeverFolders::of({at("prog")});
    }

    void origins_data()
    {
        const Rows<QString, QString, bool> row("allow", "header", "passes");
        const QString bank = line("https://counter.bank.example");
        const QString star = line("https://*.gov.example:8443");
        row("same", bank, bank, true);
        row("usual port", bank, "https://counter.bank.example:443", true);
        row("case", bank, "HTTPS://Counter.BANK.example", true);
        row("in a list", line("file, ") + bank, bank, true);
        row("usual port in the policy", "https://a.example:443", "https://a.example", true);
        row("port of http", "http://a.example", "http://a.example:80", true);
        row("star", star, "https://tax.gov.example:8443", true);
        row("star, case", star, "https://TAX.gov.example:8443", true);
        row("null", "file", "null", true);
        row("file", "file", "file://", true);
        row("none", "none", QString(), true);
        row("any, web", "*", bank, true);
        row("any, null", "*", "null", true);
        row("any, none", "*", QString(), true);
        row("punycode", "https://例子.cn", "https://xn--fsqu00a.cn", true);
        row("punycode as it is", "https://xn--fsqu00a.cn", "https://xn--fsqu00a.cn", true);
        row("IPv4", "http://10.0.0.1:8080", "http://10.0.0.1:8080", true);
        row("IPv6", "http://[::1]:81", "http://[0:0::1]:81", true);
        row("extension", "chrome-extension://abcdef", "chrome-extension://abcdef", true);
        for (const char *header : {"http://counter.bank.example",
                                   "https://counter.bank.example:8443",
                                   "https://counter.bank.example:0",
                                   "https://counter.bank.example:",
                                   "https://counter.bank.example:443443",
                                   "https://counter.bank.example:+443",
                                   "https://counter.bank.example: 443",
                                   "https://counter.bank.example.",
                                   "https://counter.bank.example/",
                                   "https://counter.bank.example/x",
                                   "https://counter.bank.example?x",
                                   "https://counter.bank.example#x",
                                   "https://counter.bank.example.evil.example",
                                   "https://evilcounter.bank.example",
                                   "https://a.counter.bank.example",
                                   "https://bank.example",
                                   "https://counter-bank.example",
                                   "https://evil.example",
                                   "https://user@counter.bank.example",
                                   "https://counter.bank.example@evil.example",
                                   "https://counter.bank.example\\@evil",
                                   "https://counter.bank.example%2eevil.example",
                                   "https://counter%2ebank.example",
                                   "https://counter..bank.example",
                                   "https://.counter.bank.example",
                                   "https://counter.bank.example https://evil.example",
                                   "https://evil.example, https://counter.bank.example",
                                   "https:counter.bank.example",
                                   "https:/counter.bank.example",
                                   "//counter.bank.example",
                                   "counter.bank.example",
                                   "https://counter.bank.example\t",
                                   "https://c\xD0\xBEunter.bank.example",
                                   "https://counter\u3002bank.example",
                                   "https://*.bank.example",
                                   "*",
                                   "",
                                   " ",
                                   "null",
                                   "file://",
                                   "file:///",
                                   "none",
                                   "NULL",
                                   "data:",
                                   "wss://counter.bank.example",
                                   "https://xn--cunter-9bf.bank.example",
                                   "https://[::1]"}) {
            row(line("not ") + line(header), bank, header, false);
        }
        row("no header", bank, QString(), false);
        row("star: no label", star, "https://gov.example:8443", false);
        row("star: two labels", star, "https://a.tax.gov.example:8443", false);
        row("star: another port", star, "https://tax.gov.example", false);
        row("star: another suffix", star, "https://taxgov.example:8443", false);
        row("star: empty label", star, "https://.gov.example:8443", false);
        row("star: a star", star, "https://*.gov.example:8443", false);
        row("file is no web page", "file", bank, false);
        row("none is not null", "none", "null", false);
        row("null is not none", "file", QString(), false);
        row("any, but malformed", "*", "https://a b", false);
    }

    void origins()
    {
        QFETCH(QString, allow);
        QFETCH(QString, header);
        QFETCH(bool, passes);
        QByteArray head = usualHead;
        if (!header.isNull()) {
            head += "Origin: " + header.toUtf8() + "\r\n";
        }
        const auto refusal = knock(*policyOf(line("[origin] allow=") + allow), head);
        QCOMPARE(!refusal, passes || header.endsWith(QLatin1Char('\t'))); // blanks around are none
    }

    void heads_data()
    {
        const Rows<QString, QByteArray, bool> row("sections", "head", "passes");
        const QString usual = line("[origin] allow=*");
        const auto host = [](const char *text) {
            return QByteArray("GET / HTTP/1.1\r\nHost: ") + text + "\r\n";
        };
        for (const char *good : {"localhost", "localhost:1818", "LOCALHOST:1", "127.0.0.1:1818",
                                 "[::1]:1818", "[::1]"}) {
            row(line(good), usual, host(good), true);
        }
        for (const char *bad : {"evil.example",
                                "evil.example:1818",
                                "localhost.",
                                "localhost.evil.example",
                                "evil-localhost",
                                "localhost:",
                                "localhost:x",
                                "localhost:99999",
                                "localhost:1818:1",
                                "user@localhost",
                                "localhost/",
                                "localhost, evil.example",
                                "127.0.0.2",
                                "127.1",
                                "0x7f.0.0.1",
                                "127.0.0.1.nip.example",
                                "::1",
                                "[::2]",
                                "[::1",
                                "[::1]x",
                                "",
                                "local host",
                                "[::ffff:127.0.0.1%lo]"}) {
            row(line("not ") + line(bad), usual, host(bad), false);
        }
        const QString own = line("[origin] allow=* [host] allow=term.example:1818");
        row("own host", own, host("term.example:1818"), true);
        row("own host, another port", own, host("term.example:1819"), false);
        row("usual hosts are replaced", own, host("localhost"), false);
        row("no Host", usual, "GET / HTTP/1.1\r\n", false);
        row("two Hosts", usual, host("localhost") + "hOST: localhost\r\n", false);
        row("two Origins", usual, host("localhost") + "Origin: a://b\r\nOrigin: a://b\r\n", false);
        row("folded", usual, host("localhost") + "X: y\r\n Origin: a://b\r\n", false);
        row("blank before the colon", usual, host("localhost") + "Origin : a://b\r\n", false);
        row("bare line end", usual, host("localhost") + "X: y\nOrigin: a://b\r\n", false);
        row("NUL", usual, host("localhost") + QByteArray("X: \0\r\n", 6), false);
        row("absolute address", usual, "GET http://evil/ HTTP/1.1\r\nHost: localhost\r\n", false);
        row("two slashes", usual, "GET //evil/ HTTP/1.1\r\nHost: localhost\r\n", false);
        row("another method", usual, "POST / HTTP/1.1\r\nHost: localhost\r\n", false);
        writeFile(at("token"), "0123456789abcdefé\n");
        chmod(qPrintable(at("token")), 0640);
        const QString token = line("[origin] allow=* [token] required=true|file=") + at("token");
        const QByteArray query = "GET /?a=1&token=0123456789abcdef%C3%A9";
        row("token", token, query + " HTTP/1.1\r\nHost: localhost\r\n", true);
        row("part of the token", token, query.left(25) + " HTTP/1.1\r\nHost: localhost\r\n", false);
        row("more than the token", token, query + "x HTTP/1.1\r\nHost: localhost\r\n", false);
        row("no token", token, host("localhost"), false);
        row("empty token", token, "GET /?token= HTTP/1.1\r\nHost: localhost\r\n", false);
        row("token as a subprotocol", token,
            host("localhost") + "Sec-WebSocket-Protocol: x, token.0123456789abcdef\xE9\r\n", true);
        row("no token is required", QString(token).replace(line("=true"), line("=false")),
            host("localhost"), true);
    }

    void heads()
    {
        QFETCH(QString, sections);
        QFETCH(QByteArray, head);
        QFETCH(bool, passes);
        const auto refusal = knock(*policyOf(sections), head);
        QCOMPARE(!refusal, passes);
        QCOMPARE(refusal && refusal->reason == line("there is no Host header"),
                 !head.contains("Host: "));
    }

    void addresses_data()
    {
        const Rows<QString, QString, bool> row("addresses", "local", "passes");
        row("loopback", "loopback", "127.0.0.1", true);
        row("loopback 2", "loopback", "::1", true);
        row("mapped", "loopback", "::ffff:127.0.0.1", true);
        row("another", "loopback", "10.0.0.1", false);
        row("any", "any", "10.0.0.1", true);
        row("listed", "10.0.0.1, loopback", "::ffff:10.0.0.1", true);
        row("not listed", "10.0.0.1", "127.0.0.1", false);
    }

    void addresses()
    {
        QFETCH(QString, addresses);
        QFETCH(QString, local);
        QFETCH(bool, passes);
        const auto policy = policyOf(line("[origin] allow=* [listen] addresses=") + addresses);
        QCOMPARE(!knock(*policy, usualHead, QHostAddress(local)), passes);
    }

    // "$" is the folder of the test; the result is what is carried out, "=" the same, null nothing.
    void paths_data()
    {
        const Rows<QString, QString> row("text", "carriedOut");
        const QString no;
        const auto reads = [&](const char *path, const QString &real) {
            row(line("read ") + line(path), line("Base64Encode(%1)").arg(line(path)),
                real.isNull() ? no : line("Base64Encode(%1)").arg(real));
        };
        reads("$/scan/a.jpg", line("$/scan/a.jpg"));
        reads("$/scan/missing.jpg", line("$/scan/missing.jpg"));
        reads("$/scan/missing/too.jpg", line("$/scan/missing/too.jpg"));
        reads("$/scan//./sub/../a.jpg", line("$/scan/a.jpg"));
        reads("//$/scan/a.jpg", line("$/scan/a.jpg"));
        reads("$/scan/in", line("$/scan/a.jpg"));
        reads("$/scan/indir/b.jpg", line("$/scan/sub/b.jpg"));
        reads("$/scanlink/a.jpg", line("$/scan/a.jpg"));
        reads("$/scan/照片.jpg", line("$/scan/照片.jpg"));
        reads("$/scan/with,comma.jpg", line("$/scan/with,comma.jpg"));
        for (const char *path : {"$/scan/out",
                                 "$/scan/outdir/s.txt",
                                 "$/scan/outdir",
                                 "$/scan/../secret/s.txt",
                                 "$/scan/sub/../../secret/s.txt",
                                 "$/scan/indir/../../secret/s.txt",
                                 "$/scan/missing/../../secret/s.txt",
                                 "$/scan/missing/../a.jpg",
                                 "$/scan/loop",
                                 "$/scan/dangling",
                                 "$/scan/dangling/x",
                                 "$/scan/a.jpg/x",
                                 "$/scan/a.jpg/",
                                 "$/scan/magic$/scan/a.jpg",
                                 "$/scan/magic/etc/passwd",
                                 "$/scan/cwd/x",
                                 "$/scan/null",
                                 "$/scan/pipe",
                                 "$/scan/x.py",
                                 "$/scan/X.PY",
                                 "$/scan/innocent.jpg",
                                 "$/scan/y.py.1",
                                 "$/scan2/a.jpg",
                                 "$/sca",
                                 "$/",
                                 "/",
                                 "/etc/passwd",
                                 "/proc/self/environ",
                                 "/proc/self/root$/scan/a.jpg",
                                 "/proc/self/cwd/x",
                                 "/proc/self/fd/0",
                                 "/proc/thread-self/root$/scan/a.jpg",
                                 "/dev/null",
                                 "/dev/fd/0",
                                 "/dev/stdin",
                                 "/sys/kernel/mm",
                                 "$/prog/server.ini",
                                 "$/home/.ssh/id",
                                 "$/home/pictures/.thumbs/t.jpg",
                                 "~/pictures/p.jpg",
                                 "scan/a.jpg",
                                 "./a.jpg",
                                 "..",
                                 ":/scan/a.jpg",
                                 "file://$/scan/a.jpg",
                                 "$/scan/a.jpg\n",
                                 "$/scan/\x01",
                                 "$/scan/\x7f",
                                 "$/scan/\xC2\x85",
                                 "$/SCAN/a.jpg",
                                 "$/scan/%2e%2e/../../secret/s.txt"}) {
            reads(path, no);
        }
        row("NUL", line("Base64Encode($/scan/a.jpg") + QChar(0) + line("/../../x)"), no);
        row("half a character", line("Base64Encode($/scan/") + QChar(0xD800) + line(")"), no);
        row("too long", line("Base64Encode($/scan/") + QString(5000, QLatin1Char('x')) + line(")"),
            no);
        reads("$/home/pictures/p.jpg", line("$/home/pictures/p.jpg"));

        row("write", "Base64Decode(QQ==,$/scan/new.jpg)", "=");
        row("write beside a link", "Base64Decode(QQ==,$/scan/indir/n)",
            "Base64Decode(QQ==,$/scan/sub/n)");
        row("write through a link", "Base64Decode(QQ==,$/scan/out)", no);
        row("write through a dangling link", "Base64Decode(QQ==,$/scan/dangling)", no);
        row("write where only reading is", "Base64Decode(QQ==,$/home/pictures/n)", no);
        row("write a program", "Base64Decode(QQ==,$/scan/run.sh)", "=");
        row("write a denied one", "Base64Decode(QQ==,$/scan/run.Desktop)", no);
        row("write the launcher", "Base64Decode(QQ==,$/prog/run-webbrowser.sh)", no);
        row("whole text", "bDeleteFile($/scan/with,comma.jpg)", "=");
        row("delete a link itself", "bDeleteFile($/scan/out)", "=");
        row("delete a folder's end", "bDeleteFile($/scan/sub/..)", no);
        row("delete elsewhere", "bDeleteFile($/home/pictures/p.jpg)", no);
        row("first field only", "bDeleteFileForever($/scan/indir/b.jpg,/etc/passwd)",
            "bDeleteFileForever($/scan/sub/b.jpg,/etc/passwd)");
        row("copy", "bCopyFile($/scan/in,$/scan/c.jpg)", "bCopyFile($/scan/a.jpg,$/scan/c.jpg)");
        row("copy into", "bCopyFile($/secret/s.txt,$/scan/c.jpg)", no);
        row("copy out", "bCopyFile($/scan/a.jpg,$/home/pictures/c.jpg)", no);
        row("copy with a comma inside", "bCopyFile($/scan/comma,$/scan/c.jpg)", no);
        row("move what can't be deleted", "bMoveFile($/home/pictures/p.jpg,$/scan/c.jpg)", no);
        row("move a link out of sight", "bMoveFile($/scan/out,$/scan/c.jpg)", no);
        row("rename", "bReNameFile($/scan/indir/b.jpg,c.jpg)",
            "bReNameFile($/scan/sub/b.jpg,$/scan/sub/c.jpg)");
        row("rename to a denied one", "bReNameFile($/scan/a.jpg,c.desktop)", no);
        row("rename upwards", "bReNameFile($/scan/a.jpg,../c.jpg)", no);
        row("too few", "bCopyFile($/scan/a.jpg)", "=");
        row("nothing", "bCopyFile(,)", "=");
        row("list", "sGetAllFormatFiles($/scanlink,*.jpg)", "sGetAllFormatFiles($/scan,*.jpg)");
        row("list upwards", "sGetAllFormatFiles($/scan,../secret/*)", no);
        row("list elsewhere", "sGetAllFormatFiles($/secret,)", no);
        row("make", "bCreateDir($/scan/x/y)", "=");
        row("make a folder of the policy", "bCreateDir($/later)", "=");
        row("make in it", "bCreateDir($/later/x)", "=");
        row("make elsewhere", "bCreateDir($/x)", no);
        row("capture", "bSaveJPG($/scanlink,s1)", "bSaveJPG($/scan,s1)");
        row("capture, in the name", "bSaveJPG($/scan,sub/s1)", "bSaveJPG($/scan/sub,s1)");
        row("capture, name upwards", "bSaveJPG($/scan,../secret/s1)", no);
        row("capture over a link", "bSaveJPG($/scan,shot)", no);
        row("capture elsewhere", "bSavePDFStart($/secret,s1)", no);
        row("capture, no folder", "bSaveJPG(,etc/x)", no);
        row("capture, no name", "bSaveJPG($/secret,)", no);
        row("two captures", "bSaveGrayAndTIF($/scan,a,$/secret,b)", no);
        row("scan", "iAutoScan(1,$/scanlink,p)", "iAutoScan(1,$/scan,p)");
        row("scan, prefix upwards", "iTimerScan(1,$/scan,../secret/p,3)", no);
        row("scan, prefix elsewhere", "bBookScanner($/secret,p,jpg)", no);
        row("scan ends", "bBookScanner(,)", "=");
        row("record", "bStartRec($/scan/a,b.mp4)", "=");
        row("record elsewhere", "bStartRecMp3($/secret/a.mp4)", no);
        row("split", "SplitPic($/scan/a.jpg,$/secret)", no);
        row("face from the camera", "bFaceFeatureGet(0,/etc/passwd,)", "=");
        row("face from a file", "bFaceFeatureGet(1,/etc/passwd,)", no);
        row("second picture", "lImageMatch($/scan/a.jpg,$/secret/s.txt)", no);
        row("print", "bPrintImage(1,$/secret/s.txt,0)", no);
        row("sign", "DoGWQ_StartSign($/scan/in,$/scan/r.xml,1.1.1.1,1,9)",
            "DoGWQ_StartSign($/scan/a.jpg,$/scan/r.xml,1.1.1.1,1,9)");
        row("sign, record elsewhere", "DoGWQ_StartSign($/scan/in,$/secret/r.xml,1.1.1.1,1,9)", no);
        row("sign beside what is only read", "DoGWQ_StartSignEx($/home/pictures/p.jpg,,1,1,9)", no);
        row("serial", "bOpenIDCardSerialPort(/dev/ttyS77)", "=");
        row("no serial", "bOpenIDCardSerialPort(/dev/null)", no);
        row("name of a port", "bOpenIDCardReader(USB1)", "=");
        row("last character", "bDeleteFile($/scan/sub/../a.jpgX", "bDeleteFile($/scan/a.jpgX");

        row("upload", "sUpLoadImage(https://ecm.bank.example/x,$/scan/in,,,0)",
            "sUpLoadImage(https://ecm.bank.example/x,$/scan/a.jpg,,,0)");
        row("upload, in parts", "sUpLoadImageEx2(https://ecm.bank.example,up/x,443,$/scan/a.jpg)",
            "=");
        row("upload a secret", "sUpLoadImageEx2(https://ecm.bank.example,up,0,$/secret/s.txt)", no);
        row("upload a large one", "bUpLoadImage(https://ecm.bank.example,up,0,$/scan/large)", no);
        row("upload and delete",
            "sUpLoadImageEx6(https://ecm.bank.example,$/home/pictures/p.jpg,,,1)", no);
        for (const char *address :
             {"http://ecm.bank.example", "ecm.bank.example", "https://evil.example",
              "https://ecm.bank.example.evil.example", "https://ecm.bank.example@evil.example/",
              "https://evil.example#@ecm.bank.example",
              "https://evil.example?https://ecm.bank.example",
              "https://evil.example\\@ecm.bank.example", "https://ecm.bank.example:444",
              "file:///etc", " https://ecm.bank.example",
              "https://ecm.bank.example%00.evil.example"}) {
            row(line("upload to ") + line(address),
                line("sUpLoadImage(%1,$/scan/a.jpg)").arg(line(address)), no);
        }
        row("upload to another port", "bUpLoadImage(https://ecm.bank.example,up,8443,$/scan/a.jpg)",
            no);
        row("upload, no host", "bUpLoadImage(,//evil.example/x,0,$/scan/a.jpg)", no);
        row("upload, page is a host",
            "bUpLoadImage(https://ecm.bank.example,@evil/,0,$/scan/a.jpg)", no);

        row("page", "OpenURL(https://app.bank.example/a?b=c,d#e)", "=");
        row("own page", "OpenURL($/prog/webSite/../webSite/pay.html)",
            "OpenURL($/prog/webSite/pay.html)");
        row("own page as an address", "OpenURL(file://$/prog/webSite/pay.html)",
            "OpenURL($/prog/webSite/pay.html)");
        row("no page", "OpenURL($/prog/server.ini)", no);
        row("a file's page", "OpenURL(file://$/scan/a.jpg)", no);
        for (const char *address :
             {"http://app.bank.example", "https://bank.example", "https://evil.example/",
              "https://app.bank.example@evil.example", "javascript:alert(1)", "data:text/html,x",
              "https://app.bank.example\\.evil.example", "x", "chrome://settings",
              "https:app.bank.example"}) {
            row(line("show ") + line(address), line("OpenURL(%1)").arg(line(address)), no);
        }
        row("counter page", "GWQ_CallNumber(number=1)", "=");
    }

    void paths()
    {
        QFETCH(QString, text);
        QFETCH(QString, carriedOut);
        writeFile(at("scan/large"), QByteArray((1 << 20) + 1, 'x'));
        const auto policy = policyOf(
            line("[origin] allow=* [grant.a] origin=*|allow=all [files] "
                 "read=%1/scan, ~/pictures|write=%1/scanlink, %1/later|delete=%1/scan|"
                 "deny_extensions=.py, desktop [upload] hosts=https://ecm.bank.example|max_mib=1 "
                 "[pages] addresses=own, https://*.bank.example")
                .arg(m_root),
            m_never);
        const Doorkeeper doorkeeper(policy, at("prog/webSite"));
        const QString message = text.replace(QLatin1Char('$'), m_root);
        const QString expected = carriedOut == QLatin1String("=")
            ? message
            : QString(carriedOut).replace(QLatin1Char('$'), m_root);
        for (const bool hasOpenat2 : {true, false}) {
            setOpenat2Used(hasOpenat2);
            Visitor visitor({}, {}, std::make_shared<VisitorCounts>());
            const auto decision = doorkeeper.atText(visitor, message);
            if (carriedOut.isNull()) {
                QVERIFY2(decision.refusal, qPrintable(decision.message));
            } else {
                QVERIFY2(!decision.refusal,
                         decision.refusal ? qPrintable(decision.refusal->reason) : "");
                QCOMPARE(decision.message, expected);
            }
        }
        setOpenat2Used(true);
    }

    void ownPagesCanBeLeftOut()
    {
        const auto policy =
            policyOf(line("[grant.a] origin=*|allow=all [pages] addresses=http://a"));
        const Doorkeeper doorkeeper(policy, at("prog/webSite"));
        for (const QString &text : {line("GWQ_CallNumber(1)"), line("DoGWQ_StartInfo()"),
                                    line("OpenURL(%1)").arg(at("prog/webSite/pay.html"))}) {
            Visitor visitor({}, {}, std::make_shared<VisitorCounts>());
            QCOMPARE(doorkeeper.atText(visitor, text).refusal->key, line("pages.addresses"));
        }
    }

    void theRootIsAFolder()
    {
        const Doorkeeper doorkeeper(policyOf(line("[grant.a] origin=*|allow=all [files] write=/")),
                                    QString());
        for (const char *text : {"bSaveJPG(/,s1)", "iAutoScan(1,/,p)", "bSaveJPG(/srv,s1)"}) {
            Visitor visitor({}, {}, std::make_shared<VisitorCounts>());
            const auto decision = doorkeeper.atText(visitor, line(text));
            QVERIFY2(!decision.refusal, text);
            QCOMPARE(decision.message, line(text));
        }
    }

    void aLinkThatIsSwappedNeverWins()
    {
        PathRules rules;
        rules.setFolders(PathRules::Right::Read, {at("scan")});
        QCOMPARE(symlink("sub", qPrintable(at("scan/swap"))), 0);
        std::atomic<bool> isOver{false};
        std::thread swapper([&] {
            const QByteArray link = QFile::encodeName(at("scan/swap"));
            const QByteArray next = QFile::encodeName(at("scan/next"));
            for (int i = 0; !isOver; ++i) {
                (void)symlink(i % 2 == 0 ? "sub" : "../secret", next.constData());
                (void)rename(next.constData(), link.constData());
            }
        });
        int allowed = 0;
        int refused = 0;
        QByteArray wrong;
        for (int i = 0; i < 200000 && (allowed < 500 || refused < 500); ++i) {
            setOpenat2Used(i % 2 == 0);
            const auto answer = rules.decide(at("scan/swap/b.jpg"), PathRules::Right::Read);
            ++(answer.isAllowed ? allowed : refused);
            if (answer.isAllowed && answer.path != QFile::encodeName(at("scan/sub/b.jpg"))) {
                wrong = answer.path;
            }
        }
        isOver = true;
        swapper.join();
        setOpenat2Used(true);
        QCOMPARE(wrong, QByteArray());
        QVERIFY(allowed >= 500 && refused >= 500);
    }

    void theDeviceProcessIsKeptToTheFolders()
    {
        // Not in /tmp, which every device library may use.
        const QTemporaryDir folder(QCoreApplication::applicationDirPath()
                                   + line("/../landlock-XXXXXX"));
        const auto in = [&](const char *name) {
            return QFileInfo(folder.path()).canonicalFilePath() + line(name);
        };
        writeFile(in("/scan/a"));
        writeFile(in("/write/a"));
        writeFile(in("/secret/a"));
        symlink(qPrintable(in("/secret/a")), qPrintable(in("/scan/link")));
        const pid_t child = fork();
        if (child == 0) {
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
            deviceprocess::restrictFolders(
                QFile::encodeName(line("r %1\nw %2\n").arg(in("/scan"), in("/write"))));
            const auto opens = [&](const char *name, int flags) {
                return open(qPrintable(in(name)), flags, 0600) >= 0;
            };
            const bool isRight = opens("/scan/a", O_RDONLY) && !opens("/scan/a", O_RDWR)
                && !opens("/scan/new", O_WRONLY | O_CREAT) && !opens("/scan/link", O_RDONLY)
                && !opens("/secret/a", O_RDONLY) && opens("/write/new", O_WRONLY | O_CREAT)
                && unlink(qPrintable(in("/write/a"))) == 0 && unlink(qPrintable(in("/scan/a"))) != 0
                && access("/etc/hostname", R_OK) == 0;
            _exit(isRight ? 0 : 1);
        }
        int status = -1;
        QCOMPARE(waitpid(child, &status, 0), child);
        if (syscall(444, nullptr, 0, 1) < 1) {
            QSKIP("this kernel has no Landlock");
        }
        QCOMPARE(status, 0);
    }

    void grants_data()
    {
        const Rows<QString, QString, QString> row("origin", "text", "rule");
        const QString counter = line("https://counter.bank.example");
        row("a family", counter, "bStartPlay()", "");
        row("another of it", counter, "vSetRotate(90)", "");
        row("a command", counter, "sReadIDCardSnr()", "");
        row("not the rest of its family", counter, "ReadCard()", "grant.counter.allow");
        row("denied command", counter, "bStopPlay()", "grant.counter.deny");
        row("relay denied", counter, "#x", "grant.counter.deny");
        row("page data", counter, "@", "");
        row("unknown", counter, "bstartplay()", "grant.counter.allow");
        row("empty", counter, "", "grant.counter.allow");
        row("the first grant counts", counter, "getVersion()", "grant.counter.allow");
        row("second origin of a grant", "file", "bStartPlay()", "");
        row("the rest", "https://other.example", "getVersion()", "");
        row("the rest, no more", "https://other.example", "bStartPlay()", "grant.rest.allow");
        row("the rest, page data", "https://other.example", "@x", "grant.rest.allow");
        row("no grant", "none", "getVersion()", "no grant is for this origin");
        row("all but one", "https://all.example", "bDeleteFile()", "grant.all.deny");
        row("all: relay", "https://all.example", "#x", "");
    }

    void grants()
    {
        QFETCH(QString, origin);
        QFETCH(QString, text);
        QFETCH(QString, rule);
        const auto policy = policyOf(
            line("[grant.counter] deny=bStopPlay, relay|origin=https://counter.bank.example, file|"
                 "allow=camera, sReadIDCardSnr, pagedata, relay [grant.all] "
                 "origin=https://all.example|allow=all|deny=file.write [grant.rest] "
                 "origin=https://*.example|allow=status"));
        const Origin from = origin == QLatin1String("none") ? Origin()
            : origin == QLatin1String("file")               ? *originFrom(line("null"))
                                                            : *originFrom(origin);
        const auto counts = std::make_shared<VisitorCounts>();
        const auto refusal = Doorkeeper(policy, {})
                                 .atText(*std::make_unique<Visitor>(from, QString(), counts), text)
                                 .refusal;
        QVERIFY(counts->all == 0 && counts->ofOrigin.isEmpty()); // of a page that is gone
        QCOMPARE(refusal ? (refusal->key.isEmpty() ? refusal->reason : refusal->key)
                         : QString::fromLatin1(""),
                 rule);
        QVERIFY(!refusal || refusal->key.isEmpty() || policy->lineOf(refusal->key) > 3);
    }

    void theRateIsLimited()
    {
        ManualClock clock;
        base::Clock::setShared(&clock);
        const auto policy =
            policyOf(line("[limits] commands_per_second=2 [grant.a] origin=*|allow=status"));
        Visitor visitor({}, {}, std::make_shared<VisitorCounts>());
        const Doorkeeper doorkeeper(policy, {});
        const auto carriedOut = [&] {
            int count = 0;
            while (!doorkeeper.atText(visitor, line("version()")).refusal) {
                ++count;
            }
            return count;
        };
        clock.advance(std::chrono::hours(1));
        QCOMPARE(carriedOut(), 8);
        clock.advance(std::chrono::milliseconds(1500));
        QCOMPARE(carriedOut(), 3);
        clock.advance(std::chrono::hours(1));
        QCOMPARE(carriedOut(), 8);
        base::Clock::setShared(nullptr);
    }

    void faultyFiles_data()
    {
        const Rows<QString, int> row("sections", "line"); // after "[policy]", "version=1"
        row("unknown section", "[orgin] allow=*", 3);
        row("unknown key", "[origin] alow=*", 4);
        row("a key of another section", "[origin] read=/tmp", 4);
        row("no key", "[origin] allow", 4);
        row("no section", "x=y", 3);
        row("key twice", "[origin] allow=*|allow=file", 5);
        row("section twice", "[origin] allow=* [origin] allow=file", 5);
        row("open section", "[origin", 3);
        row("mode", "mode=on", 3);
        row("boolean", "[token] required=yes", 4);
        row("number", "[limits] clients=many", 4);
        row("no number", "[limits] clients=0", 4);
        row("too large", "[limits] message_kib=1000000", 4);
        row("no origin", "[origin] allow=counter.bank.example", 4);
        row("a path", "[origin] allow=https://a.example/", 4);
        row("a star inside", "[origin] allow=https://a.*.example", 4);
        row("empty item", "[origin] allow=file,,none", 4);
        row("unknown command", "[grant.a] origin=*|allow=bDeleteFiles", 5);
        row("unknown denied command", "[grant.a] origin=*|allow=all|deny=xyz", 6);
        row("grant without origin", "[grant.a] allow=all", 3);
        row("grant without name", "[grant.] origin=*", 3);
        row("relative folder", "[files] read=scan", 4);
        row("a folder that is never opened", "[files] write=/proc/self", 4);
        row("the home's settings", "[files] read=~/.config", 4);
        row("upload to anything", "[upload] hosts=*", 4);
        row("host", "[host] allow=a b", 4);
        row("address", "[listen] addresses=localhost", 4);
        row("audit elsewhere", "[audit] file=../x", 4);
        row("token without a file", "[token] required=true", 3);
        row("no token there", "[token] required=true|file=/nowhere", 5);
        row("personal", "[log] personal=no", 4);
        row("stop", "[preview] stop_on_leave=all", 4);
        row("old version", "[policy] version=2", 3);
        row("half a character", QString(1, QChar(0xDC00)), 3);
    }

    void faultyFiles()
    {
        QFETCH(QString, sections);
        QFETCH(int, line);
        PolicyError error;
        QVERIFY(!parsePolicy(policyText(sections), QStringLiteral("f"), m_never, &error));
        QCOMPARE(error.line, line);
        QVERIFY(!error.reason.isEmpty());
    }

    void theExampleIsAPolicy()
    {
        PolicyError error;
        const auto policy = parsePolicy(contentOf(line(SOURCE_DIR "/docs/examples/access.ini")),
                                        line("access.ini"), m_never, &error);
        QVERIFY2(policy, qPrintable(error.text()));
    }

    void commentsAndBlanks()
    {
        const auto policy = policyOf(
            line("# a;b|; mode=off|  mode = report ; off|[grant.a] origin = * ;|allow=status;x"
                 "")
                .replace(line(";x"), line("\t; x")));
        QCOMPARE(policy->mode, Policy::Mode::Report);
        QCOMPARE(policy->grants.size(), std::size_t(1));
    }

    void rights()
    {
        const QString system = at("etc/access.ini");
        const QString own = at("prog/access.ini");
        PolicyPlaces places{system, getuid(), own, {}};
        QVERIFY(!findPolicy(places).policy && !findPolicy(places).error);
        writeFile(own, policyText(line("mode=report")));
        QCOMPARE(findPolicy(places).policy->mode, Policy::Mode::Report);
        writeFile(system, policyText(QString()));
        QCOMPARE(findPolicy(places).policy->file, system); // goes first
        const auto problem = [&] {
            return findPolicy(places).error ? findPolicy(places).error->text() : QString();
        };
        places.systemOwner = getuid() + 1;
        if (getuid() != 0) {
            QVERIFY(problem().contains(line("belongs to")));
        }
        places.systemOwner = getuid();
        for (const mode_t mode : {0664U, 0646U}) {
            chmod(qPrintable(system), mode);
            QVERIFY(problem().contains(line("the file is writable")));
        }
        chmod(qPrintable(system), 0644);
        chmod(qPrintable(at("etc")), 0777);
        QVERIFY(problem().contains(line("its folder is writable")));
        chmod(qPrintable(at("etc")), 0755);
        QVERIFY(problem().isEmpty());
        QFile::remove(system);
        QCOMPARE(symlink(qPrintable(own), qPrintable(system)), 0);
        QVERIFY(problem().contains(line("is a link")));
        QFile::remove(system);
        base::setOwnUser(getuid() + 1);
        QCOMPARE(problem().contains(line("belongs to")), getuid() != 0);
        base::setOwnUser(getuid());
        QFile::remove(own);
    }

    void theServersFoldersStayClosed()
    {
        PolicyPlaces places = PolicyPlaces::of(at("prog"), at("data"));
        QCOMPARE(places.system, line("/etc/rvowebsocketserver/access.ini"));
        QCOMPARE(places.own, at("data/access.ini"));
        places.system = at("etc/access.ini");
        places.systemOwner = getuid();
        writeFile(places.system, policyText(line("[files] read = %1").arg(m_folder.path())));
        const PathRules rules = findPolicy(places).policy->paths;
        for (const char *name : {"prog/a", "data/a", "data/log/a", "etc/a", "scan/a"}) {
            writeFile(at(name));
            QCOMPARE(rules.decide(at(name), PathRules::Right::Read).isAllowed,
                     at(name).contains(line("scan")));
        }
        QFile::remove(places.system);
    }

    void onlyItsOwnFilesAreWatched()
    {
        writeFile(at("watch/a"));
        PolicyWatch one;
        PolicyWatch other;
        one.watch({at("watch/a")});
        other.watch({at("watch/b")});
        const QSignalSpy changesOfOne(&one, &PolicyWatch::changed);
        const QSignalSpy changesOfOther(&other, &PolicyWatch::changed);
        writeFile(at("watch/b"));
        QTRY_COMPARE(changesOfOther.size(), 1);
        QCOMPARE(changesOfOne.size(), 0);
        writeFile(at("watch/a"));
        QTRY_COMPARE(changesOfOne.size(), 1);
        QCOMPARE(changesOfOther.size(), 1);
    }

    void theAuditIsAChain()
    {
        const QString path = at("audit.log");
        const auto write = [&](int lines, bool isChained = true) {
            AuditLog audit;
            audit.open({path, 2200, 3, isChained});
            for (int i = 0; i < lines; ++i) {
                audit.write(AuditEvent("refused").with("what", line("\"Öffnen\\\n")));
            }
        };
        QProcess verify;
        const auto verdict = [&] {
            verify.start(line(SOURCE_DIR "/scripts/verify-audit"), {path});
            return verify.waitForFinished() ? verify.exitCode() : -1;
        };
        write(20);
        QCOMPARE(verdict(), 0);
        QCOMPARE(QJsonDocument::fromJson(contentOf(path).split('\n')[0])[line("what")].toString(),
                 line("\"Öffnen\\\n"));
        QVERIFY(QFile::exists(path + line(".1")));
        QCOMPARE(QFileInfo(path).permissions() & 0x0077, QFile::Permissions());
        write(30); // goes on, and drops the oldest
        QCOMPARE(verdict(), 0);
        QVERIFY(QFile::exists(path + line(".3")) && !QFile::exists(path + line(".4")));
        const QByteArray before = contentOf(path);
        writeFile(path, before + "{\"event\":\"to"); // a crash
        write(1);
        QCOMPARE(verdict(), 0);
        const QByteArray good = contentOf(path);
        writeFile(path,
                  QByteArray(good).replace("\"n\":50", "\"n\":49")); // the torn line's neighbor
        QCOMPARE(verdict(), 1);
        writeFile(path, good);
        const QByteArray old = contentOf(path + line(".1"));
        writeFile(path + line(".1"), QByteArray(old).replace(old.indexOf("refused"), 7, "allowed"));
        QCOMPARE(verdict(), 1);
        writeFile(path + line(".1"), old.mid(old.indexOf('\n') + 1)); // a line is gone
        QCOMPARE(verdict(), 1);
        QFile::remove(path + line(".1"));
        QFile::remove(path + line(".2"));
        QFile::remove(path + line(".3"));
        writeFile(path, "");
        write(2, false);
        QVERIFY(!contentOf(path).contains("prev"));
        QCOMPARE(verdict(), 1); // there is no chain
        AuditLog none;
        none.open({});
        none.write(AuditEvent("refused"));
    }

    void theLogHides_data()
    {
        const Rows<bool, int, QString, QString> row("hides", "most", "text", "logged");
        row("no rules", false, 0, "ReadCard(,secret)", "ReadCard(,secret)");
        row("card", true, 0, "ReadCard(,secret)", "ReadCard(9 characters, not logged)");
        row("base64", true, 0, "Base64Decode(c2VjcmV0,/tmp/x)",
            "Base64Decode(17 characters, not logged)");
        row("upload", true, 0, "sUpLoadImage(http://a,b)",
            "sUpLoadImage(12 characters, not logged)");
        row("page data", true, 0, "GWQ_TellerInfo(Li)", "GWQ_TellerInfo(4 characters, not logged)");
        row("relay", true, 0, "#Li", "#(2 characters, not logged)");
        row("unknown", true, 0, "readCard(Li)", "readCard(4 characters, not logged)");
        row("no arguments", true, 0, "ReadCard", "ReadCard");
        row("nothing personal", true, 0, "bSaveJPG(/tmp,a)", "bSaveJPG(/tmp,a)");
        row("long", true, 16, "bSaveJPG(/tmp/scan,abc)", "bSaveJPG(/tmp/sc... (23 characters)");
        row("long, shown", false, 16, "ReadCard(,secret12)", "ReadCard(,secret... (19 characters)");
    }

    void theLogHides()
    {
        QFETCH(bool, hides);
        QFETCH(int, most);
        QFETCH(QString, text);
        QFETCH(QString, logged);
        setLoggedTextRules({hides, most});
        QCOMPARE(loggedText(text), logged);
        setLoggedTextRules({});
    }

    void theLogFolderIsLimited()
    {
        const QString folder = at("log");
        const QString today = QDate::currentDate().toString(line("yyyy-MM-dd"));
        for (const QString &name :
             {line("vx_log_2020-01-01.txt"), line("vx_log_2020-01-02.txt"),
              line("vx_log_") + today + line("-000000.txt"), line("audit.log")}) {
            writeFile(folder + QLatin1Char('/') + name, QByteArray(1000, 'x'));
        }
        const QDateTime old = QDateTime::currentDateTime().addDays(-9);
        QFile oldest(folder + line("/vx_log_2020-01-01.txt"));
        QVERIFY(oldest.open(QIODevice::ReadWrite));
        QVERIFY(oldest.setFileTime(old, QFileDevice::FileModificationTime));
        oldest.close();
        QLog::instance()->setLogPath(folder);
        QLog::instance()->setMaxFolderSize(3500);
        QCOMPARE(QDir(folder).entryList(QDir::Files).size(), 3);
        QVERIFY(!oldest.exists());
        QLog::instance()->setMaxFolderSize(1);
        QCOMPARE(QDir(folder).entryList(QDir::Files).size(), 2); // today's, and what is no log
        QLog::instance()->setMaxFolderSize(0);
    }

private:
    QString at(const char *path) const { return m_root + QLatin1Char('/') + line(path); }

    const QTemporaryDir m_folder;
    QString m_root;
    NeverFolders m_never;
};

QTEST_GUILESS_MAIN(TestAccess)
#include "tst_access.moc"
