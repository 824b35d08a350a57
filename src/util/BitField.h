#pragma once
// A field of bits in a word of up to 32 bits, for layouts that are data: the header of a packet, a word of a recording.
//
//   static constexpr util::BitField polarity{1, 1};
//   static constexpr util::BitField y{2, 15};
//   const std::uint32_t word = polarity.put(1) | y.put(20);
//   y.get(word); // 20
//
// Why not C++ bit fields: their order is the compiler's choice, and a position can't be read off.

#include <concepts>
#include <cstdint>

namespace util {

/// `width` bits, from bit `lowest` up.
struct BitField {
    unsigned lowest;
    unsigned width; ///< 1 to 32 - lowest

    constexpr std::uint32_t largest() const { return 0xFFFFFFFFU >> (32 - width); }
    constexpr std::uint32_t mask() const { return largest() << lowest; }
    constexpr std::uint32_t get(std::uint32_t word) const { return (word >> lowest) & largest(); }
    /// `value`, cut to the field, in its place.
    constexpr std::uint32_t put(std::uint32_t value) const { return (value & largest()) << lowest; }
};

/// True when the fields together are all 32 bits and no two overlap; for a static_assert next to a layout.
template <std::same_as<BitField>... Fields>
constexpr bool fillWord(Fields... fields)
{
    return (fields.width + ...) == 32 && (fields.mask() | ...) == 0xFFFFFFFFU;
}

} // namespace util
