#pragma once
// Makes the event of a word without a branch, which a stream of mixed kinds would mispredict at every other event.
//
// The kind's code picks a row, the row says where the fields of the word go in the event's memory, and the event is
// put together in registers as its memory. The rows come from the table of words (EventWord.h) at compile time.
// Members are written as whole words, since a narrow write that is read back wide (as a vector does when it takes the
// event over) costs some ten cycles.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>
#include <variant>

#include "tessel/family/EventWord.h"

namespace tessel::word::detail {

static_assert(std::endian::native == std::endian::little, "the images below are those of little-endian memory");

/// Byte of the event at which the member begins.
template <auto Member>
consteval unsigned offsetOf()
{
    using Event = typename Pointee<decltype(Member)>::Owner;
    for (unsigned byte = 0; byte < sizeof(Event); ++byte) {
        std::array<unsigned char, sizeof(Event)> image{};
        image[byte] = 1;
        if (std::bit_cast<Event>(image).*Member != 0)
            return byte;
    }
    return sizeof(Event);
}

template <class T, class Variant>
inline constexpr std::uint32_t alternativeIndex = 0;
template <class T, class... Alternatives>
inline constexpr std::uint32_t alternativeIndex<T, std::variant<Alternatives...>> = [] {
    std::uint32_t index = 0;
    static_cast<void>(((std::is_same_v<T, Alternatives> || (++index, false)) || ...));
    return index;
}();

/// What the standard library leaves open, and the images below take for granted: the alternatives of the variant begin
/// at its first byte, and its index can only be in the last four.
template <class Variant>
inline constexpr bool indexFollowsAlternatives = false;
template <class... Alternatives>
inline constexpr bool indexFollowsAlternatives<std::variant<Alternatives...>> = [] {
    using Variant = std::variant<Alternatives...>;
    constexpr auto atFirstByte = []<class T>(const T& alternative) {
        const Variant variant{alternative};
        return static_cast<const void*>(&variant) == static_cast<const void*>(std::get_if<T>(&variant));
    };
    constexpr std::size_t largest = std::max({sizeof(Alternatives)...}),
                          alignment = std::max({alignof(Alternatives)...});
    return (atFirstByte(Alternatives{}) && ...) &&
           (largest + alignment - 1) / alignment * alignment + sizeof(std::uint32_t) == sizeof(Variant);
}();

/// Of a variant whose alternatives begin at its first byte and whose index follows them, in the last four bytes.
/// Words, of type WordTable, differ in their bits CodeLow to CodeHigh; each has a time in bits 32 to 63 that
/// goes to byte 4 or 8 of the event, and at most three other fields, in the event's first 8 bytes.
template <class Variant, class Words, unsigned CodeLow, unsigned CodeHigh>
class ImageTable {
public:
    static Variant assemble(std::uint64_t word) noexcept
    {
        const Row& row = rows[(word >> CodeLow) & (rows.size() - 1)];
        const std::uint64_t front = row.constant | (std::rotr(word, row.turn[0]) & row.mask[0]) |
                                    (std::rotr(word, row.turn[1]) & row.mask[1]) |
                                    (std::rotr(word, row.turn[2]) & row.mask[2]) | (word & row.timeMask);
        // an event that ends before byte 8 has the time there too, where nobody reads it
        return std::bit_cast<Variant>(Image{TwoWords{front, word >> 32}, row.index});
    }

private:
    // one register, and so one write: two that are then read as one cost as much as narrow ones
    using TwoWords [[gnu::vector_size(16), gnu::aligned(4)]] = std::uint64_t;
    struct Image {
        TwoWords event;
        std::uint32_t index;
    };
    static_assert(sizeof(Image) == sizeof(Variant) && std::is_trivially_copyable_v<Variant>);
    static_assert(indexFollowsAlternatives<Variant>, "the image of this library's variant is another");

    struct alignas(64) Row {
        std::array<std::uint64_t, 3> mask{}; ///< of a field, at its place in the event
        std::array<int, 3> turn{};           ///< by which the word turns right to bring the field there
        std::uint32_t index = 0;             ///< of the alternative
        std::uint64_t constant = 0;          ///< members that follow from the code
        std::uint64_t timeMask = 0;          ///< all of bits 32 to 63 when the time goes to byte 4
    };

    template <class Part>
    static constexpr void addPart(Row& row, std::size_t& used, std::uint64_t code)
    {
        if constexpr (requires { Part::member; }) {
            constexpr unsigned bit = 8 * offsetOf<Part::member>();
            if constexpr (!Part::isField) {
                static_assert(bit < 64);
                row.constant |= pattern(Part::value) << bit;
            } else if constexpr (Part::low == 32 && Part::high == 63) {
                static_assert(Part::into == 0 && (bit == 32 || bit == 64));
                if constexpr (bit == 32)
                    row.timeMask = Part::mask;
            } else if constexpr (Part::low >= CodeLow && Part::high <= CodeHigh) {
                row.constant |= ((code << CodeLow) & Part::mask) >> Part::low << (bit + Part::into);
            } else {
                constexpr unsigned to = bit + Part::into;
                static_assert(to + Part::high - Part::low < 64);
                row.mask.at(used) = Part::mask >> Part::low << to;
                row.turn.at(used++) = static_cast<int>((64 + Part::low - to) % 64);
            }
        }
    }

    static constexpr auto rows = [] {
        std::array<Row, std::size_t{1} << (CodeHigh - CodeLow + 1)> table{};
        for (std::uint64_t code = 0; code < table.size(); ++code)
            Words::forEachWord([&]<class W>(W) {
                if (!W::matches(code << CodeLow))
                    return;
                Row& row = table[code];
                row.index = alternativeIndex<typename W::Event, Variant>;
                std::size_t used = 0;
                W::forEachPart([&]<class Part>(Part) { addPart<Part>(row, used, code); });
            });
        return table;
    }();
};

/// Walks over words and gives their events, so that a vector checks its size once for a whole row.
template <auto Decode>
struct DecodingIterator {
    using iterator_category = std::random_access_iterator_tag;
    using value_type = decltype(Decode(std::uint64_t{}));
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = value_type;

    const std::uint64_t* at;

    value_type operator*() const { return Decode(*at); }
    DecodingIterator& operator++()
    {
        ++at;
        return *this;
    }
    DecodingIterator& operator--()
    {
        --at;
        return *this;
    }
    DecodingIterator operator++(int) { return {at++}; }
    DecodingIterator operator+(difference_type n) const { return {at + n}; }
    DecodingIterator& operator+=(difference_type n)
    {
        at += n;
        return *this;
    }
    difference_type operator-(const DecodingIterator& other) const { return at - other.at; }
    bool operator==(const DecodingIterator&) const = default;
};

} // namespace tessel::word::detail
