// SPDX-License-Identifier: MIT
/// \file Implements the functions of the recording device library; not for tests.
#pragma once

#include "tests/recordingdevice.h"

#include <QObject>

#include <cstring>
#include <type_traits>

namespace recording {

struct Answer
{
    QVariant result;
    QVariant output;
};

/// Records a call, waits at its gate, runs its hook and takes its answer. May throw.
Answer take(const char *function, const QStringList &arguments);

/// The text of functions without an answer; null: none.
QByteArray textWithoutAnswer();

/// Keeps a text owned by the library until the function's next one.
const char *keepText(const char *function, const QByteArray &text);
void keepListener(const char *function, const std::any &listener);
void keepContext(const char *function, void *context);
void keepObserver(QObject *receiver, const char *slot);

/// Bytes of unknown length, up to the first zero byte.
struct Bytes
{
    const char *data;
};

QString textOf(const char *text);
QString textOf(Bytes bytes);
QString textOf(bool value);
QString textOf(const QObject *object);
QString textOf(const void *context);
template <class Number>
std::enable_if_t<std::is_arithmetic_v<Number>, QString> textOf(Number number)
{
    return QString::number(number);
}
template <class... Parameters> QString textOf(void (*listener)(Parameters...))
{
    return listener ? QStringLiteral("listener") : QStringLiteral("null");
}

template <class Argument> void keep(const char *, const Argument &) { }
template <class... Parameters>
void keep(const char *function, void (*const &listener)(Parameters...))
{
    keepListener(function, listener ? std::any(listener) : std::any());
}
inline void keep(const char *function, void *const &context)
{
    keepContext(function, context);
}

template <class Type>
constexpr bool isText =
    std::is_same_v<
        Type,
        char
            *> || std::is_same_v<Type, const char *> || std::is_same_v<Type, QString> || std::is_same_v<Type, QByteArray>;

template <class Type> Type converted(const char *function, const QVariant &value)
{
    if constexpr (isText<Type>) {
        QByteArray text = value.isValid() ? value.toByteArray() : textWithoutAnswer();
        if constexpr (std::is_same_v<Type, char *>) {
            return text.isNull() ? nullptr : strdup(text.constData());
        } else if constexpr (std::is_same_v<Type, const char *>) {
            return text.isNull() ? nullptr : keepText(function, text);
        } else if constexpr (std::is_same_v<Type, QString>) {
            return QString::fromUtf8(text);
        } else {
            return text;
        }
    } else if constexpr (std::is_same_v<Type, short>) {
        return short(value.toInt());
    } else if constexpr (!std::is_void_v<Type>) {
        return value.value<Type>();
    }
}

/// Implements a function with these arguments, in one line.
template <class Result = void, class... Arguments>
Result call(const char *function, const Arguments &...arguments)
{
    (keep(function, arguments), ...);
    const Answer answer = take(function, {textOf(arguments)...});
    return converted<Result>(function, answer.result);
}

/// The same for a function with an output argument.
template <class Result = void, class Output, class... Arguments>
Result fill(const char *function, Output &output, const Arguments &...arguments)
{
    (keep(function, arguments), ...);
    const Answer answer = take(function, {textOf(arguments)...});
    output = converted<Output>(function, answer.output);
    if constexpr (isText<Output> && std::is_same_v<Result, bool>) {
        if (!answer.result.isValid()) {
            return !textWithoutAnswer().isEmpty();
        }
    }
    return converted<Result>(function, answer.result);
}

} // namespace recording
