// SPDX-License-Identifier: MIT
/**
 * \file
 * A device library for tests: implements all of devicelib/ by writing down each call with its
 * arguments and answering what the test told it. Every function here may be called from any thread.
 *
 *     void init() { recording::reset(); }
 *
 *     recording::answer("bSaveJPG", true);                      // until it is told otherwise
 *     recording::answerOnce("bStartPlay", false);               // first this one, then the former
 *     recording::answer("getVideoFrame", true, image);          // result, then what it fills in
 *     recording::answer("readIDMsg_qt", {}, "name|number");     // a function without a result
 *     recording::answer("sGetBarCode", nullptr);                // a null text
 *     ...
 *     QCOMPARE(recording::takeText(), QStringLiteral("bStartPlay(90) bSaveJPG(/tmp,scan1)"));
 *
 *     recording::hold("lImageMatch");                           // a slow device
 *     ...
 *     QVERIFY(recording::waitFor("lImageMatch"));               // it was called and is waiting
 *     recording::release("lImageMatch");
 *
 *     const auto onResult = recording::listener<void(int, void *)>("bImageMatchOnline");
 *     std::thread([onResult] { onResult(80, nullptr); }).join();
 *
 * Arguments are written as texts: a text as it is (in hex after "hex:" when it isn't UTF-8), raw
 * bytes in hex up to the first zero byte, a null pointer as "null", a listener as "listener", a
 * context as "context", a receiver as its class. What a function fills in is no argument.
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
 * What the device says: bool, number, text (null: nullptr), QImage, cv::Mat, a vector of pairs of
 * doubles (getResolutionIndex), QPoint (vGetDPI). Nothing is the default: false, 0, null, empty.
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

/// Forgets calls, answers, hooks and listeners, and releases who waits. For init().
void reset();

/// The calls since reset() or the last take, in order, as "bStartPlay(90)".
QStringList calls();
QStringList takeCalls(); ///< The same, and forgets them.
QString takeText(); ///< The same as one text, parted by blanks.

/// How often a function was called since reset() or the last take, muted ones included.
int count(const QByteArray &function);

/// Waits, without an event loop, until count() is reached; false when the time is over.
bool waitFor(const QByteArray &function, int count = 1, int timeoutMs = 10000);

/// What a function returns, and what it fills in, from now on; before that, the default.
void answer(const QByteArray &function, const Value &result, const Value &output = {});

/// The same for one call; used up in the order given, before the standing answer.
void answerOnce(const QByteArray &function, const Value &result, const Value &output = {});

/// Leaves the calls of these out of the list: what a worker thread repeats all the time.
void mute(const QList<QByteArray> &functions);

/// Makes the calls of a function wait, once written down, until release() or that time is over.
void hold(const QByteArray &function, int forMs = 60000);
void release(const QByteArray &function);

/// Waits, without an event loop, until a call is held; false when none is within ten seconds.
bool waitUntilHeld(const QByteArray &function);

/// Runs at each call of a function, on its thread, before it returns: to leave a file, say.
void whenCalled(const QByteArray &function, std::function<void(const QStringList &arguments)> hook);

/// The listener that a function was given last, as std::any of its type; empty when none was.
std::any listenerOf(const QByteArray &function);

/// The same as a function pointer; null when none was given. Another type ends the program.
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

/// The context pointer that a function was given last along with its listener.
void *contextOf(const QByteArray &function);

/// Invokes the slot of iAutoScan_observr, queued, as a device library does. False without one.
bool notifyObserver(int number);

} // namespace recording
