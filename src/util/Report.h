#pragma once
// The building blocks of validators. Each function checks one value and writes one line if it is wrong. None throws, so
// a validator joins their results and its caller gets all findings at once.
//
//   bool valid = util::reportIfNotInRange(config.threshold, 0, 255, [] { return "threshold"; }, errors);
//   const auto name = [&] { return "mode of core " + std::to_string(i); };
//   valid = util::reportIfNotEqual(config.mode, 1, name, errors) && valid;
//
// A name is a callable. It is called for a wrong value only, since validators check thousands of good ones.

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>
#include <type_traits>

namespace util {

namespace detail {

// A char is a character; the two other types of that size are numbers.
template <class T>
void print(std::ostream& stream, const T& value)
{
    if constexpr (std::is_same_v<T, unsigned char> || std::is_same_v<T, signed char>)
        stream << static_cast<int>(value);
    else
        stream << value;
}

} // namespace detail

/// True when `value` lies in low to high, both ends included. Otherwise writes
/// "threshold must be in [0,255]. Actual: 300" and a newline.
/// @param name  callable without arguments that gives a text
template <class T, class Name>
bool reportIfNotInRange(const T& value, const std::type_identity_t<T>& low, const std::type_identity_t<T>& high,
                        Name&& name, std::ostream& stream)
{
    if (low <= value && value <= high)
        return true;
    stream << name() << " must be in [";
    detail::print(stream, low);
    stream << ",";
    detail::print(stream, high);
    stream << "]. Actual: ";
    detail::print(stream, value);
    stream << std::endl; // flushed: it may be the last thing that a script shows
    return false;
}

/// True when `value` equals an element of `array`. Otherwise writes "stride must be in {1, 2}. Actual: 3" and a
/// newline.
template <class T, class Array, class Name>
bool reportIfNotInArray(const T& value, const Array& array, Name&& name, std::ostream& stream)
{
    if (std::find(std::begin(array), std::end(array), value) != std::end(array))
        return true;
    stream << name() << " must be in {";
    const char* separator = "";
    for (const auto& element : array) {
        stream << separator;
        detail::print(stream, element);
        separator = ", ";
    }
    stream << "}. Actual: ";
    detail::print(stream, value);
    stream << std::endl;
    return false;
}

/// True when `value` equals `expected`. Otherwise writes "mode must be 1. Actual: 0" and a newline.
template <class T, class Name>
bool reportIfNotEqual(const T& value, const std::type_identity_t<T>& expected, Name&& name, std::ostream& stream)
{
    if (value == expected)
        return true;
    stream << name() << " must be ";
    detail::print(stream, expected);
    stream << ". Actual: ";
    detail::print(stream, value);
    stream << std::endl;
    return false;
}

} // namespace util
