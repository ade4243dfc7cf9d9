// SPDX-License-Identifier: MIT
// The capture button: keys of input devices, controls of cameras.
#include "portable/camera/capturebutton.h"
#include "tests/fakev4l2.h"

#include <QtTest>
#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <map>

using namespace portable;

class TestCaptureButton : public FakeV4l2Test
{
    Q_OBJECT

private Q_SLOTS:
    void captureButtons_data()
    {
        const Rows<QString, int, QString> row("device", "key", "pressed");
        row("any", "", KEY_CAMERA, "button later");
        row("named", "board", KEY_B, "board");
    }

    /// Each device sends a press, a release and a repetition of both keys.
    void captureButtons()
    {
        QFETCH(QString, device);
        QFETCH(int, key);
        const std::map<QString, std::vector<int>> devices{
            {line("button"), {KEY_CAMERA}},
            {line("board"), {KEY_A, KEY_B, KEY_CAMERA}},
            {line("mouse"), {BTN_LEFT}},
            {line("later"), {KEY_CAMERA}}};
        const auto file = [&](const QString &name) { return path("event-") + name; };
        std::map<QString, int> ends;
        const auto plugIn = [&](const QString &name) {
            ::mkfifo(Utf8(file(name)), 0600);
            ends[name] = ::open(Utf8(file(name)), O_RDWR | O_NONBLOCK);
        };
        for (const auto &each : devices) { // before the button's thread looks for one
            driverOf(file(each.first)).keys = each.second;
        }
        for (const char *name : {"button", "board", "mouse"}) {
            plugIn(line(name));
        }
        std::atomic<int> presses{0};
        const CaptureButton button([&] { ++presses; },
                                   {device.isEmpty() ? device : file(device), key, {}}, path(""),
                                   path(""));
        plugIn(line("later"));
        QString pressed;
        const auto press = [&](const QString &name) {
            for (const int code : {KEY_CAMERA, KEY_B}) {
                for (const int value : {1, 0, 2}) {
                    input_event event{};
                    event.type = EV_KEY;
                    event.code = ushort(code);
                    event.value = value;
                    QCOMPARE(write(ends[name], &event, sizeof event), ssize_t(sizeof event));
                }
            }
        };
        for (const char *name : {"button", "board", "mouse", "later"}) {
            const int before = presses;
            press(line(name));
            if (QTest::qWaitFor([&] { return presses > before; }, 300)) {
                pressed += line(pressed.isEmpty() ? "" : " ") + line(name);
            }
            QVERIFY(presses <= before + 1);
        }
        QTEST(pressed, "pressed");
        for (const auto &end : ends) {
            close(end.second);
        }
    }

    void buttonControls_data()
    {
        const Rows<QString, QString> row("control", "pressed");
        row("the driver's own", "", "shutter again");
        row("by number", "0x00981a02", "snapshot");
        row("by name", "Snapshot", "snapshot");
        row("a standard one", "Auto Focus, Start", "focus");
    }

    /// Each control that is listened to reports a change of its range, then a value.
    void buttonControls()
    {
        QFETCH(QString, control);
        const unsigned button = V4L2_CTRL_TYPE_BUTTON;
        const unsigned shutter = V4L2_CID_USER_BASE | 0x1101;
        const unsigned snapshot = 0x00981a02;
        FakeDriver &driver = node("video0");
        driver.controls = {
            {V4L2_CID_AUTO_FOCUS_START, {0, 0, 0, 0, 0, 0, button, "Auto Focus, Start"}},
            {shutter, {0, 0, 0, 0, 0, 0, button, "Shutter"}},
            {snapshot, {0, 1, 1, 0, 0, 0, V4L2_CTRL_TYPE_BOOLEAN, "Snapshot"}}};
        const int end = ::open(utf8("video0"), O_RDWR | O_NONBLOCK);
        FakeDriver &metadata = node("video1");
        metadata.capabilities = V4L2_CAP_META_CAPTURE;
        metadata.controls = driver.controls;
        std::atomic<int> presses{0};
        QString pressed;
        {
            const CaptureButton watch([&] { ++presses; }, {QString(), KEY_CAMERA, control},
                                      path(""), path(""));
            const auto report = [&](const char *name, unsigned id) {
                if (driver.subscribed.count(id) == 0) {
                    return;
                }
                const int before = presses;
                for (const auto &change : {std::pair(V4L2_EVENT_CTRL_CH_RANGE, 1),
                                           std::pair(V4L2_EVENT_CTRL_CH_VALUE, 1)}) {
                    v4l2_event event{};
                    event.type = V4L2_EVENT_CTRL;
                    event.id = id;
                    event.u.ctrl.changes = unsigned(change.first);
                    event.u.ctrl.value = change.second;
                    QCOMPARE(write(end, &event, sizeof event), ssize_t(sizeof event));
                }
                if (QTest::qWaitFor([&] { return presses > before; }, 1000)) {
                    pressed += line(pressed.isEmpty() ? "" : " ") + line(name);
                }
                QCOMPARE(presses, before + 1);
            };
            report("focus", V4L2_CID_AUTO_FOCUS_START);
            report("shutter", shutter);
            report("snapshot", snapshot);
            report("again", control.isEmpty() ? shutter : 0);
        }
        QVERIFY(metadata.subscribed.empty());
        QTEST(pressed, "pressed");
        close(end);
    }
};

QTEST_GUILESS_MAIN(TestCaptureButton)
#include "tst_capturebutton.moc"
