// SPDX-License-Identifier: MIT
/**
 * \file
 * A device library for tests: implements all of devicelib/ by recording each call with its
 * arguments and giving the answers that the test has set. Every function here may be called from
 * any thread.
 *
 *     void init() { recording::reset(); }
 *
 *     recording::answer("bSaveJPG", true);                      // until set again
 *     recording::answerOnce("bStartPlay", false);               // once, then the answer above
 *     recording::answer("getVideoFrame", true, image);          // result and output argument
 *     recording::answer("readIDMsg_qt", {}, "name|number");     // a function without a result
 *     recording::answer("sGetBarCode", nullptr);                // a null text
 *     ...
 *     QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90) bSaveJPG(/tmp,scan1)"));
 *
 *     recording::hold("lImageMatch");                           // a slow device
 *     ...
 *     QVERIFY(recording::waitFor("lImageMatch"));               // called, and waiting
 *     recording::release("lImageMatch");
 *
 *     recording::throwAlways();                                 // a broken device: all functions
 *     recording::blockAlways(20);
 *     recording::answerTexts(QByteArray(100'000'000, 'x'));
 *
 *     const auto onResult = recording::listener<void(int, void *)>("bImageMatchOnline");
 *     std::thread([onResult] { onResult(80, nullptr); }).join();
 *
 * Arguments are recorded as texts: a text unchanged (in hex after "hex:" if it isn't UTF-8), raw
 * bytes in hex up to the first zero byte, a null pointer as "null", a callback as "listener", a
 * context as "context", a receiver as its class name. Output arguments are not recorded.
 */
#pragma once

#include <QByteArray>
#include <QStringList>
#include <QVariant>
#include <opencv2/core.hpp>

#include <any>
#include <functional>

Q_DECLARE_METATYPE(cv::Mat)

namespace recording {

/**
 * An answer of the device: bool, number, text (null: nullptr), QImage, cv::Mat, a vector of pairs
 * of doubles (getResolutionIndex) or QPoint (vGetDPI). Default: false, 0, null, empty.
 */
class Value
{
public:
    Value() = default;
    Value(std::nullptr_t) { }
    Value(const char *text)
        : m_value(QByteArray(text))
    {
    }
    template <class Type>
    Value(const Type &value)
        : m_value(QVariant::fromValue(value))
    {
    }
    const QVariant &variant() const { return m_value; }

private:
    QVariant m_value;
};

/// Clears calls, answers, faults, hooks and listeners, and releases held calls. For init().
void reset();

/// The calls since reset() or the last take, in order, as "bStartPlay(90)".
QStringList calls();
QStringList takeCalls(); ///< The same, and clears them.
QString takeText(); ///< takeCalls() as one text, separated by blanks.

/// Number of calls of a function since reset() or the last take, including muted ones.
int count(const QByteArray &function);

/// Waits, without an event loop, until a function was called this often; false on timeout.
bool waitFor(const QByteArray &function, int count = 1, int timeoutMs = 30000);

/// Sets a function's result and output argument from now on, instead of the default.
void answer(const QByteArray &function, const Value &result, const Value &output = {});

/// Sets the answer to one call; used in the order given, before that of answer().
void answerOnce(const QByteArray &function, const Value &result, const Value &output = {});

/// Omits these functions from calls(), for what a worker thread calls all the time.
void mute(const QList<QByteArray> &functions);

/// Makes calls of a function wait, once recorded, until release() or for this time.
void hold(const QByteArray &function, int forMs = 60000);
void release(const QByteArray &function);

/// Makes every call throw std::runtime_error, once recorded.
void throwAlways();

/// Makes every call take this long, once recorded.
void blockAlways(int ms);

/// Sets the answer of every function with a text, result or output, that has no answer of its own.
/// Those that tell by a bool whether there is a text say that there is one.
void answerTexts(const QByteArray &text);

/// Waits, without an event loop, until a call is held; false on timeout.
bool waitUntilHeld(const QByteArray &function);

/// Runs a hook at each call of a function, on its thread, before it returns: to create a file, say.
void whenCalled(const QByteArray &function, std::function<void(const QStringList &arguments)> hook);

/// The callback last passed to a function, as std::any of its type; empty if none was.
std::any listenerOf(const QByteArray &function);

/// The same as a function pointer; null if none was passed. Another type ends the program.
template <class Function> Function *listener(const QByteArray &function)
{
    const std::any given = listenerOf(function);
    if (!given.has_value()) {
        return nullptr;
    }
    if (given.type() != typeid(Function *)) {
        qFatal("The listener of %s has another type", function.constData());
    }
    return std::any_cast<Function *>(given);
}

/// The context last passed to a function along with its callback.
void *contextOf(const QByteArray &function);

/// Invokes the slot set with iAutoScan_observr, queued, as a device library does. False if none.
bool notifyObserver(int number);

} // namespace recording
