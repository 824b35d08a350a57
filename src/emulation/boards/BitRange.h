#pragma once
// Bits of a word of up to 64 bits, for the layouts that boards and chips know.

#include <cstdint>

namespace emulation {

/// A run of bits in a word.
struct BitRange {
    int low;
    int width;

    constexpr std::uint64_t mask() const { return (std::uint64_t{1} << width) - 1; }
    constexpr std::uint64_t get(std::uint64_t word) const { return word >> low & mask(); }
    constexpr std::uint64_t put(std::uint64_t value) const { return (value & mask()) << low; }
    constexpr bool isSet(std::uint64_t word) const { return get(word) != 0; }
};

} // namespace emulation
