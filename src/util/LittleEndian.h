#pragma once
// Numbers in bytes, lowest byte first, as wire, files and boards have them. The bytes may lie at any address.

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace util {

/// The number in the sizeof(T) bytes at `bytes`.
/// @tparam T  any number or enumeration but bool, which can't take any byte
template <class T>
T readLittleEndian(const void* bytes)
{
    static_assert((std::is_arithmetic_v<T> || std::is_enum_v<T>)&&!std::is_same_v<T, bool>);
    T value;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&value, bytes, sizeof value);
    } else {
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        std::reverse_copy(first, first + sizeof value, reinterpret_cast<std::uint8_t*>(&value));
    }
    return value;
}

/// Writes sizeof(T) bytes at `bytes`.
template <class T>
void writeLittleEndian(void* bytes, const T& value)
{
    static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>);
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(bytes, &value, sizeof value);
    } else {
        const auto* first = reinterpret_cast<const std::uint8_t*>(&value);
        std::reverse_copy(first, first + sizeof value, static_cast<std::uint8_t*>(bytes));
    }
}

/// The number `at` bytes into `bytes`; the caller makes sure that it lies within.
template <class T>
T readLittleEndian(std::span<const std::uint8_t> bytes, std::size_t at)
{
    assert(at <= bytes.size() && sizeof(T) <= bytes.size() - at);
    return readLittleEndian<T>(bytes.data() + at);
}

template <class T>
void writeLittleEndian(std::span<std::uint8_t> bytes, std::size_t at, const T& value)
{
    assert(at <= bytes.size() && sizeof(T) <= bytes.size() - at);
    writeLittleEndian(bytes.data() + at, value);
}

} // namespace util
