#pragma once
// All members of a configuration, down to its numbers and arrays, found through its description.

#include <array>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

#include "trovi/Reflect.h"
#include "util/tensor/Array.h"

namespace leaves {

template <class T>
inline constexpr bool isList = false;
template <class T, std::size_t N>
inline constexpr bool isList<std::array<T, N>> = true;
template <class T>
inline constexpr bool isTensor = false;
template <class T, std::size_t N>
inline constexpr bool isTensor<util::tensor::Array<T, N>> = true;

/// Calls visit(path, leaf) for each, as in "cnn_layers[3].dimensions.stride.x".
template <class T, class Visit>
void forEach(T& value, const std::string& path, Visit&& visit)
{
    using Value = std::remove_const_t<T>;
    if constexpr (isList<Value>) {
        for (std::size_t i = 0; i < value.size(); ++i)
            forEach(value[i], path + "[" + std::to_string(i) + "]", visit);
    } else if constexpr (trovi::isReflected<Value>) {
        trovi::forEach(trovi::MetaHolder<Value>::members, [&](const auto& member) {
            forEach(value.*(member.field), path.empty() ? member.name : path + "." + member.name, visit);
        });
    } else {
        visit(path, value);
    }
}

/// A value as text; arrays with their shape.
template <class T>
std::string text(const T& value)
{
    if constexpr (isTensor<T>) {
        std::string result;
        for (const auto size : value.dimensions)
            result += "[" + std::to_string(size) + "]";
        for (const auto element : value.data)
            result += " " + std::to_string(element);
        return result;
    } else if constexpr (std::is_enum_v<T>) {
        return std::to_string(static_cast<std::underlying_type_t<T>>(value));
    } else {
        return std::to_string(value);
    }
}

/// One line a leaf; equal for two configurations when they are equal in all, whatever their == compares.
template <class T>
std::string lines(const T& value)
{
    std::string result;
    forEach(value, "", [&](const std::string& path, const auto& leaf) { result += path + " = " + text(leaf) + "\n"; });
    return result;
}

/// Any value of the type; small numbers are as frequent as all others together, since they mean most.
template <class T>
void randomise(T& value, std::mt19937& random)
{
    if constexpr (isTensor<T>) {
        for (auto& size : value.dimensions)
            size = random() % 4 + 1;
        value.data.resize(util::tensor::elementCount(value.dimensions));
        for (std::size_t i = 0; i < value.data.size(); ++i)
            value.data[i] = static_cast<typename decltype(value.data)::value_type>(random() >> 16);
    } else if constexpr (std::is_same_v<T, bool>) {
        value = random() % 2 != 0;
    } else if constexpr (std::is_enum_v<T>) {
        value = static_cast<T>(random() % 32);
    } else {
        value = static_cast<T>(random() % 2 == 0 ? random() % 10 : random());
    }
}

template <class T>
T randomised(std::mt19937& random)
{
    T value;
    forEach(value, "", [&](const std::string&, auto& leaf) { randomise(leaf, random); });
    return value;
}

/// Another value of the type.
template <class T>
void change(T& value)
{
    if constexpr (isTensor<T>)
        value.data[0] = !value.data[0];
    else if constexpr (std::is_same_v<T, bool>)
        value = !value;
    else if constexpr (std::is_enum_v<T>)
        value = static_cast<T>(static_cast<std::underlying_type_t<T>>(value) + 1);
    else
        value = static_cast<T>(value + 1);
}

} // namespace leaves
