#pragma once
// How the filters move events: in chunks that stay in the first cache, without a branch that depends on an event, and
// in whole words.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

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

/// Appends events to a vector through a chunk. So the vector, whose space is reserved beforehand, is written only once,
/// where resizing it would first fill it with zeros.
template <class Event>
class ChunkAppender {
public:
    /// Calls write(slot, event) for each of `events`. It writes the slot whether the event is kept or not, and returns
    /// true when it is: the slot is then passed on, and otherwise the next event gets it.
    template <class Write>
    void append(std::vector<Event>& out, std::span<const Event> events, Write write)
    {
        while (!events.empty()) {
            const auto block = events.first(std::min(events.size(), chunk.size()));
            std::size_t kept = 0;
            for (const Event& event : block)
                kept += static_cast<std::size_t>(write(chunk[kept], event));
            out.insert(out.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(kept));
            events = events.subspan(block.size());
        }
    }

private:
    std::array<Event, 256> chunk;
};

} // namespace graph::nodes::detail
