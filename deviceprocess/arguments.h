// SPDX-License-Identifier: MIT
/// \file What the arguments of a device function are, seen from its type alone.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

class QImage;
class QObject;
class QString;
namespace cv {
class Mat;
}

namespace deviceprocess {

using SizeList = std::vector<std::pair<double, double>>;

/// How a function of functions.h is treated; see there.
enum class FunctionKind { Query, Setting, SettingOf, Opening, Closing, Raw, Frame, Later, Score };

/// What an argument does; follows from its type and its neighbours'.
enum class Role {
    Value, ///< A number or truth value.
    Text, ///< NUL-terminated, or null.
    RawBytes, ///< A pointer to bytes of unknown number.
    Pointer, ///< A context that comes back to the listener.
    Reserved, ///< void * that the caller passes as null.
    Listener, ///< A function of the server's process.
    Receiver, ///< A QObject of the server's process; a slot's name follows.
    Slot, ///< The name of a slot of the receiver before it.
    Buffer, ///< char * to be filled; its capacity follows.
    Output, ///< A reference or pointer to be filled.
};

template <class Type> struct IsFunctionPointer : std::false_type
{
};
template <class... Args> struct IsFunctionPointer<void (*)(Args...)> : std::true_type
{
};

template <class Tuple, std::size_t index, bool exists = (index < std::tuple_size<Tuple>::value)>
struct ElementOrVoid
{
    using Type = void;
};
template <class Tuple, std::size_t index> struct ElementOrVoid<Tuple, index, true>
{
    using Type = std::tuple_element_t<index, Tuple>;
};

template <class Type> constexpr bool isOutput = false;
template <> inline constexpr bool isOutput<QImage &> = true;
template <> inline constexpr bool isOutput<cv::Mat &> = true;
template <> inline constexpr bool isOutput<SizeList &> = true;
template <> inline constexpr bool isOutput<QString *> = true;
template <> inline constexpr bool isOutput<int *> = true;

/// \tparam Args  a tuple of the argument types
template <class Args, std::size_t index, FunctionKind kind> constexpr Role roleOf()
{
    using Type = std::tuple_element_t<index, Args>;
    using Former = typename ElementOrVoid<Args, index - 1>::Type;
    if constexpr (std::is_arithmetic_v<Type>) {
        return Role::Value;
    } else if constexpr (std::is_same_v<Type, const char *>) {
        if constexpr (std::is_same_v<Former, QObject *>) {
            return Role::Slot;
        } else {
            return kind == FunctionKind::Raw ? Role::RawBytes : Role::Text;
        }
    } else if constexpr (std::is_same_v<Type, void *>) {
        return IsFunctionPointer<Former>::value ? Role::Pointer : Role::Reserved;
    } else if constexpr (IsFunctionPointer<Type>::value) {
        return Role::Listener;
    } else if constexpr (std::is_same_v<Type, QObject *>) {
        return Role::Receiver;
    } else if constexpr (std::is_same_v<Type, char *>) {
        return Role::Buffer;
    } else {
        static_assert(isOutput<Type>, "an argument type that nobody has taught to travel");
        return Role::Output;
    }
}

/// Index of each function in functions.h.
enum class FunctionId : std::uint32_t {
#define DEVICE(library, kind, seconds, result, name, parameters, names) name,
#include "devicelib/functions.h"
    Count
};

constexpr std::size_t functionCount = std::size_t(FunctionId::Count);

/// Name of a function; "?" for a number that is none's.
const char *functionName(std::uint32_t function);

/// How long a function may take, in seconds, before a factor.
int functionSeconds(std::uint32_t function);

} // namespace deviceprocess
