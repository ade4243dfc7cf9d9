// SPDX-License-Identifier: MIT
/// \file Carries a call of the device interface to the device process, whatever its type is.
#pragma once

#include "deviceprocess/arguments.h"
#include "deviceprocess/stub/devicehost.h"
#include "deviceprocess/stub/listeners.h"
#include "deviceprocess/stub/mappedpictures.h"
#include "deviceprocess/stub/owedresults.h"
#include "deviceprocess/wire.h"

#include <QImage>
#include <QString>
#include <opencv2/core.hpp>

#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <tuple>

namespace deviceprocess {

/// The bytes behind a pointer of unknown length: up to the first NUL, and as far on as may count.
QByteArray bytesBehind(const char *data);

/// The real function when the library is loaded into this process; null while it isn't.
void *insideFunction(FunctionId function);

/// Pointers to give pictures of the host that answered this thread back.
std::function<ReleasePixels(std::uint64_t)> releaseOfThread();

template <class Args, std::size_t index, FunctionKind kind>
void writeArgument(Writer &writer, FunctionId function, const Args &args)
{
    constexpr Role role = roleOf<Args, index, kind>();
    const auto &arg = std::get<index>(args);
    if constexpr (role == Role::Value) {
        writer.value(arg);
    } else if constexpr (role == Role::Text) {
        writer.bytes(arg, arg ? qint64(std::strlen(arg)) : 0);
    } else if constexpr (role == Role::RawBytes) {
        writer.bytes(bytesBehind(arg));
    } else if constexpr (role == Role::Pointer) {
        writer.value(Listeners::instance().numberOf(arg));
    } else if constexpr (role == Role::Listener) {
        Listeners::instance().setListener(function, reinterpret_cast<Listeners::Function>(arg));
    } else if constexpr (role == Role::Receiver) {
        Listeners::instance().setReceiver(arg, std::get<index + 1>(args));
    } else if constexpr (role == Role::Slot) {
        writer.bytes(arg, qint64(std::strlen(arg)));
    }
}

template <class Value> void readOutput(Reader &reader, Value *output)
{
    if constexpr (std::is_same_v<Value, QString>) {
        *output = QString::fromUtf8(reader.bytes());
    } else if constexpr (std::is_same_v<Value, SizeList>) {
        const auto count = reader.value<std::uint32_t>();
        output->clear();
        for (std::uint32_t i = 0; i < count && reader.isOk(); ++i) {
            const auto width = reader.value<double>();
            output->emplace_back(width, reader.value<double>());
        }
    } else if constexpr (std::is_same_v<Value, int>) {
        *output = reader.value<int>();
    } else if (!readPicture(reader, releaseOfThread(), output)) {
        reader.fail();
    }
}

template <class Args, std::size_t index, FunctionKind kind>
void readArgument(Reader &reader, const Args &args)
{
    constexpr Role role = roleOf<Args, index, kind>();
    if constexpr (role == Role::Output) {
        using Type = std::tuple_element_t<index, Args>;
        if constexpr (std::is_pointer_v<Type>) {
            readOutput(reader, std::get<index>(args));
        } else {
            readOutput(reader, &std::get<index>(args));
        }
    } else if constexpr (role == Role::Buffer) {
        const QByteArray text = reader.bytes();
        const int capacity = std::get<index + 1>(args);
        if (capacity > 0) {
            qstrncpy(std::get<index>(args), text.constData(), uint(capacity));
        }
    }
}

/// Empties what a failed call should have filled.
template <class Args, std::size_t index, FunctionKind kind> void clearArgument(const Args &args)
{
    constexpr Role role = roleOf<Args, index, kind>();
    if constexpr (role == Role::Output) {
        using Type = std::tuple_element_t<index, Args>;
        if constexpr (std::is_pointer_v<Type>) {
            *std::get<index>(args) = std::remove_pointer_t<Type>();
        } else {
            std::get<index>(args) = std::remove_reference_t<Type>();
        }
    } else if constexpr (role == Role::Buffer) {
        if (std::get<index + 1>(args) > 0) {
            *std::get<index>(args) = '\0';
        }
    }
}

/// A text of the library's own: valid until the same function is called again.
template <FunctionId function> const char *keep(const QByteArray &text)
{
    static std::mutex mutex;
    static std::array<QByteArray, 4> kept; // other threads may call meanwhile
    static std::size_t next = 0;
    const std::lock_guard<std::mutex> lock(mutex);
    QByteArray &place = kept[next++ % kept.size()];
    place = text;
    return text.isNull() ? nullptr : place.constData();
}

template <FunctionId function, class Result> Result readResult(Reader &reader)
{
    if constexpr (std::is_same_v<Result, char *>) {
        const QByteArray text = reader.bytes();
        return text.isNull() ? nullptr : ::strdup(text.constData());
    } else if constexpr (std::is_same_v<Result, const char *>) {
        return keep<function>(reader.bytes());
    } else {
        return reader.value<Result>();
    }
}

constexpr bool isAnsweredLater(FunctionKind kind)
{
    return kind == FunctionKind::Later || kind == FunctionKind::Score;
}

/// What a listener gets when there is no result.
template <FunctionKind kind, class Type> Type failureValue([[maybe_unused]] void *context)
{
    if constexpr (std::is_same_v<Type, void *>) {
        return context;
    } else if constexpr (std::is_arithmetic_v<Type>) {
        return kind == FunctionKind::Score ? Type(-1) : Type(0);
    } else {
        return Type();
    }
}

template <FunctionKind kind, class... Values>
OwedResults::Fail failureOf(void (*listener)(Values...), void *context)
{
    return [=] { listener(failureValue<kind, Values>(context)...); };
}

/// Calls the listener among the arguments with a failure.
template <FunctionKind kind, std::size_t index = 0, class Args>
OwedResults::Fail failureAmong(const Args &args)
{
    if constexpr (roleOf<Args, index, kind>() != Role::Listener) {
        return failureAmong<kind, index + 1>(args);
    } else if constexpr (index + 1 < std::tuple_size_v<Args>) {
        return failureOf<kind>(std::get<index>(args), std::get<index + 1>(args));
    } else {
        return failureOf<kind>(std::get<index>(args), nullptr);
    }
}

template <FunctionId function, FunctionKind kind, class Type> struct Forward;

template <FunctionId function, FunctionKind kind, class Result, class... Args>
struct Forward<function, kind, Result(Args...)>
{
    using Tuple = std::tuple<Args...>;

    static Result call(Args... args)
    {
        if (void *inside = insideFunction(function)) {
            return reinterpret_cast<Result (*)(Args...)>(inside)(args...);
        }
        return carry(Tuple(args...), std::index_sequence_for<Args...>());
    }

private:
    template <std::size_t... index>
    static Result carry(const Tuple &args, std::index_sequence<index...> indices)
    {
        if constexpr (!isAnsweredLater(kind)) {
            return exchange(args, nullptr, indices);
        } else {
            OwedResults &owed = OwedResults::instance();
            const quint64 call = owed.expect(function, failureAmong<kind>(args));
            bool isOk = false;
            if constexpr (std::is_void_v<Result>) { // it always calls its listener
                exchange(args, &isOk, indices);
                isOk ? owed.promise(call, DeviceHost::generationOfThread()) : owed.fail(call);
            } else {
                const Result result = exchange(args, &isOk, indices);
                result ? owed.promise(call, DeviceHost::generationOfThread()) : owed.forget(call);
                return result;
            }
        }
    }

    /// \param done  set when the call has been answered; may be null
    template <std::size_t... index>
    static Result exchange([[maybe_unused]] const Tuple &args, bool *done,
                           std::index_sequence<index...>)
    {
        Writer writer;
        (writeArgument<Tuple, index, kind>(writer, function, args), ...);
        Message reply;
        bool isOk = DeviceHost::instance().call(function, kind, writer, &reply)
            && reply.kind == MessageKind::Reply;
        const quint64 generation = DeviceHost::generationOfThread();
        Reader answer(reply);
        std::conditional_t<std::is_void_v<Result>, char, Result> result{};
        if (isOk) {
            if constexpr (!std::is_void_v<Result>) {
                result = readResult<function, Result>(answer);
            }
            (readArgument<Tuple, index, kind>(answer, args), ...);
            isOk = accept(answer, generation);
        }
        closeDescriptor(&reply.descriptor);
        if (!isOk) {
            (clearArgument<Tuple, index, kind>(args), ...);
            result = {};
        }
        if (done) {
            *done = isOk;
        }
        if constexpr (!std::is_void_v<Result>) {
            return result;
        }
    }

    static bool accept(const Reader &answer, quint64 generation)
    {
        if (!answer.isOk()) {
            DeviceHost::instance().rejectGarbage(function, generation);
        }
        return answer.isOk();
    }
};

/// An argument of a listener, from an event
template <class Type> class EventArgument
{
public:
    explicit EventArgument(Reader &reader)
    {
        if constexpr (std::is_arithmetic_v<Type>) {
            m_value = reader.value<Type>();
        } else if constexpr (std::is_same_v<Type, void *>) {
            if (!Listeners::instance().contextOf(reader.value<std::uint64_t>(), &m_value)) {
                reader.fail();
            }
        } else {
            m_value = reader.bytes();
        }
    }

    Type pass() const
    {
        if constexpr (std::is_same_v<Type, const char *>) {
            return m_value.isNull() ? nullptr : m_value.constData();
        } else {
            return m_value;
        }
    }

private:
    std::conditional_t<std::is_same_v<Type, const char *>, QByteArray, Type> m_value{};
};

/// Finds the listener among the parameters of a function.
template <FunctionId function, class... Args> struct Delivery
{
    static constexpr Deliver deliver = nullptr;
};
template <FunctionId function, class First, class... Rest> struct Delivery<function, First, Rest...>
{
    static constexpr Deliver deliver = Delivery<function, Rest...>::deliver;
};
template <FunctionId function, class... Args, class... Rest>
struct Delivery<function, void (*)(Args...), Rest...>
{
    static bool deliver(Reader &reader)
    {
        return deliverWith(reader, std::index_sequence_for<Args...>());
    }

private:
    template <std::size_t... index>
    static bool deliverWith(Reader &reader, std::index_sequence<index...>)
    {
        // In braces: from left to right.
        const std::tuple<EventArgument<Args>...> args{EventArgument<Args>(reader)...};
        const auto listener = Listeners::instance().listener(function);
        if (!reader.isOk() || !listener) {
            return false;
        }
        OwedResults::instance().settle(function);
        reinterpret_cast<void (*)(Args...)>(listener)(std::get<index>(args).pass()...);
        return true;
    }
};
template <FunctionId function, class... Rest> struct Delivery<function, QObject *, Rest...>
{
    static bool deliver(Reader &reader)
    {
        const int number = reader.value<int>();
        Listeners::instance().callReceiver(number);
        return reader.isOk();
    }
};

template <FunctionId function, class Type> struct DeliveryOf;
template <FunctionId function, class Result, class... Args>
struct DeliveryOf<function, Result(Args...)> : Delivery<function, Args...>
{
};

} // namespace deviceprocess
