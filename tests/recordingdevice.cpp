// SPDX-License-Identifier: MIT
#include "tests/recordingdevice.h"

#include "tests/recordingcall.h"

#include <QMetaObject>
#include <QPointer>
#include <QTextCodec>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace recording {
namespace {

/// Calls, answers and gate of one function.
struct Function
{
    Answer standing;
    std::deque<Answer> once;
    std::function<void(const QStringList &)> hook;
    bool muted = false;
    int heldForMs = 0; // 0: calls don't wait
    int opened = 0; // a change releases the waiting calls
    int held = 0; // waiting calls
    int count = 0;
    std::any listener;
    void *context = nullptr;
    QByteArray ownText;
};

struct State
{
    std::mutex mutex; // guards everything below
    std::condition_variable changed; // a call was made, or a gate opened
    std::map<QByteArray, Function> functions; // never erased: waiting calls hold references
    QStringList calls;
    QPointer<QObject> receiver;
    QByteArray slot;
    bool throws = false;
    int blocksForMs = 0;
    QByteArray text; // of functions without an answer; null: none
};

/// Never destroyed: worker threads call the device until the very end of the process.
State &state()
{
    static State &immortal = *new State;
    return immortal;
}

/// Runs an action on a function's entry under the lock.
template <class Action> auto with(const QByteArray &function, Action action)
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    return action(state().functions[function]);
}

void open(Function &entry)
{
    entry.heldForMs = 0;
    ++entry.opened;
    state().changed.notify_all();
}

void forgetCalls()
{
    state().calls.clear();
    for (auto &[name, entry] : state().functions) {
        entry.count = 0;
    }
}

} // namespace

void reset()
{
    State &all = state();
    const std::lock_guard<std::mutex> lock(all.mutex);
    forgetCalls();
    for (auto &[name, entry] : all.functions) {
        const int opened = entry.opened;
        const int held = entry.held;
        entry = Function();
        entry.opened = opened;
        entry.held = held;
        open(entry);
    }
    all.receiver.clear();
    all.slot.clear();
    all.throws = false;
    all.blocksForMs = 0;
    all.text.clear();
}

QStringList calls()
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    return state().calls;
}

QStringList takeCalls()
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    QStringList taken = state().calls;
    forgetCalls();
    return taken;
}

QString takeText()
{
    return takeCalls().join(QLatin1Char(' '));
}

int count(const QByteArray &function)
{
    return with(function, [](const Function &entry) { return entry.count; });
}

bool waitFor(const QByteArray &function, int count, int timeoutMs)
{
    State &all = state();
    std::unique_lock<std::mutex> lock(all.mutex);
    const Function &entry = all.functions[function];
    return all.changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [&] { return entry.count >= count; });
}

void answer(const QByteArray &function, const Value &result, const Value &output)
{
    with(function, [&](Function &entry) {
        entry.standing = Answer{result.variant(), output.variant()};
    });
}

void answerOnce(const QByteArray &function, const Value &result, const Value &output)
{
    with(function, [&](Function &entry) {
        entry.once.push_back({result.variant(), output.variant()});
    });
}

void mute(const QList<QByteArray> &functions)
{
    for (const QByteArray &function : functions) {
        with(function, [](Function &entry) { entry.muted = true; });
    }
}

void hold(const QByteArray &function, int forMs)
{
    with(function, [forMs](Function &entry) { entry.heldForMs = forMs; });
}

void release(const QByteArray &function)
{
    with(function, open);
}

void throwAlways()
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().throws = true;
}

void blockAlways(int ms)
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().blocksForMs = ms;
}

void answerTexts(const QByteArray &text)
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().text = text;
}

QByteArray textWithoutAnswer()
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    return state().text;
}

bool waitUntilHeld(const QByteArray &function)
{
    State &all = state();
    std::unique_lock<std::mutex> lock(all.mutex);
    const Function &entry = all.functions[function];
    return all.changed.wait_for(lock, std::chrono::seconds(30),
                                [&entry] { return entry.held > 0; });
}

void whenCalled(const QByteArray &function, std::function<void(const QStringList &arguments)> hook)
{
    with(function, [&hook](Function &entry) { entry.hook = std::move(hook); });
}

std::any listenerOf(const QByteArray &function)
{
    return with(function, [](const Function &entry) { return entry.listener; });
}

void *contextOf(const QByteArray &function)
{
    return with(function, [](const Function &entry) { return entry.context; });
}

bool notifyObserver(int number)
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    const QByteArray slot = state().slot;
    // "1name(int)", as the SLOT macro writes it; a queued call copies its argument and returns.
    const QByteArray name = slot.mid(1, slot.indexOf('(') - 1);
    return state().receiver
        && QMetaObject::invokeMethod(state().receiver, name.constData(), Qt::QueuedConnection,
                                     Q_ARG(int, number));
}

Answer take(const char *function, const QStringList &arguments)
{
    State &all = state();
    std::unique_lock<std::mutex> lock(all.mutex);
    Function &entry = all.functions[function];
    const QString written = QLatin1String(function) + QLatin1Char('(')
        + arguments.join(QLatin1Char(',')) + QLatin1Char(')');
    if (!entry.muted) {
        all.calls.append(written);
    }
    ++entry.count;
    all.changed.notify_all();

    if (entry.heldForMs > 0) {
        ++entry.held;
        all.changed.notify_all();
        all.changed.wait_for(lock, std::chrono::milliseconds(entry.heldForMs),
                             [&entry, opened = entry.opened] { return entry.opened != opened; });
        --entry.held;
    }
    if (const auto hook = entry.hook) {
        lock.unlock();
        hook(arguments);
        lock.lock();
    }
    if (const int ms = all.blocksForMs) {
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        lock.lock();
    }
    if (all.throws) {
        throw std::runtime_error("the device is broken");
    }

    if (entry.once.empty()) {
        return entry.standing;
    }
    Answer answer = entry.once.front();
    entry.once.pop_front();
    return answer;
}

const char *keepText(const char *function, const QByteArray &text)
{
    return with(function, [&text](Function &entry) {
        entry.ownText = text;
        return entry.ownText.constData();
    });
}

void keepListener(const char *function, const std::any &listener)
{
    with(function, [&listener](Function &entry) { entry.listener = listener; });
}

void keepContext(const char *function, void *context)
{
    with(function, [context](Function &entry) { entry.context = context; });
}

void keepObserver(QObject *receiver, const char *slot)
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().receiver = receiver;
    state().slot = slot;
}

QString textOf(const char *text)
{
    if (!text) {
        return QStringLiteral("null");
    }
    QTextCodec::ConverterState decoding;
    const QByteArray bytes(text);
    QString decoded =
        QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &decoding);
    if (decoding.invalidChars > 0 || decoding.remainingChars > 0) {
        return QLatin1String("hex:") + QLatin1String(bytes.toHex());
    }
    return decoded;
}

QString textOf(Bytes bytes)
{
    return bytes.data ? QString::fromLatin1(QByteArray(bytes.data).toHex())
                      : QStringLiteral("null");
}

QString textOf(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString textOf(const QObject *object)
{
    return object ? QLatin1String(object->metaObject()->className()) : QStringLiteral("null");
}

QString textOf(const void *context)
{
    return context ? QStringLiteral("context") : QStringLiteral("null");
}

} // namespace recording
