#pragma once
// How filters append the events that they keep: in chunks that stay in the first cache, without a branch that depends
// on an event.

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace graph::nodes::detail {

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
