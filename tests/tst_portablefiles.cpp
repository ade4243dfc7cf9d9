// SPDX-License-Identifier: MIT
// The portable library's file functions and its list of USB devices.
#include "devicelib/doccamera.h"
#include "portable/usbdevices.h"
#include "tests/fakesource.h"

#include <QtTest>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace {

QString line(const char *text)
{
    return QString::fromUtf8(text);
}

void writeFile(const QString &path, const QByteArray &content = "content")
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

/** A text for the device interface. */
struct Utf8
{
    explicit Utf8(const QString &text)
        : bytes(text.toUtf8())
    {
    }
    operator const char *() const { return bytes.constData(); }
    const QByteArray bytes;
};

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/** Everything below a folder, links as "name -> target". */
QStringList tree(const QString &folder)
{
    QStringList entries;
    QDirIterator each(folder, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (each.hasNext()) {
        const QFileInfo entry(each.next());
        const QString name = entry.filePath().mid(folder.size() + 1);
        entries << (entry.isSymLink() ? name + line(" -> ") + entry.symLinkTarget() : name);
    }
    entries.sort();
    return entries;
}

using OnePath = bool (*)(const char *);
using TwoPaths = bool (*)(const char *, const char *);

} // namespace

Q_DECLARE_METATYPE(OnePath)
Q_DECLARE_METATYPE(TwoPaths)

class TestPortableFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<PortableLog>();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        qputenv("XDG_DATA_HOME", QFile::encodeName(at("data/home")));
        qputenv("PATH", m_path);
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        QVERIFY(QDir::setCurrent(m_folder->path()));
    }

    void cleanup()
    {
        QVERIFY(QDir::setCurrent(QDir::tempPath()));
        m_log.reset();
        m_folder.reset();
    }

    void deletedFileLiesInTheTrash()
    {
        writeFile(at("身份证 正面.jpg"), "front");
        QVERIFY(bDeleteFile(utf8("身份证 正面.jpg")));
        QVERIFY(!QFile::exists(at("身份证 正面.jpg")));
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
        QCOMPARE(readFile(at("data/home/Trash/files/身份证 正面.jpg")), QByteArray("front"));
#endif
        QVERIFY(!QFile::exists(at("files"))); // where Qt puts it when there is no data folder
    }

    void withoutATrashTheFileIsDeletedAllTheSame()
    {
        writeFile(at("data")); // no folder can be made below it
        writeFile(at("a.jpg"));
        QVERIFY(bDeleteFile(utf8("a.jpg")));
        QCOMPARE(tree(m_folder->path()), QStringList{line("data")});
    }

    void deletedForEverIsInNoTrash()
    {
        writeFile(at("a.jpg"));
        QVERIFY(bDeleteFileForever(utf8("a.jpg")));
        QCOMPARE(tree(m_folder->path()), QStringList());
    }

    void deletingALinkLeavesWhatItLeadsTo_data()
    {
        QTest::addColumn<OnePath>("remove");
        QTest::addColumn<QString>("target");
        for (const char *target : {"file", "folder", "nothing"}) {
            QTest::addRow("trash, link to %s", target) << OnePath(bDeleteFile) << line(target);
            QTest::addRow("for ever, link to %s", target)
                << OnePath(bDeleteFileForever) << line(target);
        }
    }

    void deletingALinkLeavesWhatItLeadsTo()
    {
        QFETCH(OnePath, remove);
        QFETCH(QString, target);
        writeFile(at("file"));
        writeFile(at("folder/inside"));
        const QStringList before = tree(m_folder->path());
        QVERIFY(QFile::link(at("") + target, at("link")));
        QVERIFY(remove(utf8("link")));
        QVERIFY(!QFileInfo(at("link")).isSymLink());
        QVERIFY(QDir(at("data")).removeRecursively() || !QFile::exists(at("data")));
        QCOMPARE(tree(m_folder->path()), before);
        QCOMPARE(readFile(at("file")), QByteArray("content"));
    }

    void copyMoveRename_data()
    {
        QTest::addColumn<TwoPaths>("call");
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<QString>("result"); // the file that must be there; empty: refused
        QTest::addColumn<bool>("sourceStays");
        const TwoPaths copy = bCopyFile;
        const TwoPaths move = bMoveFile;
        const TwoPaths rename = bReNameFile;
        // clang-format off
        QTest::newRow("copy")                 << copy   << line("a") << line("b c/副本") << line("b c/副本") << true;
        QTest::newRow("copy of a link")       << copy   << line("link") << line("x")     << line("x")       << true;
        QTest::newRow("copy over a file")     << copy   << line("a") << line("b c/old")  << line("")        << true;
        QTest::newRow("copy over a link")     << copy   << line("a") << line("dangling") << line("")        << true;
        QTest::newRow("copy over itself")     << copy   << line("a") << line("b c/../a") << line("")        << true;
        QTest::newRow("copy onto a folder")   << copy   << line("a") << line("b c")      << line("")        << true;
        QTest::newRow("copy of a folder")     << copy   << line("b c") << line("x")      << line("")        << true;
        QTest::newRow("copy into no folder")  << copy   << line("a") << line("no/x")     << line("")        << true;
        QTest::newRow("copy below a file")    << copy   << line("a") << line("a/x")      << line("")        << true;
        QTest::newRow("copy of a resource")   << copy   << line(":/qt-project.org/qmime/packages/freedesktop.org.xml")
                                                        << line("x")                     << line("")        << true;
        QTest::newRow("move")                 << move   << line("a") << line("b c/x")    << line("b c/x")   << false;
        QTest::newRow("move by ..")           << move   << line("b c/../a") << line("x") << line("x")       << false;
        QTest::newRow("move over a file")     << move   << line("a") << line("b c/old")  << line("")        << true;
        QTest::newRow("move over a link")     << move   << line("a") << line("dangling") << line("")        << true;
        QTest::newRow("move onto itself")     << move   << line("a") << line("a")        << line("")        << true;
        QTest::newRow("move of a folder")     << move   << line("b c") << line("x")      << line("")        << true;
        QTest::newRow("move of nothing")      << move   << line("no") << line("x")       << line("")        << true;
        QTest::newRow("rename")               << rename << line("a") << line("b c/x")    << line("b c/x")   << false;
        QTest::newRow("rename by bare name")  << rename << line("b c/old") << line("新")  << line("b c/新")   << false;
        QTest::newRow("rename over a file")   << rename << line("a") << line("b c/old")  << line("")        << true;
        QTest::newRow("rename to nothing")    << rename << line("a") << line("")         << line("")        << true;
        // clang-format on
    }

    void copyMoveRename()
    {
        QFETCH(TwoPaths, call);
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(QString, result);
        QFETCH(bool, sourceStays);
        writeFile(at("a"));
        writeFile(at("b c/old"));
        QVERIFY(QFile::link(at("a"), at("link")));
        QVERIFY(QFile::link(at("nothing"), at("dangling")));
        const QStringList before = tree(m_folder->path());
        QCOMPARE(call(Utf8(from), Utf8(to)), !result.isEmpty());
        QStringList after = before;
        if (!result.isEmpty()) {
            after << result;
            QCOMPARE(readFile(at("") + result), QByteArray("content"));
            QCOMPARE(PortableLog::takeLines(), QStringList());
        } else {
            QCOMPARE(PortableLog::takeLines().size(), 1);
        }
        if (!sourceStays) {
            after.removeOne(QDir::cleanPath(from));
        }
        after.sort();
        QCOMPARE(tree(m_folder->path()), after);
    }

    void movesAcrossFileSystems()
    {
        QTemporaryDir other(line("/dev/shm/tst_portablefiles-XXXXXX"));
        struct stat here
        {
        };
        struct stat there
        {
        };
        if (!other.isValid() || ::stat(Utf8(other.path()), &there) != 0
            || ::stat(Utf8(m_folder->path()), &here) != 0 || here.st_dev == there.st_dev) {
            QSKIP("no second file system to write to");
        }
        const QByteArray content(3'000'000, 'x');
        writeFile(at("a"), content);
        const QString target = other.path() + line("/扫描 1");
        QVERIFY(bMoveFile(utf8("a"), Utf8(target)));
        QVERIFY(!QFile::exists(at("a")));
        QCOMPARE(readFile(target), content);
        QVERIFY(bReNameFile(Utf8(target), utf8("back")));
        QCOMPARE(readFile(at("back")), content);
        QVERIFY(!QFile::exists(target));

        QVERIFY(QFile::link(at("back"), at("link")));
        QVERIFY(bMoveFile(utf8("link"), Utf8(target)));
        QCOMPARE(QFileInfo(target).symLinkTarget(), at("back"));
        QVERIFY(!QFileInfo(at("link")).isSymLink());
    }

    void existence()
    {
        writeFile(at("资料 夹/文件,1"));
        QVERIFY(QFile::link(at("资料 夹/文件,1"), at("link")));
        QVERIFY(bFileIsExist(utf8("资料 夹/文件,1")));
        QVERIFY(bFileIsExist(utf8("资料 夹/../资料 夹/文件,1")));
        QVERIFY(bFileIsExist(utf8("link")));
        QVERIFY(!bFileIsExist(utf8("资料 夹")));
        QVERIFY(!bFileIsExist(utf8("资料 夹/文件,1/")));
        QVERIFY(!bFileIsExist("/dev/null"));
        QVERIFY(bDirIsExist(utf8("资料 夹")));
        QVERIFY(bDirIsExist(utf8("资料 夹/")));
        QVERIFY(!bDirIsExist(utf8("资料 夹/文件,1")));
        QVERIFY(!bDirIsExist(":/")); // a resource folder of the program
        QCOMPARE(PortableLog::takeLines(), QStringList()); // "no" is an answer
    }

    void createsFoldersWithTheirParents()
    {
        QVERIFY(bCreateDir(utf8("扫描 件/2026/11/")));
        QVERIFY(QFileInfo(at("扫描 件/2026/11")).isDir());
        QVERIFY(bCreateDir(utf8("扫描 件/2026/11")));
        QVERIFY(bCreateDir(utf8("skipped/../made")));
        QCOMPARE(tree(m_folder->path()),
                 (QStringList{line("made"), line("扫描 件"), line("扫描 件/2026"),
                              line("扫描 件/2026/11")}));
        QCOMPARE(PortableLog::takeLines(), QStringList());
    }

    void badPathsTouchNothing_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("reason"); // how it is said of deleting
        const QString longName(300, QLatin1Char('x'));
        const QString deep = line("/abcdefghi").repeated(500); // 5,000 characters
        // clang-format off
        QTest::newRow("empty")           << QString()                   << line("the path is empty");
        QTest::newRow("below a file")    << line("file/below")            << line("there is no such file");
        QTest::newRow("long name")       << line("new/") + longName       << line("the path is too long");
        QTest::newRow("long path")       << line("new") + deep            << line("the path is too long");
        QTest::newRow("line break")      << line("file/a\nb")             << line("there is no such file");
        // clang-format on
    }

    void badPathsTouchNothing()
    {
        QFETCH(QString, path);
        QFETCH(QString, reason);
        writeFile(at("file"));
        const QStringList before = tree(m_folder->path());
        const Utf8 bad(path);
        const auto isRefused = [](bool done) {
            const QStringList lines = PortableLog::takeLines();
            return !done && lines.size() == 1 && lines.first().size() < 500
                && !lines.first().contains(QLatin1Char('\n'));
        };
        QVERIFY(!bDeleteFile(bad));
        const QStringList lines = PortableLog::takeLines();
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().startsWith(line("bDeleteFile: \"")), qPrintable(lines.first()));
        QVERIFY2(lines.first().endsWith(reason), qPrintable(lines.first()));
        QVERIFY(isRefused(bDeleteFileForever(bad)));
        QVERIFY(isRefused(bCopyFile(bad, utf8("x"))));
        QVERIFY(isRefused(bCopyFile(utf8("file"), bad)));
        QVERIFY(isRefused(bMoveFile(bad, utf8("x"))));
        QVERIFY(isRefused(bMoveFile(utf8("file"), bad)));
        QVERIFY(isRefused(bReNameFile(bad, utf8("x"))));
        QVERIFY(isRefused(bReNameFile(utf8("file"), bad)));
        QVERIFY(isRefused(bCreateDir(bad)));
        QVERIFY(isRefused(OpenFile(bad)));
        QVERIFY(isRefused(bDispPath(bad)));
        QVERIFY(!bFileIsExist(bad));
        QVERIFY(!bDirIsExist(bad));
        PortableLog::takeLines();
        QCOMPARE(sGetAllFormatFiles(bad, "*"), "");
        QCOMPARE(PortableLog::takeLines().size(), 1);
        QCOMPARE(tree(m_folder->path()), before);
    }

    void foldersAndDevicesAreNoFiles()
    {
        QVERIFY(QDir().mkpath(at("folder")));
        QVERIFY(QFile::link(at("folder"), at("link")));
        QCOMPARE(::mkfifo(utf8("pipe"), 0600), 0);
        for (const char *name : {"folder", "folder/", "link/", "pipe"}) {
            QVERIFY2(!bDeleteFile(utf8(name)), name);
            QVERIFY2(!bDeleteFileForever(utf8(name)), name);
            QVERIFY2(!bCopyFile(utf8(name), utf8("x")), name); // nor waits for the pipe
            QVERIFY2(!bMoveFile(utf8(name), utf8("x")), name);
            QCOMPARE(PortableLog::takeLines().size(), 4);
        }
        writeFile(at("file"));
        QVERIFY(!bCreateDir(utf8("file")));
        QCOMPARE(sGetAllFormatFiles(utf8("file"), "jpg"), "");
        QCOMPARE(PortableLog::takeLines().size(), 2);
        QCOMPARE(tree(m_folder->path()),
                 (QStringList{line("file"), line("folder"), line("link -> ") + at("folder"),
                              line("pipe")}));
    }

    void namesOfAFormat_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("names");
        // clang-format off
        QTest::newRow("an extension in any case") << line("jpg")         << line("B.JPG|a 1.jpg|图.jpg");
        QTest::newRow("with its dot")             << line(".PNG")        << line("c.png");
        QTest::newRow("a pattern")                << line("*.j*")        << line("B.JPG|a 1.jpg|d.jpeg|图.jpg");
        QTest::newRow("several")                  << line("png; *.jpeg;;") << line("c.png|d.jpeg");
        QTest::newRow("all")                      << line("")            << line("B.JPG|a 1.jpg|c.png|d.jpeg|plain|图.jpg");
        QTest::newRow("all the other way")        << line("*.*")         << line("B.JPG|a 1.jpg|c.png|d.jpeg|plain|图.jpg");
        QTest::newRow("none")                     << line("tif")         << line("");
        QTest::newRow("no way out of the folder") << line("../*")        << line("");
        // clang-format on
    }

    void namesOfAFormat()
    {
        QFETCH(QString, format);
        QFETCH(QString, names);
        for (const char *name : {"图.jpg", "c.png", "a 1.jpg", "d.jpeg", "plain", "B.JPG"}) {
            writeFile(at("扫描/") + line(name));
        }
        QVERIFY(QDir().mkpath(at("扫描/folder.jpg")));
        QCOMPARE(QString::fromUtf8(sGetAllFormatFiles(utf8("扫描"), Utf8(format))), names);
        QCOMPARE(PortableLog::takeLines(), QStringList());
    }

    void opensByTheDesktopsProgram()
    {
        writeFile(at("-a b.pdf"));
        installOpener();
        QVERIFY(IsExeExist());
        QVERIFY(!OpenFile("-a b.pdf")); // no display
        qputenv("DISPLAY", ":99");
        QVERIFY(OpenFile("-a b.pdf"));
        QTRY_COMPARE(readFile(at("opened")), utf8("-a b.pdf").bytes + "\n");
        QVERIFY(QDir().mkpath(at("http:/example.com")));
        QVERIFY(bDispPath("http://example.com")); // a folder of that name, not the page
        QTRY_VERIFY(readFile(at("opened")).endsWith(utf8("http:/example.com").bytes + "\n"));
        QCOMPARE(readFile(at("opened")).count('\n'), 2);
        QCOMPARE(PortableLog::takeLines().size(), 1);

        for (const char *path : {"https://example.com", "file:///etc/passwd", "absent"}) {
            QVERIFY2(!OpenFile(path), path);
            QVERIFY2(!bDispPath(path), path);
        }
        QVERIFY(!OpenFile(utf8("data")) && !bDispPath(utf8("-a b.pdf")));
    }

    void withoutTheDesktopsProgramNothingOpens()
    {
        writeFile(at("a.pdf"));
        qputenv("PATH", "/nowhere");
        qputenv("DISPLAY", ":99");
        QVERIFY(!IsExeExist());
        QVERIFY(!OpenFile(utf8("a.pdf")));
        QCOMPARE(PortableLog::takeLines(),
                 QStringList{line("OpenFile: \"%1\": there is no xdg-open (package xdg-utils)")
                                 .arg(at("a.pdf"))});
    }

    void twoDotsBehindALinkAreThoseOfItsTarget()
    {
        writeFile(at("a.jpg"));
        writeFile(at("far/a.jpg"));
        writeFile(at("far/b.pdf"));
        link(at("far/data"), at("link"));
        QVERIFY(QDir().mkpath(at("far/data")));
        QVERIFY(bDeleteFile(utf8("link/../a.jpg")));
        QVERIFY(QFile::exists(at("a.jpg")));
        QVERIFY(!QFile::exists(at("far/a.jpg")));
        QVERIFY(bCreateDir(utf8("link/../made/x")));
        QVERIFY(QFileInfo(at("far/made/x")).isDir());
        installOpener();
        qputenv("DISPLAY", ":99");
        QVERIFY(OpenFile(utf8("link/../b.pdf")));
        QTRY_COMPARE(readFile(at("opened")), utf8("far/b.pdf").bytes + "\n");
    }

    void usbDevicesAsSysfsHasThem()
    {
        const QString host = at("sys/devices/pci0000:00/usb1");
        makeUsbDevice(host, "1D6B", "0002", "xHCI Host Controller", "0000:00:14.0");
        makeUsbDevice(host + line("/1-2"), "2b19", "0200", "高拍仪 A|B\n", "SN 0042");
        makeUsbDevice(host + line("/1-10"), "046d", "c31c", "", "");
        makeUsbDevice(host + line("/1-11"), "zz", "../../", "broken", "");
        writeFile(host + line("/1-2/1-2:1.0/bInterfaceClass"), "0e\n");
        for (const char *name : {"1-2", "1-10", "1-11", "1-2/1-2:1.0", ""}) {
            const QString target = QDir::cleanPath(host + QLatin1Char('/') + line(name));
            link(target, at("sys/bus/usb/devices/") + QFileInfo(target).fileName());
        }
        QStringList labels;
        for (const portable::UsbDevice &device : portable::listUsbDevices(at("sys"))) {
            labels << device.label();
        }
        QCOMPARE(
            labels,
            (QStringList{line("usb#vid_046d&pid_c31c"), line("usb#vid_2b19&pid_0200 高拍仪 A/B"),
                         line("usb#vid_1d6b&pid_0002 xHCI Host Controller")}));

        // A camera's node belongs to an interface of the device; one of another bus to none.
        link(host + line("/1-2/1-2:1.0"), at("sys/class/video4linux/video0/device"));
        QVERIFY(QDir().mkpath(at("sys/devices/platform/vivid.0")));
        link(at("sys/devices/platform/vivid.0"), at("sys/class/video4linux/video1/device"));
        QCOMPARE(portable::usbDeviceOfVideoNode(line("/dev/video0"), at("sys")).serialNumber,
                 line("SN 0042"));
        for (const char *node : {"/dev/video1", "/dev/video2", "/dev/../../1-2", ""}) {
            QVERIFY2(portable::usbDeviceOfVideoNode(line(node), at("sys")).vendorId.isEmpty(),
                     node);
        }
        QVERIFY(portable::listUsbDevices(at("nowhere")).empty());
    }

    void statusTextsAreTheCallersAndNeverFail()
    {
        const auto take = [](char *text) {
            const QString result = QString::fromUtf8(text);
            std::free(text);
            return result;
        };
        // Whatever is plugged in here: both lists tell of the same devices.
        QString identifiers = take(sEnumUSBDevice());
        identifiers.remove(QRegularExpression(line(" [^|]*")));
        QCOMPARE(take(sGetDevicesId()), identifiers);
        const QString serial = take(sGetSerialNum());
        const QStringList lines =
            PortableLog::takeLines().filter(line("sGetSerialNum: camera 1 has no serial number"));
        QCOMPARE(lines.size(), serial.isEmpty() ? 1 : 0);
    }

private:
    QString at(const char *name) const
    {
        return m_folder->path() + QLatin1Char('/') + line(name);
    }
    Utf8 utf8(const char *name) const
    {
        return Utf8(at(name));
    }

    /** An xdg-open that writes down what it is given. */
    void installOpener()
    {
        writeFile(at("bin/xdg-open"),
                  "#!/bin/sh\necho \"$@\" >> '" + m_folder->path().toUtf8() + "/opened'\n");
        QVERIFY(QFile::setPermissions(at("bin/xdg-open"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        qputenv("PATH", m_folder->path().toUtf8() + "/bin:" + m_path);
    }

    static void link(const QString &target, const QString &path)
    {
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QVERIFY(QFile::link(target, path));
    }

    static void makeUsbDevice(const QString &folder, const QByteArray &vendor, const QByteArray &id,
                              const QByteArray &product, const QByteArray &serial)
    {
        writeFile(folder + line("/idVendor"), vendor + '\n');
        writeFile(folder + line("/idProduct"), id + '\n');
        if (!product.isEmpty()) {
            writeFile(folder + line("/product"), product + '\n');
        }
        if (!serial.isEmpty()) {
            writeFile(folder + line("/serial"), serial + '\n');
        }
    }

    const QByteArray m_path = qgetenv("PATH");
    std::unique_ptr<PortableLog> m_log;
    std::unique_ptr<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(TestPortableFiles)
#include "tst_portablefiles.moc"
