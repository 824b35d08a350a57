#pragma once
// Numbers in bytes, lowest byte first, as all boards have them.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace emulation {

/// The caller sees to it that the number lies within `bytes`.
template <std::unsigned_integral T>
constexpr T readLittleEndian(std::span<const std::uint8_t> bytes, std::size_t at)
{
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        value = static_cast<T>(value | static_cast<T>(static_cast<T>(bytes[at + i]) << (8 * i)));
    return value;
}

template <std::unsigned_integral T>
constexpr void writeLittleEndian(std::span<std::uint8_t> bytes, std::size_t at, T value)
{
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

} // namespace emulation
