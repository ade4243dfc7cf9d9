// SPDX-License-Identifier: MIT
//
// A device library that misbehaves on request: the file named by HOSTILE_ORDER holds a
// function's name, "any" or "load", what it does when it is called, and a number for that. Every
// other function fails quietly.

#include "devicelib/biometrics.h"
#include "devicelib/cardreader.h"
#include "devicelib/doccamera.h"
#include "tests/deviceprocess/sample.h"

#include <QMetaObject>
#include <QObject>
#include <QtDebug>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using deviceprocess::FunctionKind;
using deviceprocess::Role;
using deviceprocess::roleOf;

struct Order
{
    std::string function;
    std::string deed;
    int number = 0;
};

/// On every socket of the device process, what no message looks like.
void writeGarbage()
{
    const std::string garbage(4096, '\x7F');
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        if (write(descriptor, garbage.data(), garbage.size()) < 0) {
            continue; // not one of them
        }
    }
}

/// Until there is no more.
void eatMemory()
{
    for (;;) {
        constexpr std::size_t block = 64 << 20;
        std::memset(::operator new(block), 1, block);
    }
}

/// Until there is no room for a thread's stack, but for a few small things.
void fillMemory()
{
    static std::vector<std::unique_ptr<char[]>> blocks;
    constexpr std::size_t small = 256 << 10;
    blocks.reserve(std::size_t(16) << 10);
    try {
        for (;;) {
            blocks.emplace_back(new char[small]);
        }
    } catch (const std::bad_alloc &) {
        blocks.resize(blocks.size() - 8);
    }
}

/// \return the order, when it is for this function, or for any but "load"
Order act(const std::string &function)
{
    std::ifstream file(std::getenv("HOSTILE_ORDER"));
    Order order;
    file >> order.function >> order.deed >> order.number;
    if (order.function != function && (order.function != "any" || function == "load")) {
        return {};
    }
    if (order.deed == "crash") {
        std::raise(SIGSEGV);
    } else if (order.deed == "hang") {
        for (;;) {
            pause();
        }
    } else if (order.deed == "nap") {
        std::this_thread::sleep_for(std::chrono::milliseconds(order.number));
    } else if (order.deed == "throw") {
        throw std::runtime_error("as ordered");
    } else if (order.deed == "garbage") {
        writeGarbage();
    } else if (order.deed == "memory") {
        eatMemory();
    } else if (order.deed == "fill") {
        fillMemory();
    } else if (order.deed == "log") {
        qDebug("debug line");
        qInfo("info line");
        qWarning("warning line");
    }
    return order;
}

/// An order for "load" is carried out before anybody can call.
const Order atLoad = act("load");

/// Does what it is asked for: writes its arguments down, and fills and calls what it is given.
template <FunctionKind kind, class Type> struct Function;
template <FunctionKind kind, class Result, class... Args> struct Function<kind, Result(Args...)>
{
    using Tuple = std::tuple<Args...>;
    const char *name;

    Result operator()(Args... args) const
    {
        const Order order = act(name);
        if (order.deed == "obey" || order.deed == "nulls" || order.deed == "later"
            || order.deed == "stranger" || order.deed == "flood") {
            obey(order, Tuple(args...), std::index_sequence_for<Args...>());
            return result(order);
        }
        return order.deed == "promise" ? result(order) : Result();
    }

private:
    template <std::size_t... index>
    void obey(const Order &order, [[maybe_unused]] const Tuple &args,
              std::index_sequence<index...>) const
    {
        QByteArray line = QByteArray(name) + '(';
        (write<index>(line, std::get<index>(args)), ...);
        std::ofstream(std::string(std::getenv("HOSTILE_ORDER")) + "ed", std::ios::app)
            << line.constData() << ")\n";
        (fill<index>(order, args), ...);
    }

    template <std::size_t index, class Arg> void write(QByteArray &line, const Arg &arg) const
    {
        constexpr Role role = roleOf<Tuple, index, kind>();
        if constexpr (role == Role::RawBytes) {
            line += (arg ? QByteArray(arg, 5).toHex() : QByteArray("null")) + ' ';
        } else if constexpr (role == Role::Value || role == Role::Text) {
            line += sample::described(arg) + ' ';
        }
    }

    template <std::size_t index> void fill(const Order &order, const Tuple &args) const
    {
        constexpr Role role = roleOf<Tuple, index, kind>();
        if constexpr (role == Role::Output) {
            using Type = std::tuple_element_t<index, Tuple>;
            if constexpr (std::is_pointer_v<Type>) {
                sample::fill(std::get<index>(args), index, order.number);
            } else {
                sample::fill(&std::get<index>(args), index, order.number);
            }
        } else if constexpr (role == Role::Buffer) {
            std::strcpy(std::get<index>(args), sample::version);
        } else if constexpr (role == Role::Receiver) {
            QMetaObject::invokeMethod(std::get<index>(args), "take", Q_ARG(int, 5));
        } else if constexpr (role == Role::Listener) {
            void *context = nullptr;
            if constexpr (index + 1 < sizeof...(Args)) {
                context = std::get<index + 1>(args);
            }
            if (order.deed == "stranger") {
                context = reinterpret_cast<void *>(99);
            }
            const auto listener = std::get<index>(args);
            const int times = order.deed == "flood" ? order.number : 1;
            const auto callAll = [=] {
                for (int i = 0; i < times; ++i) {
                    call(listener, context);
                }
            };
            if (order.deed == "obey" || order.deed == "nulls") {
                callAll();
            } else {
                std::thread(callAll).join();
            }
        }
    }

    template <class... Values> static void call(void (*listener)(Values...), void *context)
    {
        callWith(listener, context, std::index_sequence_for<Values...>());
    }
    template <class... Values, std::size_t... index>
    static void callWith(void (*listener)(Values...), [[maybe_unused]] void *context,
                         std::index_sequence<index...>)
    {
        listener(argument<Values>(index, context)...);
    }
    template <class Value> static Value argument(std::size_t index, void *context)
    {
        if constexpr (std::is_same_v<Value, void *>) {
            return context;
        } else if constexpr (std::is_same_v<Value, QByteArray>) {
            return sample::feature(index);
        } else if constexpr (std::is_arithmetic_v<Value>) {
            return sample::number<Value>(index);
        } else {
            static QByteArray texts[8];
            texts[index] = sample::text(index);
            return texts[index].constData();
        }
    }

    static Result result(const Order &order)
    {
        if constexpr (std::is_same_v<Result, const char *>) {
            return order.deed == "nulls" ? nullptr : "a result";
        } else if constexpr (std::is_pointer_v<Result>) {
            return order.deed == "nulls" ? nullptr : ::strdup("a result");
        } else if constexpr (!std::is_void_v<Result>) {
            return sample::number<Result>(0);
        }
    }
};

} // namespace

#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        const Function<FunctionKind::kind, result parameters> function{#name};                     \
        return function names;                                                                     \
    }
#include "devicelib/functions.h"
