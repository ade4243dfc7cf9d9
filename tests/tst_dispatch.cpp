// SPDX-License-Identifier: MIT
#include "camera/imageencoder.h"
#include "camera/mat2base64.h"
#include "dispatch/arguments.h"
#include "dispatch/base64.h"
#include "dispatch/messagerun.h"
#include "tests/pages.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"

#include <QTextCodec>
#include <QtTest>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <thread>

namespace {

std::string encoded(const char *bytes, bool url)
{
    return base64_encode(reinterpret_cast<const unsigned char *>(bytes), ulong(qstrlen(bytes)),
                         url);
}

/// With ' instead of ", which is hard to read in a literal.
QString unquoted(QString text)
{
    return text.replace(QLatin1Char('"'), QLatin1Char('\''));
}

} // namespace

class TestDispatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        const QString module =
            QCoreApplication::applicationDirPath() + QStringLiteral("/libimageencoder.so");
        QFile::remove(module);
        QVERIFY(QFile::link(QStringLiteral(IMAGE_ENCODER), module));
    }

    void init() { recording::reset(); }

    void everyCommandIsRegisteredOnce()
    {
        QStringList names;
#define COMMAND(command, failure, ...) names << QStringLiteral(#command);
#include "dispatch/commandlist.h"
        const MessageRun dispatcher;
        QCOMPARE(dispatcher.commands().size(), names.size());
        QCOMPARE(names.removeDuplicates(), 0);
        QCOMPARE(names.size(), 179);
        for (const QString &name : qAsConst(names)) {
            QVERIFY2(dispatcher.commands().contains(name), qPrintable(name));
        }
    }

    void textsAreSplitAtTheFirstParenthesis_data()
    {
        const Rows<QString, QString> row("text", "calls");
        // clang-format off
        //   what                                      text                         device calls
        row("no argument",                             "bStartPlay4()",             "bStartPlay4()");
        row("no parentheses",                          "bStartPlay4",               "bStartPlay4()");
        row("only the opening one",                    "bStartPlay4(",              "bStartPlay4()");
        row("the last character is dropped",           "bAVPreview(90,7)",          "bAVPreview(90,7)");
        row("... whatever it is",                      "bAVPreview(90,78",          "bAVPreview(90,7)");
        row("... even after the closing one",         "bAVPreview(90,7)x",         "bAVPreview(90,0)");
        row("parentheses within",                      "bAVPreview((5),7)",         "bAVPreview(0,7)");
        row("another case is another name",            "bstartplay4()",             "");
        row("a blank before the name",                 " bStartPlay4()",            "");
        row("a blank after the name",                 "bStartPlay4 ()",            "");
        row("an unknown name",                     "bStartPlay7()",             "");
        row("nothing",                                 "",                          "");
        row("a parenthesis",                           "(",                         "");
        row("the other parenthesis",                   ")",                         "");
        row("both",                                    "()",                        "");
        row("only blanks and line ends",               " \r\n\t",                   "");
        row("placeholders",                      "%1%2(%1)",                  "");
        // clang-format on
    }

    void textsAreSplitAtTheFirstParenthesis()
    {
        QFETCH(QString, text);
        MessageRun dispatcher;
        dispatcher.recv_msg(text, nullptr);
        QTEST(recording::takeText(), "calls");
    }

    void repliesOfOtherThreadsAreSentByTheMainThread()
    {
        PagePair pair;
        gpWebSocket = pair.serverSide();
        MessageRun dispatcher;
        std::thread([&dispatcher] { dispatcher.sendmsg_thread(QStringLiteral("late")); }).join();
        QCOMPARE(pair.page().next(), QStringLiteral("late"));

        // The page leaves before the main thread gets to it.
        std::thread([&dispatcher] {
            dispatcher.sendmsg_thread(QStringLiteral("too late"));
        }).join();
        gpWebSocket = nullptr;
        QCoreApplication::processEvents();
        QCOMPARE(pair.page().received(), QStringList());
    }

    void repliesWithoutAPageAreDropped()
    {
        gpWebSocket = nullptr;
        MessageRun::send_msg(QStringLiteral("to nobody"));
        MessageRun dispatcher;
        dispatcher.http_reply_slot(200, QStringLiteral("to nobody"));
        QCOMPARE(MessageRun::reply(QStringLiteral("x"), true), QStringLiteral("BeginxtrueEndx"));
    }

    void eventForms()
    {
        PagePair pair;
        gpWebSocket = pair.serverSide();
        MessageRun dispatcher;
        MessageRun::send_json_msg(true, QStringLiteral("f"), QStringLiteral("a'b"));
        QCOMPARE(unquoted(pair.page().next()),
                 QStringLiteral("{'code':'1','funcname':'f','data':'a'b'}"));
        MessageRun::send_json_msg(false, QStringLiteral("f"), QString());
        QCOMPARE(unquoted(pair.page().next()),
                 QStringLiteral("{'code':'0','funcname':'f','data':''}"));
        dispatcher.slot_iAutoshot(3);
        QCOMPARE(pair.page().next(), QStringLiteral("BeginiAutoScan3EndiAutoScan"));
        dispatcher.http_reply_slot(500, QStringLiteral("End%1"));
        QCOMPARE(pair.page().next(), QStringLiteral("BeginsUpLoadImageEx2End%1EndsUpLoadImageEx2"));
        gpWebSocket = nullptr;
    }

    void fieldsOfAnArgumentText()
    {
        QCOMPARE(Arguments(QString()).count(), 1);
        const Arguments fields(QStringLiteral("a,, b ,%1"));
        QCOMPARE(fields.count(), 4);
        QCOMPARE(fields.text(0), QStringLiteral("a"));
        QCOMPARE(fields.text(1), QString());
        QCOMPARE(fields.text(2), QStringLiteral(" b "));
        QCOMPARE(fields.text(4), QString());
        QCOMPARE(fields.text(-1), QString());
        QCOMPARE(fields.utf8(9), "");
        QCOMPARE(fields.number<int>(9), 0);
    }

    void numbers_data()
    {
        const Rows<short, int, qint64> row("asShort", "asInt", "asLong");
        // clang-format off
        row("90",                    90,     90,          90);
        row("-5",                    -5,     -5,          -5);
        row("32767",                 32767,  32767,       32767);
        row("32768",                 0,      32768,       32768);
        row("2147483648",            0,      0,           2147483648);
        row("9223372036854775808",   0,      0,           0);
        row("0x10",                  0,      0,           0);
        row("010",                   10,     10,          10);
        row("1.5",                   0,      0,           0);
        row("12abc",                 0,      0,           0);
        row("٣",                     0,      0,           0);
        row("",                      0,      0,           0);
        // clang-format on
    }

    void numbers()
    {
        const QString text = QString::fromUtf8(QTest::currentDataTag());
        QTEST(numberFrom<short>(text), "asShort");
        QTEST(numberFrom<int>(text), "asInt");
        QTEST(numberFrom<qint64>(text), "asLong");
        QTEST(qint64(numberFrom<long>(text)), "asLong");
    }

    void encodingsOfAField()
    {
        QTextCodec *const before = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("GBK"));
        const Arguments fields(QStringLiteral("中,文"));
        const char *utf8 = fields.utf8(0);
        const char *local = fields.local8Bit(0);
        const char *other = fields.utf8(1);
        QTextCodec::setCodecForLocale(before);
        QCOMPARE(utf8, "\xE4\xB8\xAD");
        QCOMPARE(local, "\xD6\xD0");
        QCOMPARE(other, "\xE6\x96\x87");
    }

    void aMillionFields()
    {
        const Arguments fields(QString(1000000, QLatin1Char(',')));
        QCOMPARE(fields.count(), 1000001);
        QCOMPARE(fields.text(1000000), QString());
    }

    void base64Encoding()
    {
        const unsigned char two[] = {0xFB, 0xFF};
        QCOMPARE(encoded("f", false), std::string("Zg=="));
        QCOMPARE(encoded("f", true), std::string("Zg.."));
        QCOMPARE(encoded("fo", false), std::string("Zm8="));
        QCOMPARE(encoded("fo", true), std::string("Zm8."));
        QCOMPARE(encoded("foo", true), std::string("Zm9v"));
        QCOMPARE(encoded("", true), std::string());
        QCOMPARE(base64_encode(two, 2UL, false), std::string("+/8="));
        QCOMPARE(base64_encode(two, 2UL, true), std::string("-_8."));
        QCOMPARE(base64_encode(two, 2U), std::string("+/8="));

        QByteArray bytes;
        for (int length = 0; length < 1000; ++length) {
            const std::string text = base64_encode(
                reinterpret_cast<const unsigned char *>(bytes.constData()), unsigned(length));
            QCOMPARE(QByteArray::fromStdString(text), bytes.toBase64());
            QCOMPARE(QByteArray::fromStdString(base64_decode(text)), bytes);
            bytes.append(char(length * 37 + length / 7));
        }
    }

    void base64Decoding()
    {
        QCOMPARE(base64_decode("Zg"), std::string("f"));
        QCOMPARE(base64_decode("Zm8"), std::string("fo"));
        QCOMPARE(base64_decode("Zm9v\nZm9v"), std::string("foo"));
        QCOMPARE(base64_decode("Zm9v=Zm9v"), std::string("foo"));
        QCOMPARE(base64_decode("Zm9vZ"), std::string("foo"));
        QCOMPARE(base64_decode("-_8."), std::string());
        QCOMPARE(base64_decode("Zm9v\xC3\xA9"), std::string("foo"));
        QCOMPARE(base64_decode(std::string("Zm9v\0Zm9v", 9)), std::string("foo"));
    }

    void picturesAsBase64()
    {
        const cv::Mat picture(48, 64, CV_8UC3, cv::Scalar(10, 200, 30));
        const std::string bytes = base64_decode(Mat2Base64(picture, "JPG"));
        const cv::Mat back =
            cv::imdecode(std::vector<char>(bytes.begin(), bytes.end()), cv::IMREAD_COLOR);
        QCOMPARE(back.size(), picture.size());
        QVERIFY(cv::norm(back, picture, cv::NORM_INF) < 8);
        QCOMPARE(Mat2Base64(cv::Mat(), "JPG"), std::string());
        cv::Mat noise(1080, 1920, CV_8UC3);
        cv::randu(noise, 0, 256);
        for (const cv::Size size : {cv::Size(800, 600), cv::Size(2500, 7)}) {
            cv::Mat scaled;
            cv::resize(noise, scaled, size, 0, 0, cv::INTER_NEAREST);
            QCOMPARE(cv::norm(nearestScaled(noise, size.width, size.height), scaled), 0.0);
        }
        QCOMPARE(Mat2Base64(picture, "no such type"), std::string());
    }

    /// Pages get the same picture whether the module with OpenCV's encoders is installed or not.
    void jpegWithoutTheModule_data()
    {
        const Rows<int, int, int> row("width", "height", "channels");
        row("color", 1280, 720, 3);
        row("odd", 61, 37, 3);
        row("wide", 5000, 3, 3);
        row("gray", 321, 200, 1);
    }

    void jpegWithoutTheModule()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QFETCH(int, channels);
        cv::Mat picture(height, width, CV_8UC(channels));
        cv::randu(picture, 0, 255);
        cv::blur(picture, picture, {5, 5});
        std::vector<unsigned char> expected;
        QVERIFY(cv::imencode(".jpg", picture, expected, {cv::IMWRITE_JPEG_QUALITY, 70}));
        QVERIFY(encodeJpeg(picture, 70) == expected);
        const cv::Mat part = picture(cv::Rect(1, 1, width - 2, height - 2)); // with gaps
        QVERIFY(cv::imencode(".jpg", part, expected, {cv::IMWRITE_JPEG_QUALITY, 70}));
        QVERIFY(encodeJpeg(part, 70) == expected);
    }

    void otherFormatsByTheModule()
    {
        const cv::Mat picture(48, 64, CV_8UC3, cv::Scalar(10, 200, 30));
        const auto file = encodeImage(picture, "png", 70);
        QVERIFY(!file.empty());
        QVERIFY(cv::norm(cv::imdecode(file, cv::IMREAD_COLOR), picture) == 0);
    }
};

QTEST_GUILESS_MAIN(TestDispatch)
#include "tst_dispatch.moc"
