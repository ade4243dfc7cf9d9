// SPDX-License-Identifier: MIT
/// \file Executes calls of the device interface, whatever their types are; the host's half.
#pragma once

#include "deviceprocess/arguments.h"
#include "deviceprocess/host/callerlink.h"
#include "deviceprocess/host/pictures.h"
#include "deviceprocess/wire.h"

#include <QImage>
#include <QString>
#include <opencv2/core.hpp>

#include <cstdlib>
#include <tuple>

namespace deviceprocess {

/// Carries one call out: reads arguments, calls the library, writes result and outputs.
using Execute = void (*)(void *libraryFunction, Reader &arguments, Writer &reply,
                         Pictures &pictures);

/// Passed to the library as the receiver of iAutoScan_observr.
QObject *relayReceiver();
const char *relaySlot();

template <class WriteAll, std::size_t... index>
void passOnIndexed(const WriteAll &writeAll, std::index_sequence<index...>)
{
    writeAll(std::integral_constant<std::size_t, index>()...);
}

/// The listener that the library gets in place of the server's.
template <FunctionId function, class... Args> void passOn(Args... args)
{
    Writer event;
    const std::tuple<Args...> all(args...);
    const auto write = [&](auto arg, auto after) {
        using Type = decltype(arg);
        if constexpr (std::is_arithmetic_v<Type>) {
            event.value(arg);
        } else if constexpr (std::is_same_v<Type, void *>) {
            event.value(std::uint64_t(reinterpret_cast<std::uintptr_t>(arg)));
        } else if constexpr (std::is_same_v<Type, const char *>) {
            // A number behind the pointer is its length.
            if constexpr (std::is_same_v<decltype(after), int>) {
                event.bytes(arg, std::max(after, 0));
            } else {
                event.bytes(arg, arg ? qint64(std::strlen(arg)) : 0);
            }
        } else {
            event.bytes(arg);
        }
    };
    const auto writeAll = [&](auto... index) {
        (
            [&] {
                constexpr std::size_t i = decltype(index)::value;
                if constexpr (i + 1 < sizeof...(Args)) {
                    write(std::get<i>(all), std::get<i + 1>(all));
                } else {
                    write(std::get<i>(all), nullptr);
                }
            }(),
            ...);
    };
    passOnIndexed(writeAll, std::index_sequence_for<Args...>());
    CallerLink::sendEvent(std::uint32_t(function), event);
}

template <FunctionId function, class Listener> struct PassOn;
template <FunctionId function, class... Args> struct PassOn<function, void (*)(Args...)>
{
    static constexpr auto listener = &passOn<function, Args...>;
};

/// The value of an argument while its function is called.
template <Role role, class Type> struct Stored
{
    Type value{};
};
template <class Type> struct Stored<Role::Text, Type>
{
    QByteArray value;
};
template <class Type> struct Stored<Role::RawBytes, Type>
{
    QByteArray value;
};
template <class Type> struct Stored<Role::Slot, Type>
{
    QByteArray value;
};
template <class Type> struct Stored<Role::Output, Type>
{
    std::remove_pointer_t<std::remove_reference_t<Type>> value{};
};
template <class Type> struct Stored<Role::Buffer, Type>
{
    QByteArray value = QByteArray(4096, '\0'); ///< No version text is longer.
};

template <FunctionId function, FunctionKind kind, class Type> struct Execution;

template <FunctionId function, FunctionKind kind, class Result, class... Args>
struct Execution<function, kind, Result(Args...)>
{
    using Tuple = std::tuple<Args...>;
    template <std::size_t index> static constexpr Role role = roleOf<Tuple, index, kind>();

    static void execute(void *libraryFunction, Reader &arguments, Writer &reply, Pictures &pictures)
    {
        executeWith(reinterpret_cast<Result (*)(Args...)>(libraryFunction), arguments, reply,
                    pictures, std::index_sequence_for<Args...>());
    }

private:
    template <std::size_t... index>
    static void executeWith(Result (*call)(Args...), Reader &arguments, Writer &reply,
                            [[maybe_unused]] Pictures &pictures, std::index_sequence<index...>)
    {
        [[maybe_unused]] std::tuple<Stored<role<index>, Args>...> stored;
        (read<index>(arguments, std::get<index>(stored)), ...);
        if (!arguments.isOk()) {
            return; // the reply is empty, which the server doesn't take
        }
        if constexpr (std::is_void_v<Result>) {
            call(pass<index>(std::get<index>(stored))...);
        } else {
            writeResult(reply, call(pass<index>(std::get<index>(stored))...));
        }
        (writeOutput<index>(reply, std::get<index>(stored), pictures), ...);
    }

    template <std::size_t index, class Value> static void read(Reader &reader, Value &stored)
    {
        constexpr Role what = role<index>;
        using Type = std::tuple_element_t<index, Tuple>;
        if constexpr (what == Role::Value) {
            stored.value = reader.value<Type>();
        } else if constexpr (what == Role::Text || what == Role::RawBytes || what == Role::Slot) {
            stored.value = reader.bytes();
        } else if constexpr (what == Role::Pointer) {
            stored.value = reinterpret_cast<void *>(std::uintptr_t(reader.value<std::uint64_t>()));
        } else if constexpr (what == Role::Listener) {
            stored.value = PassOn<function, Type>::listener;
        } else if constexpr (what == Role::Receiver) {
            stored.value = relayReceiver();
        }
    }

    template <std::size_t index, class Value>
    static std::tuple_element_t<index, Tuple> pass(Value &stored)
    {
        constexpr Role what = role<index>;
        if constexpr (what == Role::Text || what == Role::RawBytes) {
            return stored.value.isNull() ? nullptr : stored.value.constData();
        } else if constexpr (what == Role::Slot) {
            return relaySlot();
        } else if constexpr (what == Role::Buffer) {
            return stored.value.data();
        } else if constexpr (what == Role::Output
                             && std::is_pointer_v<std::tuple_element_t<index, Tuple>>) {
            return &stored.value;
        } else {
            return stored.value;
        }
    }

    template <class Value> static void writeResult(Writer &reply, Value result)
    {
        if constexpr (std::is_same_v<Value, char *>) {
            reply.bytes(result, result ? qint64(std::strlen(result)) : 0);
            std::free(result);
        } else if constexpr (std::is_same_v<Value, const char *>) {
            reply.bytes(result, result ? qint64(std::strlen(result)) : 0);
        } else {
            reply.value(result);
        }
    }

    template <std::size_t index, class Value>
    static void writeOutput(Writer &reply, Value &stored, Pictures &pictures)
    {
        if constexpr (role<index> == Role::Buffer) {
            stored.value[stored.value.size() - 1] = '\0';
            reply.bytes(stored.value.constData(), qint64(std::strlen(stored.value.constData())));
        } else if constexpr (role<index> == Role::Output) {
            using Type = decltype(stored.value);
            if constexpr (std::is_same_v<Type, QString>) {
                reply.bytes(stored.value.toUtf8());
            } else if constexpr (std::is_same_v<Type, SizeList>) {
                reply.value(std::uint32_t(stored.value.size()));
                for (const auto &size : stored.value) {
                    reply.value(size.first);
                    reply.value(size.second);
                }
            } else if constexpr (std::is_same_v<Type, int>) {
                reply.value(stored.value);
            } else {
                pictures.write(reply, stored.value);
            }
        }
    }
};

} // namespace deviceprocess
