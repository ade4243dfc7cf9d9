// SPDX-License-Identifier: MIT
//
// Files, status, uploads.

#include "tests/commandtable.h"

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QMessageBox>
#include <QThreadPool>

class TestFileCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        const auto windows = QApplication::topLevelWidgets();
        for (QWidget *window : windows) {
            window->close();
        }
        CommandTest::cleanup();
    }

    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                    command                args             device   calls                              reply
        for (const char *whole : {"bDeleteFile", "bFileIsExist", "bDirIsExist", "bCreateDir", "OpenFile", "bDispPath"}) {
            const QByteArray call = QByteArray(whole) + "(/tmp/中,文.jpg)";
            commandRow("whole text",       whole,                 "/tmp/中,文.jpg", true,    call.constData(),                  "true");
            commandRow("refused",          whole,                 "/tmp/中,文.jpg", false,   call.constData(),                  "false");
        }
        commandRow("first field only",     "bDeleteFileForever",  "/a.jpg,/b.jpg", true,    "bDeleteFileForever(/a.jpg)",      "true");
        commandRow("nothing",              "bDeleteFileForever",  "",              false,   "bDeleteFileForever()",            "false");
        for (const char *two : {"bCopyFile", "bMoveFile", "bReNameFile"}) {
            const QByteArray call = QByteArray(two) + "(/a,中)";
            commandRow("two paths",        two,                   "/a,中,x",        true,    call.constData(),                  "true");
            commandRow("one path",         two,                   "/a.jpg",        {},      "",                                "false");
        }
        commandRow("nothing asked",        "IsExeExist",          "x",             true,    "IsExeExist()",                    "true");
        commandRow("no device call",       "sGetTempPath",        "x",             {},      "",                                "/tmp");
        commandRow("as it is",             "sGetAllFormatFiles",  "/中,*.jpg,x",    "a|b",   "sGetAllFormatFiles(/中,*.jpg)",    "a|b");
        commandRow("null",                 "sGetAllFormatFiles",  ",",             nullptr, "sGetAllFormatFiles(,)",           "");
        commandRow("one field",            "sGetAllFormatFiles",  "/data",         {},      "",                                "");

        commandRow("text",                 "sEnumUSBDevice",      "x",             "中|b",   "sEnumUSBDevice()",                "中|b");
        commandRow("null",                 "sGetSerialNum",       "",              nullptr, "sGetSerialNum()",                 "");
        commandRow("text",                 "sGetDevicesId",       "",              "a",     "sGetDevicesId()",                 "a");
        commandRow("nothing written",      "sServerVersion",      "",              {},      "doccameraVeriosn(1000)",          "");
        commandRow("constant",             "getVersion",          "x",             {},      "",                                "V1.0.2");
        commandRow("constant",             "version",             "",              {},      "",                                "linux_kylin_arm64");

        commandRow("defaults",             "sUpLoadImage",        "a,b",           "ok",    "sUpLoadImage(a,b,,false,)",       "ok");
        commandRow("all fields",           "sUpLoadImage",        "a,b,中,d,2,f",   nullptr, "sUpLoadImage(a,b,中,true,d)",      "");
        commandRow("one field",            "sUpLoadImage",        "a",             {},      "",                                "false");
        commandRow("another name",         "sUpLoadImageEx6",     "a,b,c,d,0,f",   "x",     "sUpLoadImage(a,b,c,false,d)",     "x");
        commandRow("one field",            "sUpLoadImageEx6",     "",              {},      "",                                "false");
        commandRow("four fields",          "sUpLoadImageEx2",     "a,b,x,d",       "中",     "sUpLoadImageEx2(a,b,0,d)",        "中");
        commandRow("three fields",         "sUpLoadImageEx2",     "a,b,8080",      {},      "",                                "false");
        commandRow("four fields",          "bUpLoadImage",        "a,b,8080,中",    true,    "bUpLoadImage(a,b,8080,中)",        "true");
        commandRow("three fields",         "bUpLoadImage",        "a,b,c",         {},      "",                                "false");
        // clang-format on
    }

    void deviceStatus_data()
    {
        const Rows<bool, QString> row("module", "status");
        row("a|usb#vid_2b19&pid_0200|b", true, "高拍仪已连接|社保卡模块已连接");
        row("usb#vid_2b16&pid_6689", false, "高拍仪已连接|社保卡模块未连接");
        row("usb#vid_2b16&pid_bcd2", false, "高拍仪已连接|社保卡模块未连接");
        row("USB#VID_2B19&PID_0200", true, "高拍仪未连接|社保卡模块已连接");
        row("usb#vid_2b19&pid_6689", false, "高拍仪未连接|社保卡模块未连接");
        row("", false, "高拍仪未连接|社保卡模块未连接");
    }

    void deviceStatus()
    {
        const QByteArray devices = QTest::currentDataTag();
        QFETCH(bool, module);
        QFETCH(QString, status);
        recording::answer("sGetDevicesId", devices.constData());
        recording::answer("GetDeviceStatus_dc", module);
        QCOMPARE(ask("GetDeviceStatus(x)"),
                 QStringLiteral("BeginGetDeviceStatus%1EndGetDeviceStatus").arg(status));

        recording::answer("doccameraVeriosn", {}, "camera 1.0");
        QCOMPARE(ask("sServerVersion()"),
                 QStringLiteral("BeginsServerVersioncamera 1.0EndsServerVersion"));
    }

    void upload_data()
    {
        const Rows<QString, QString, QString> row("args", "calls", "result");
        // clang-format off
        row("sixth field counts", "a,b,8080,中,0,f,g,0,0",   "sUpLoadImageEx5(a,b,8080,中,f,g)", "answer");
        row("sixth field off",    "a,b,x,d,1,f,g,false,x,y", "sUpLoadImageEx5(a,b,0,d,,g)",     "answer");
        row("eight fields",       "a,b,1,d,0,f,g,0",         "",                                "false");
        row("nothing",            "",                        "",                                "false");
        // clang-format on
    }

    void upload()
    {
        QFETCH(QString, args);
        QFETCH(QString, result);
        recording::answer("sUpLoadImageEx5", false, "answer");
        QCOMPARE(ask(QStringLiteral("sUpLoadImageEx5(%1)").arg(args)),
                 QStringLiteral("BeginsUpLoadImageEx5%1EndsUpLoadImageEx5").arg(result));
        QTEST(recording::takeText(), "calls");
        QVERIFY(!box<QDialog>());
    }

    void uploadShowsItsBoxes()
    {
        for (const bool success : {true, false}) {
            recording::answer("sUpLoadImageEx5", success, "answer");
            recording::hold("sUpLoadImageEx5");
            send("sUpLoadImageEx5(a,b,1,d,0,f,g,TRUE,1)");
            const QPointer<QDialog> progress = box<QDialog>();
            QVERIFY(progress && progress->isModal());
            QVERIFY(progress->windowFlags().testFlag(Qt::FramelessWindowHint)
                    && progress->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
            QCOMPARE(progress->findChild<QLabel *>()->text(), QStringLiteral("图片上传中。。。"));

            // Other commands are answered meanwhile.
            QCOMPARE(ask("getVersion()"), QStringLiteral("BegingetVersionV1.0.2EndgetVersion"));

            recording::release("sUpLoadImageEx5");
            QCOMPARE(page().next(), QStringLiteral("BeginsUpLoadImageEx5answerEndsUpLoadImageEx5"));
            const QPointer<QMessageBox> result = box<QMessageBox>();
            QVERIFY(result && result->isModal());
            QVERIFY(result->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
            QCOMPARE(result->windowTitle(), QStringLiteral("提示信息"));
            QCOMPARE(result->text(),
                     success ? QStringLiteral("   上传成功!     ")
                             : QStringLiteral("   上传失败!     "));
            QCOMPARE(result->icon(), QMessageBox::NoIcon);
            result->close();
            QTRY_VERIFY(!progress && !result);
        }
    }

    void uploadsEndInAnyOrder()
    {
        recording::answerOnce("sUpLoadImageEx5", true, "first");
        recording::answer("sUpLoadImageEx5", true, "second");
        recording::hold("sUpLoadImageEx5");
        send("sUpLoadImageEx5(a,b,1,d,0,f,g,1,0)");
        QVERIFY(recording::waitFor("sUpLoadImageEx5"));
        // The second has too few fields: it is done at once, and the first's dialog stays.
        QCOMPARE(ask("sUpLoadImageEx5(a,b,1,d,0,f,g,0)"),
                 QStringLiteral("BeginsUpLoadImageEx5falseEndsUpLoadImageEx5"));
        QVERIFY(box<QDialog>());
        recording::release("sUpLoadImageEx5");
        QCOMPARE(page().next(), QStringLiteral("BeginsUpLoadImageEx5firstEndsUpLoadImageEx5"));
        QTRY_VERIFY(!box<QDialog>());
    }

    void uploadsThatEndTogether()
    {
        const QStringList answers{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")};
        for (const QString &answer : answers) {
            recording::answerOnce("sUpLoadImageEx5", true, answer.toUtf8().constData());
            send("sUpLoadImageEx5(a,b,1,d,0,f,g,1,0)");
            QThreadPool::globalInstance()->waitForDone(); // this thread has not been notified yet
        }
        QTRY_VERIFY(!box<QDialog>());
        send("version()");
        for (const QString &answer : answers) {
            QCOMPARE(page().next(), MessageRun::framed(QStringLiteral("sUpLoadImageEx5"), answer));
        }
        QCOMPARE(page().next(), QStringLiteral("Beginversionlinux_kylin_arm64Endversion"));
    }

    void pageLeavesDuringTheUpload()
    {
        recording::answer("sUpLoadImageEx5", true, "answer");
        recording::hold("sUpLoadImageEx5");
        send("sUpLoadImageEx5(a,b,1,d,0,f,g,1,0)");
        QVERIFY(recording::waitFor("sUpLoadImageEx5"));
        leave();
        recording::release("sUpLoadImageEx5");
        QTRY_VERIFY(!box<QDialog>());
        QVERIFY(!gpWebSocket);
    }

private:
    template <class Box> Box *box() const
    {
        const auto windows = QApplication::topLevelWidgets();
        for (QWidget *window : windows) {
            if (auto *found = qobject_cast<Box *>(window); found && found->isVisible()) {
                return found;
            }
        }
        return nullptr;
    }
};

QTEST_MAIN(TestFileCommands)
#include "tst_filecommands.moc"
