// SPDX-License-Identifier: MIT
//
// Still pictures, base64, documents: what is saved.

#include "base/neighbor.h"
#include "dispatch/base64.h"
#include "tests/commandtable.h"

#include <QDir>
#include <opencv2/imgcodecs.hpp>
#include <unistd.h>

class TestCaptureCommands : public CommandTest
{
    Q_OBJECT

private Q_SLOTS:
    void commands_data()
    {
        commandColumns();
        // clang-format off
        //         what                        command             args            device   calls                                reply
        for (const char *save : {"bSaveJPG", "bSaveTifJPG", "bSaveGray", "bSaveTIF", "bSaveBMP", "bSavePNG", "bSavePDFStart"}) {
            const QByteArray call = QByteArray(save) + "(/tmp/中文,扫描)";
            commandRow("saved",                save,               "/tmp/中文,扫描", true,   call.constData(),                    "true");
        }
        commandRow("refused, extra field",     "bSaveJPG",         "/tmp,scan,x",  false,   "bSaveJPG(/tmp,scan)",               "false");
        commandRow("one field",                "bSaveJPG",         "/home/user",   {},      "",                                  "false");
        commandRow("nothing",                  "bSaveJPG",         "",             {},      "",                                  "false");
        commandRow("four texts",               "bSaveGrayAndTIF",  "a,b,c,d,e",    true,    "bSaveGrayAndTIF(a,b,c,d)",          "true");
        commandRow("empty texts",              "bSaveGrayAndTIF",  ",,,",          false,   "bSaveGrayAndTIF(,,,)",              "false");
        commandRow("three texts",              "bSaveGrayAndTIF",  "a,b,c",        {},      "",                                  "false");
        commandRow("no device call",           "bSaveTIF24Bit",    "a,b",          {},      "",                                  "true");
        commandRow("two texts",                "SplitPic",         "/a.jpg,/b,c",  true,    "SplitPic(/a.jpg,/b)",               "true");
        commandRow("one text",                 "SplitPic",         "/a.jpg",       {},      "",                                  "false");
        commandRow("text",                     "sGetImageBase64",  "2",            "QUJD",  "sGetImageBase64_Byte(2)",           "QUJD");
        commandRow("null",                     "sGetImageBase64",  "x",            nullptr, "sGetImageBase64_Byte(0)",           "");

        commandRow("whole text",               "Base64Encode",     "a,中",          "QQ==",  "Base64Encode(a,中)",                 "QQ==");
        commandRow("nothing",                  "Base64Encode",     "",             "",      "Base64Encode()",                    "");
        commandRow("null",                     "Base64Encode",     "a",            nullptr, "Base64Encode(a)",                   "");
        commandRow("local 8-bit",              "Base64Decode",     "QQ==,中",       true,    "Base64Decode(QQ==,hex:d6d0)",       "true");
        commandRow("refused",                  "Base64Decode",     ",",            false,   "Base64Decode(,)",                   "false");
        commandRow("one field",                "Base64Decode",     "QQ==",         {},      "",                                  "false");

        for (const char *plain : {"bSavePDFColorPage", "bSavePDFBWPage", "bSavePDFEnd", "bSaveOFDColorPage",
                                  "bSaveOFDBWPage", "bSaveOFDEnd", "bSaveMergePage", "bSaveMergeEnd"}) {
            const QByteArray call = QByteArray(plain) + "()";
            commandRow("done",                 plain,              "ignored,x",    true,    call.constData(),                    "true");
        }
        commandRow("refused",                  "bSaveMergeEnd",    "",             false,   "bSaveMergeEnd()",                   "false");
        commandRow("local 8-bit, no place",    "bAddPDFColorPage", "中",            true,    "bAddPDFColorPage(hex:d6d0,-1)",     "true");
        commandRow("a place",                  "bAddPDFColorPage", "a.jpg,2.5",    false,   "bAddPDFColorPage(a.jpg,2.5)",       "false");
        commandRow("a place of no number",     "bAddPDFColorPage", "a.jpg,",       true,    "bAddPDFColorPage(a.jpg,0)",         "true");
        commandRow("nothing",                  "bAddPDFColorPage", "",             false,   "bAddPDFColorPage(,-1)",             "false");
        commandRow("local 8-bit, a place",     "bAddPDFBWPage",    "中,3,4",        true,    "bAddPDFBWPage(hex:d6d0,3)",         "true");
        commandRow("no place",                 "bAddPDFBWPage",    "a.jpg",        true,    "bAddPDFBWPage(a.jpg,-1)",           "true");
        commandRow("whole text",               "bAddPDFBase64ColorPage", "QQ,==",  true,    "bAddPDFBase64ColorPage(QQ,==)",     "true");
        commandRow("two texts",                "bSaveOFDStart",    "/tmp,中",       true,    "bSaveOFDStart(/tmp,中)",             "true");
        commandRow("first empty",              "bSaveOFDStart",    ",x",           {},      "",                                  "false");
        commandRow("second empty",             "bSaveOFDStart",    "x,",           {},      "",                                  "false");
        commandRow("one text",                 "bSaveOFDStart",    "x",            {},      "",                                  "false");
        commandRow("UTF-8, no place",          "bAddOFDPage",      "中",            true,    "bAddOFDPage(中,1)",                  "true");
        commandRow("a place",                  "bAddOFDPage",      "a.jpg,-1,x",   true,    "bAddOFDPage(a.jpg,-1)",             "true");
        commandRow("second empty",             "bAddOFDPage",      "/tmp/a.jpg,",  {},      "",                                  "false");
        commandRow("nothing",                  "bAddOFDPage",      "",             {},      "",                                  "false");
        commandRow("first empty",              "bAddOFDPage",      ",2",           {},      "",                                  "false");
        commandRow("whole text",               "bAddOFDBase64ColorPage", "a,b",    false,   "bAddOFDBase64ColorPage(a,b)",       "false");
        commandRow("six fields",               "bSaveMergeStart",  "/tmp,中,1,2,3,4", true, "bSaveMergeStart(/tmp,中,1,2,3,4)",   "true");
        commandRow("ranges",                   "bSaveMergeStart",  "a,b,70000,-1,9223372036854775807,x,7", false, "bSaveMergeStart(a,b,0,-1,9223372036854775807,0)", "false");
        commandRow("five fields",              "bSaveMergeStart",  "/tmp,a,1,2,3", {},      "",                                  "false");
        // clang-format on
    }

    void frameAsBase64_data()
    {
        const Rows<QString> row("command");
        row("sGetJpgBase64", "sGetJpgBase64");
        row("sGetBase64", "sGetBase64");
    }

    void frameAsBase64()
    {
        QFETCH(QString, command);
        const QString call = command + QLatin1String("(x)");
        const QString nothing = QStringLiteral("Begin%1End%1").arg(command);
        recording::answer("getVideoFrameMatEx", false);
        QCOMPARE(ask(call), nothing);
        recording::answer("getVideoFrameMatEx", true, cv::Mat());
        QCOMPARE(ask(call), nothing);

        const cv::Mat picture(48, 64, CV_8UC3, cv::Scalar(10, 200, 30));
        recording::answer("getVideoFrameMatEx", true, picture);
        QString text = ask(call);
        QVERIFY(text.startsWith(QLatin1String("Begin") + command + QLatin1String("/9j/")));
        text = text.mid(5 + command.size()).chopped(3 + command.size());
        const std::string jpeg = base64_decode(text.toStdString());
        QCOMPARE(cv::imdecode(std::vector<char>(jpeg.begin(), jpeg.end()), cv::IMREAD_COLOR).size(),
                 picture.size());
    }

    void savedFileAsBase64()
    {
        QString path;
        recording::answer("bSaveJPG", true);
        recording::whenCalled("bSaveJPG", [&path](const QStringList &arguments) {
            path = arguments.join(QLatin1Char('/')) + QLatin1String(".jpg");
            QFile file(path);
            if (file.open(QIODevice::WriteOnly)) {
                file.write("not\0looked at", 13);
            }
        });
        QCOMPARE(ask("bSaveJPGEx(ignored)"),
                 QStringLiteral("BeginbSaveJPGExbm90AGxvb2tlZCBhdA==EndbSaveJPGEx"));
        QVERIFY2(
            QRegularExpression(QStringLiteral("^/tmp/VX\\d{17}\\.jpg$")).match(path).hasMatch(),
            qPrintable(path));
        QVERIFY(!QFile::exists(path));

        // One that somebody else put there isn't sent, or removed.
        recording::answer("getVideoFrameMatEx", false);
        base::setOwnUser(geteuid() + 1);
        const QString reply = ask("bSaveJPGEx()");
        base::setOwnUser(geteuid());
        QCOMPARE(reply, QStringLiteral("BeginbSaveJPGExEndbSaveJPGEx"));
        QVERIFY(QFile::remove(path));
    }

    void savedFileThatIsNotThere()
    {
        // That the save says it has succeeded is not looked at.
        recording::answer("bSaveJPG", true);
        recording::answer("getVideoFrameMatEx", true,
                          cv::Mat(48, 64, CV_8UC3, cv::Scalar(1, 2, 3)));
        QVERIFY(ask("bSaveJPGEx()").startsWith(QLatin1String("BeginbSaveJPGEx/9j/")));
        recording::answer("getVideoFrameMatEx", false);
        QCOMPARE(ask("bSaveJPGEx()"), QStringLiteral("BeginbSaveJPGExEndbSaveJPGEx"));
    }
};

QTEST_GUILESS_MAIN(TestCaptureCommands)
#include "tst_capturecommands.moc"
