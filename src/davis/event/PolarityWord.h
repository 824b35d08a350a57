#pragma once
// The 8-byte polarity event of cameras and recordings, little-endian on the wire and on disk:
//
//   bytes 0..3  data word   bit 0 valid mark, bit 1 polarity (1 = ON), bits 16..2 y, bits 31..17 x
//   bytes 4..7  timestamp   microseconds, 32 bits; the container defines what the top bit means
//
// Cameras, recordings and writers all use this one layout.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "util/BitField.h"
#include "util/LittleEndian.h"

namespace davis::event {

struct PolarityWord {
    static constexpr util::BitField valid{0, 1};
    static constexpr util::BitField polarity{1, 1};
    static constexpr util::BitField y{2, 15};
    static constexpr util::BitField x{17, 15};
    static constexpr std::size_t bytes = 8; ///< data word and timestamp
};
static_assert(util::fillWord(PolarityWord::valid, PolarityWord::polarity, PolarityWord::y, PolarityWord::x));

/// The data word of a valid event; x and y at most 32,767.
constexpr std::uint32_t dataWord(const DvsEvent& event)
{
    return PolarityWord::valid.put(1) | PolarityWord::polarity.put(event.polarity) | PolarityWord::y.put(event.y) |
           PolarityWord::x.put(event.x);
}

/// The event of a data word and its timestamp. The valid mark is not read.
inline DvsEvent eventOf(std::uint32_t data, std::int64_t timestamp)
{
    // Two whole words: after four narrow stores, loading the event as words costs 5 to 10 ns.
    static_assert(offsetof(DvsEvent, x) == 0 && offsetof(DvsEvent, y) == 2 && offsetof(DvsEvent, polarity) == 4 &&
                  offsetof(DvsEvent, timestamp) == 8 && sizeof(DvsEvent) == 16);
    const std::uint64_t pixel = std::uint64_t{PolarityWord::x.get(data)} |
                                std::uint64_t{PolarityWord::y.get(data)} << 16 |
                                std::uint64_t{PolarityWord::polarity.get(data)} << 32;
    return std::bit_cast<DvsEvent>(std::array<std::uint64_t, 2>{pixel, static_cast<std::uint64_t>(timestamp)});
}

/// Appends the events of `words` (8 bytes each, any alignment), valid or not, in order. The 32-bit timestamp is
/// sign-extended: the value wraps with the camera's counter.
inline void appendEvents(std::span<const std::byte> words, std::vector<DvsEvent>& events)
{
    // An iterator over decoded events, so that the vector is sized once and each element is written once.
    struct Reading {
        using iterator_category = std::random_access_iterator_tag;
        using value_type = DvsEvent;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = DvsEvent;

        const std::byte* at;

        DvsEvent operator*() const
        {
            return eventOf(util::readLittleEndian<std::uint32_t>(at), util::readLittleEndian<std::int32_t>(at + 4));
        }
        Reading& operator++()
        {
            at += PolarityWord::bytes;
            return *this;
        }
        Reading& operator--()
        {
            at -= PolarityWord::bytes;
            return *this;
        }
        Reading operator++(int)
        {
            const Reading before = *this;
            ++*this;
            return before;
        }
        Reading& operator+=(difference_type n)
        {
            at += n * static_cast<difference_type>(PolarityWord::bytes);
            return *this;
        }
        Reading operator+(difference_type n) const
        {
            Reading moved = *this;
            return moved += n;
        }
        difference_type operator-(const Reading& other) const
        {
            return (at - other.at) / static_cast<difference_type>(PolarityWord::bytes);
        }
        bool operator==(const Reading&) const = default;
    };
    const Reading first{words.data()};
    events.insert(events.end(), first, first + static_cast<std::ptrdiff_t>(words.size() / PolarityWord::bytes));
}

} // namespace davis::event
