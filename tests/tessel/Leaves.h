#pragma once
// All members of a configuration, down to its numbers and arrays, found through its description.

#include <array>
#include <cstdint>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
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

template <class Array>
void reshape(Array& array, const typename Array::Dimensions& dimensions)
{
    array.dimensions = dimensions;
    array.data.assign(util::tensor::elementCount(dimensions), {});
}

/// Sets leaves by their paths: "readout.threshold=5 cnn_layers[1].biases=4"; of an array, its shape.
template <class T>
void assign(T& value, const std::string& text)
{
    std::map<std::string, std::string> wanted;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        wanted[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    forEach(value, "", [&]<class Leaf>(const std::string& path, Leaf& leaf) {
        const auto found = wanted.find(path);
        if (found == wanted.end())
            return;
        std::istringstream numbers(found->second);
        if constexpr (isTensor<Leaf>) {
            auto dimensions = leaf.dimensions;
            for (auto& size : dimensions)
                (numbers >> size).ignore();
            reshape(leaf, dimensions);
        } else {
            int number = 0;
            numbers >> number;
            leaf = static_cast<Leaf>(number);
        }
        wanted.erase(found);
    });
    if (!wanted.empty())
        throw std::invalid_argument(wanted.begin()->first);
}

/// An array of that shape with any values.
template <class Array>
void fill(Array& array, const typename Array::Dimensions& dimensions, std::mt19937& random)
{
    reshape(array, dimensions);
    for (std::size_t i = 0; i < array.data.size(); ++i)
        array.data[i] = static_cast<typename decltype(array.data)::value_type>(random() >> 16);
}

/// Any value of the type; those at which something begins or ends are as frequent as all others together.
template <class T>
void randomise(T& value, std::mt19937& random)
{
    static constexpr int edges[]{-32768, -1, 0,  1,   2,   3,   4,   5,   7,   8,    9,    14,    15,
                                 16,     17, 31, 32,  63,  64,  65,  127, 128, 129,  255,  1023,  1024,
                                 1025,   -2, 10, 100, 250, 254, 256, 512, 512, 1020, 4096, 32767, 65535};
    if constexpr (isTensor<T>) {
        typename T::Dimensions dimensions;
        for (auto& size : dimensions)
            size = random() % 4;
        fill(value, dimensions, random);
    } else if constexpr (std::is_same_v<T, bool>) {
        value = random() % 2 != 0;
    } else if constexpr (std::is_enum_v<T>) {
        value = static_cast<T>(random() % 32);
    } else {
        value = static_cast<T>(random() % 2 == 0 ? edges[random() % std::size(edges)] : static_cast<int>(random()));
    }
}

/// Changes one leaf in `rarity` of them.
template <class T>
void randomise(T& value, std::mt19937& random, unsigned rarity)
{
    forEach(value, "", [&](const std::string&, auto& leaf) {
        if (random() % rarity == 0)
            randomise(leaf, random);
    });
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
