// SPDX-License-Identifier: MIT
// The portable library's file functions and its list of USB devices.
#include "devicelib/doccamera.h"
#include "portable/camera/usbdevices.h"
#include "tests/portabletest.h"

#include <QtTest>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace {

using OnePath = bool (*)(const char *);
using TwoPaths = bool (*)(const char *, const char *);

} // namespace

Q_DECLARE_METATYPE(OnePath)
Q_DECLARE_METATYPE(TwoPaths)

class TestPortableFiles : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        qputenv("HOME", QFile::encodeName(m_folder->path())); // Qt's trash must be on its disk
        qputenv("XDG_DATA_HOME", QFile::encodeName(path("data/home")));
        qputenv("PATH", m_path);
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        QVERIFY(QDir::setCurrent(m_folder->path()));
    }

    void cleanup()
    {
        QVERIFY(QDir::setCurrent(QDir::tempPath()));
        PortableTest::cleanup();
    }

    void deletedFileGoesToTheTrash()
    {
        writeFile(path("身份证 正面.jpg"), "front");
        QVERIFY(bDeleteFile(utf8("身份证 正面.jpg")));
        QVERIFY(!QFile::exists(path("身份证 正面.jpg")));
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
        QCOMPARE(contentOf(path("data/home/Trash/files/身份证 正面.jpg")), QByteArray("front"));
#endif
        QVERIFY(!QFile::exists(path("files"))); // where Qt puts it without a data folder
    }

    void withoutATrashTheFileIsDeletedForever()
    {
        writeFile(path("data")); // a file, so there can be no folder in it
        writeFile(path("a.jpg"));
        QVERIFY(bDeleteFile(utf8("a.jpg")));
        QCOMPARE(everythingIn(m_folder->path()), QStringList{line("data")});
    }

    void deletedForeverIsNotInTheTrash()
    {
        writeFile(path("a.jpg"));
        QVERIFY(bDeleteFileForever(utf8("a.jpg")));
        QCOMPARE(everythingIn(m_folder->path()), QStringList());
    }

    void deletingALinkKeepsItsTarget_data()
    {
        const Rows<OnePath, QString> row("remove", "target");
        for (const char *target : {"file", "folder", "nothing"}) {
            QTest::addRow("trash, link to %s", target) << OnePath(bDeleteFile) << line(target);
            QTest::addRow("forever, link to %s", target)
                << OnePath(bDeleteFileForever) << line(target);
        }
    }

    void deletingALinkKeepsItsTarget()
    {
        QFETCH(OnePath, remove);
        QFETCH(QString, target);
        writeFile(path("file"));
        writeFile(path("folder/inside"));
        const QStringList before = everythingIn(m_folder->path());
        QVERIFY(QFile::link(path(target), path("link")));
        QVERIFY(remove(utf8("link")));
        QVERIFY(!QFileInfo(path("link")).isSymLink());
        QVERIFY(QDir(path("data")).removeRecursively() || !QFile::exists(path("data")));
        QCOMPARE(everythingIn(m_folder->path()), before);
        QCOMPARE(contentOf(path("file")), QByteArray("content"));
    }

    void copyMoveRename_data()
    {
        // result: the file that must exist afterwards; empty: refused
        const Rows<TwoPaths, QString, QString, QString, bool> row("call", "from", "to", "result",
                                                                  "sourceStays");
        const TwoPaths copy = bCopyFile;
        const TwoPaths move = bMoveFile;
        const TwoPaths rename = bReNameFile;
        // clang-format off
        row("copy",                copy,   "a",                                "b c/副本", "b c/副本", true);
        row("copy of a link",      copy,   "link",                             "x",        "x",        true);
        row("copy over a file",    copy,   "a",                                "b c/old",  "",         true);
        row("copy over a link",    copy,   "a",                                "dangling", "",         true);
        row("copy over itself",    copy,   "a",                                "b c/../a", "",         true);
        row("copy onto a folder",  copy,   "a",                                "b c",      "",         true);
        row("copy of a folder",    copy,   "b c",                              "x",        "",         true);
        row("copy into no folder", copy,   "a",                                "no/x",     "",         true);
        row("copy below a file",   copy,   "a",                                "a/x",      "",         true);
        row("copy of a resource",  copy,   ":/qt-project.org/qmime/packages/freedesktop.org.xml", "x",        "",         true);
        row("move",                move,   "a",                                "b c/x",    "b c/x",    false);
        row("move by ..",          move,   "b c/../a",                         "x",        "x",        false);
        row("move over a file",    move,   "a",                                "b c/old",  "",         true);
        row("move over a link",    move,   "a",                                "dangling", "",         true);
        row("move onto itself",    move,   "a",                                "a",        "",         true);
        row("move of a folder",    move,   "b c",                              "x",        "",         true);
        row("move of nothing",     move,   "no",                               "x",        "",         true);
        row("rename",              rename, "a",                                "b c/x",    "b c/x",    false);
        row("rename by bare name", rename, "b c/old",                          "新",       "b c/新",   false);
        row("rename over a file",  rename, "a",                                "b c/old",  "",         true);
        row("rename to nothing",   rename, "a",                                "",         "",         true);
        // clang-format on
    }

    void copyMoveRename()
    {
        QFETCH(TwoPaths, call);
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(QString, result);
        QFETCH(bool, sourceStays);
        writeFile(path("a"));
        writeFile(path("b c/old"));
        QVERIFY(QFile::link(path("a"), path("link")));
        QVERIFY(QFile::link(path("nothing"), path("dangling")));
        const QStringList before = everythingIn(m_folder->path());
        QCOMPARE(call(Utf8(from), Utf8(to)), !result.isEmpty());
        QStringList after = before;
        if (!result.isEmpty()) {
            after << result;
            QCOMPARE(contentOf(path(result)), QByteArray("content"));
            QCOMPARE(PortableLog::takeLines(), QStringList());
        } else {
            QCOMPARE(PortableLog::takeLines().size(), 1);
        }
        if (!sourceStays) {
            after.removeOne(QDir::cleanPath(from));
        }
        after.sort();
        QCOMPARE(everythingIn(m_folder->path()), after);
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
        writeFile(path("a"), content);
        const QString target = other.path() + line("/扫描 1");
        QVERIFY(bMoveFile(utf8("a"), Utf8(target)));
        QVERIFY(!QFile::exists(path("a")));
        QCOMPARE(contentOf(target), content);
        QVERIFY(bReNameFile(Utf8(target), utf8("back")));
        QCOMPARE(contentOf(path("back")), content);
        QVERIFY(!QFile::exists(target));

        QVERIFY(QFile::link(path("back"), path("link")));
        QVERIFY(bMoveFile(utf8("link"), Utf8(target)));
        QCOMPARE(QFileInfo(target).symLinkTarget(), path("back"));
        QVERIFY(!QFileInfo(path("link")).isSymLink());
    }

    /// Copied until the disk is full, if nobody stops it.
    void filesWithoutEnd()
    {
        const QString endless = line("/proc/self/pagemap");
        QVERIFY(!bCopyFile(Utf8(endless), utf8("copy")));
        QVERIFY(!bMoveFile(Utf8(endless), utf8("copy")));
        QCOMPARE(PortableLog::takeLines().size(), 2);
        writeFile(path("sparse"), "x");
        QVERIFY(QFile::resize(path("sparse"), 1LL << 40));
        QVERIFY(!bCopyFile(utf8("sparse"), utf8("copy")));
        QVERIFY(PortableLog::takeLines().join(QString()).contains(line("the disk is nearly full")));
        QVERIFY(!QFile::exists(path("copy")));
    }

    void existence()
    {
        writeFile(path("资料 夹/文件,1"));
        QVERIFY(QFile::link(path("资料 夹/文件,1"), path("link")));
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
        QCOMPARE(PortableLog::takeLines(), QStringList()); // "no" isn't a failure
    }

    void createsFoldersWithTheirParents()
    {
        QVERIFY(bCreateDir(utf8("扫描 件/2026/11/")));
        QVERIFY(QFileInfo(path("扫描 件/2026/11")).isDir());
        QVERIFY(bCreateDir(utf8("扫描 件/2026/11")));
        QVERIFY(bCreateDir(utf8("skipped/../made")));
        QCOMPARE(everythingIn(m_folder->path()),
                 (QStringList{line("made"), line("扫描 件"), line("扫描 件/2026"),
                              line("扫描 件/2026/11")}));
        QCOMPARE(PortableLog::takeLines(), QStringList());
    }

    void badPathsTouchNothing_data()
    {
        // reason: in the log after deleting
        const Rows<QString, QString> row("bad", "reason");
        const QString longName(300, QLatin1Char('x'));
        const QString deep = line("/abcdefghi").repeated(500); // 5,000 characters
        // clang-format off
        row("empty",        QString(),               "the path is empty");
        row("below a file", "file/below",            "there is no such file");
        row("long name",    line("new/") + longName, "the path is too long");
        row("long path",    line("new") + deep,      "the path is too long");
        row("line break",   "file/a\nb",             "there is no such file");
        // clang-format on
    }

    void badPathsTouchNothing()
    {
        QFETCH(QString, bad);
        QFETCH(QString, reason);
        writeFile(path("file"));
        const QStringList before = everythingIn(m_folder->path());
        const Utf8 text(bad);
        const auto isRefused = [](bool done) {
            const QStringList lines = PortableLog::takeLines();
            return !done && lines.size() == 1 && lines.first().size() < 500
                && !lines.first().contains(QLatin1Char('\n'));
        };
        QVERIFY(!bDeleteFile(text));
        const QStringList lines = PortableLog::takeLines();
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().startsWith(line("bDeleteFile: \"")), qPrintable(lines.first()));
        QVERIFY2(lines.first().endsWith(reason), qPrintable(lines.first()));
        QVERIFY(isRefused(bDeleteFileForever(text)));
        QVERIFY(isRefused(bCopyFile(text, utf8("x"))));
        QVERIFY(isRefused(bCopyFile(utf8("file"), text)));
        QVERIFY(isRefused(bMoveFile(text, utf8("x"))));
        QVERIFY(isRefused(bMoveFile(utf8("file"), text)));
        QVERIFY(isRefused(bReNameFile(text, utf8("x"))));
        QVERIFY(isRefused(bReNameFile(utf8("file"), text)));
        QVERIFY(isRefused(bCreateDir(text)));
        QVERIFY(isRefused(OpenFile(text)));
        QVERIFY(isRefused(bDispPath(text)));
        QVERIFY(!bFileIsExist(text));
        QVERIFY(!bDirIsExist(text));
        PortableLog::takeLines();
        QCOMPARE(sGetAllFormatFiles(text, "*"), "");
        QCOMPARE(PortableLog::takeLines().size(), 1);
        QCOMPARE(everythingIn(m_folder->path()), before);
    }

    void foldersAndDevicesAreNoFiles()
    {
        QVERIFY(QDir().mkpath(path("folder")));
        QVERIFY(QFile::link(path("folder"), path("link")));
        QCOMPARE(::mkfifo(utf8("pipe"), 0600), 0);
        for (const char *name : {"folder", "folder/", "link/", "pipe"}) {
            QVERIFY2(!bDeleteFile(utf8(name)), name);
            QVERIFY2(!bDeleteFileForever(utf8(name)), name);
            QVERIFY2(!bCopyFile(utf8(name), utf8("x")), name); // without waiting for the pipe
            QVERIFY2(!bMoveFile(utf8(name), utf8("x")), name);
            QCOMPARE(PortableLog::takeLines().size(), 4);
        }
        writeFile(path("file"));
        QVERIFY(!bCreateDir(utf8("file")));
        QCOMPARE(sGetAllFormatFiles(utf8("file"), "jpg"), "");
        QCOMPARE(PortableLog::takeLines().size(), 2);
        QCOMPARE(everythingIn(m_folder->path()),
                 (QStringList{line("file"), line("folder"), line("link -> ") + path("folder"),
                              line("pipe")}));
    }

    void namesOfAFormat_data()
    {
        const Rows<QString, QString> row("format", "names");
        // clang-format off
        row("an extension in any case", "jpg",           "B.JPG|a 1.jpg|图.jpg");
        row("with its dot",             ".PNG",          "c.png");
        row("a pattern",                "*.j*",          "B.JPG|a 1.jpg|d.jpeg|图.jpg");
        row("several",                  "png; *.jpeg;;", "c.png|d.jpeg");
        row("all",                      "",              "B.JPG|a 1.jpg|c.png|d.jpeg|plain|图.jpg");
        row("all the other way",        "*.*",           "B.JPG|a 1.jpg|c.png|d.jpeg|plain|图.jpg");
        row("none",                     "tif",           "");
        row("no way out of the folder", "../*",          "");
        // clang-format on
    }

    void namesOfAFormat()
    {
        QFETCH(QString, format);
        QFETCH(QString, names);
        for (const char *name : {"图.jpg", "c.png", "a 1.jpg", "d.jpeg", "plain", "B.JPG"}) {
            writeFile(path("扫描/") + line(name));
        }
        QVERIFY(QDir().mkpath(path("扫描/folder.jpg")));
        QCOMPARE(QString::fromUtf8(sGetAllFormatFiles(utf8("扫描"), Utf8(format))), names);
        QCOMPARE(PortableLog::takeLines(), QStringList());
    }

    void opensWithTheDesktopsProgram()
    {
        writeFile(path("-a b.pdf"));
        installOpener();
        QVERIFY(IsExeExist());
        QVERIFY(!OpenFile("-a b.pdf")); // no display
        qputenv("DISPLAY", ":99");
        const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
        qputenv("QT_QPA_PLATFORM", "xcb;offscreen"); // ours, not that of the desktop's programs
        QVERIFY(OpenFile("-a b.pdf"));
        QTRY_COMPARE(contentOf(path("opened")), utf8("-a b.pdf").bytes + "\n");
        qputenv("QT_QPA_PLATFORM", "xcb");
        QVERIFY(QDir().mkpath(path("http:/example.com")));
        QVERIFY(bDispPath("http://example.com")); // a folder with that name, not the page
        QTRY_VERIFY(contentOf(path("opened")).endsWith(utf8("http:/example.com").bytes + "xcb\n"));
        qputenv("QT_QPA_PLATFORM", platform);
        QCOMPARE(contentOf(path("opened")).count('\n'), 2);
        QCOMPARE(PortableLog::takeLines().size(), 1);

        for (const char *path : {"https://example.com", "file:///etc/passwd", "absent"}) {
            QVERIFY2(!OpenFile(path), path);
            QVERIFY2(!bDispPath(path), path);
        }
        QVERIFY(!OpenFile(utf8("data")) && !bDispPath(utf8("-a b.pdf")));
    }

    void withoutTheDesktopsProgramNothingOpens()
    {
        writeFile(path("a.pdf"));
        qputenv("PATH", "/nowhere");
        qputenv("DISPLAY", ":99");
        QVERIFY(!IsExeExist());
        QVERIFY(!OpenFile(utf8("a.pdf")));
        QCOMPARE(PortableLog::takeLines(),
                 QStringList{line("OpenFile: \"%1\": there is no xdg-open (package xdg-utils)")
                                 .arg(path("a.pdf"))});
    }

    void twoDotsAfterALinkReferToItsTarget()
    {
        writeFile(path("a.jpg"));
        writeFile(path("far/a.jpg"));
        writeFile(path("far/b.pdf"));
        link(path("far/data"), path("link"));
        QVERIFY(QDir().mkpath(path("far/data")));
        QVERIFY(bDeleteFile(utf8("link/../a.jpg")));
        QVERIFY(QFile::exists(path("a.jpg")));
        QVERIFY(!QFile::exists(path("far/a.jpg")));
        QVERIFY(bCreateDir(utf8("link/../made/x")));
        QVERIFY(QFileInfo(path("far/made/x")).isDir());
        installOpener();
        qputenv("DISPLAY", ":99");
        QVERIFY(OpenFile(utf8("link/../b.pdf")));
        QTRY_COMPARE(contentOf(path("opened")), QByteArray(utf8("far/b.pdf")) + "\n");
    }

    void usbDevicesInSysfs()
    {
        const QString host = path("sys/devices/pci0000:00/usb1");
        makeUsbDevice(host, "1D6B", "0002", "xHCI Host Controller", "0000:00:14.0");
        makeUsbDevice(host + line("/1-2"), "2b19", "0200", "高拍仪 A|B\n", "SN 0042");
        makeUsbDevice(host + line("/1-10"), "046d", "c31c", "", "");
        makeUsbDevice(host + line("/1-11"), "zz", "../../", "broken", "");
        writeFile(host + line("/1-2/1-2:1.0/bInterfaceClass"), "0e\n");
        for (const char *name : {"1-2", "1-10", "1-11", "1-2/1-2:1.0", ""}) {
            const QString target = QDir::cleanPath(host + QLatin1Char('/') + line(name));
            link(target, path("sys/bus/usb/devices/") + QFileInfo(target).fileName());
        }
        QStringList labels;
        for (const portable::UsbDevice &device : portable::listUsbDevices(path("sys"))) {
            labels << device.label();
        }
        QCOMPARE(
            labels,
            (QStringList{line("usb#vid_046d&pid_c31c"), line("usb#vid_2b19&pid_0200 高拍仪 A/B"),
                         line("usb#vid_1d6b&pid_0002 xHCI Host Controller")}));

        // A camera's node belongs to an interface of its device, if it is on USB at all.
        link(host + line("/1-2/1-2:1.0"), path("sys/class/video4linux/video0/device"));
        QVERIFY(QDir().mkpath(path("sys/devices/platform/vivid.0")));
        link(path("sys/devices/platform/vivid.0"), path("sys/class/video4linux/video1/device"));
        QCOMPARE(portable::usbDeviceOfVideoNode(line("/dev/video0"), path("sys")).serialNumber,
                 line("SN 0042"));
        for (const char *node : {"/dev/video1", "/dev/video2", "/dev/../../1-2", ""}) {
            QVERIFY2(portable::usbDeviceOfVideoNode(line(node), path("sys")).vendorId.isEmpty(),
                     node);
        }
        QVERIFY(portable::listUsbDevices(path("nowhere")).empty());
    }

    void statusTextsBelongToTheCaller()
    {
        const auto take = [](char *text) {
            QString result = QString::fromUtf8(text);
            std::free(text);
            return result;
        };
        // Whatever is plugged in here, both lists have the same devices.
        QString identifiers = take(sEnumUSBDevice());
        identifiers.remove(QRegularExpression(line(" [^|]*")));
        QCOMPARE(take(sGetDevicesId()), identifiers);
        QCOMPARE(PortableLog::lines().filter(line("this machine has no USB")).size(),
                 identifiers.isEmpty() ? 2 : 0);
        const QString serial = take(sGetSerialNum());
        const QStringList lines =
            PortableLog::takeLines().filter(line("sGetSerialNum: camera 1 has no serial number"));
        QCOMPARE(lines.size(), serial.isEmpty() ? 1 : 0);
    }

private:
    /// Installs an xdg-open that records its arguments.
    void installOpener()
    {
        writeFile(path("bin/xdg-open"),
                  "#!/bin/sh\necho \"$@$QT_QPA_PLATFORM\" >> '" + m_folder->path().toUtf8()
                      + "/opened'\n");
        QVERIFY(QFile::setPermissions(path("bin/xdg-open"),
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
};

QTEST_GUILESS_MAIN(TestPortableFiles)
#include "tst_portablefiles.moc"
