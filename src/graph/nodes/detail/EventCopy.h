#pragma once
// How filters copy an event to another place: in whole words.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace graph::nodes::detail {

/// True for events of two 8-byte words: x, y, polarity and padding in the first, the timestamp in the second.
template <class Event>
constexpr bool isTwoWords()
{
    if constexpr (std::is_standard_layout_v<Event> && std::is_trivially_copyable_v<Event> && sizeof(Event) == 16 &&
                  std::endian::native == std::endian::little && requires(Event event) {
                      requires std::is_same_v<decltype(event.x), std::uint16_t>;
                      requires std::is_same_v<decltype(event.y), std::uint16_t>;
                      requires std::is_same_v<decltype(event.polarity), bool>;
                      requires std::is_same_v<decltype(event.timestamp), std::int64_t>;
                  })
        return offsetof(Event, x) == 0 && offsetof(Event, y) == 2 && offsetof(Event, polarity) == 4 &&
               offsetof(Event, timestamp) == 8;
    else
        return false;
}

/// Makes `out` a copy of `event` at (x, y). An event of two words is written as two words: the next node reads it as
/// wide as that, and a wide read of bytes that were just written one by one waits until they have reached the cache.
template <class Event>
void copyMoved(Event& out, const Event& event, std::uint16_t x, std::uint16_t y)
{
    if constexpr (isTwoWords<Event>()) {
        const std::uint64_t head =
            x | static_cast<std::uint64_t>(y) << 16 | static_cast<std::uint64_t>(event.polarity) << 32;
        std::memcpy(static_cast<void*>(&out), &head, sizeof head);
        out.timestamp = event.timestamp;
    } else {
        out = event;
        out.x = x;
        out.y = y;
    }
}

} // namespace graph::nodes::detail
