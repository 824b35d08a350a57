#pragma once
// A cache of pooled buffers for one thread that needs many in a row: it gets and returns them without the pool's lock.

#include <atomic>
#include <cstdint>
#include <utility>

#include "keplin/PacketBuffer.h"
#include "keplin/PacketRing.h"

namespace keplin {

/// Its buffers count as lying in the pool. When it is empty, get() takes as many from the pool as the last turn used,
/// under one lock. giveBack() ends a turn and returns what is left; the pool is then as if each had been taken singly.
/// Threads: reentrant; the pool's statistics may be read meanwhile.
class PacketStash {
public:
    PacketStash() = default;
    ~PacketStash();
    PacketStash(const PacketStash&) = delete;
    PacketStash& operator=(const PacketStash&) = delete;

    /// As PacketPool::getEmptyPacketBuffer(), except for `size`, which may be anything.
    PacketPtr get()
    {
        if (buffers.empty()) [[unlikely]]
            refill();
        PacketPtr buffer = buffers.pop_back();
        updateCount();
        return buffer;
    }

    /// As PacketPool::putPacketBuffer(), for a buffer that came from here.
    void put(PacketPtr buffer)
    {
        if (!listed) [[unlikely]]
            return putBeforeAnyGet(std::move(buffer));
        buffers.push_back(std::move(buffer));
        updateCount();
    }

    void giveBack();

private:
    /// Gets at least one buffer.
    void refill();
    static void putBeforeAnyGet(PacketPtr buffer);
    void updateCount() { count.store(static_cast<std::uint32_t>(buffers.size()), std::memory_order_relaxed); }

    PacketRing buffers;      // the one to give next is the last
    std::uint32_t taken = 0; // from the pool in this turn
    std::uint32_t usedLastTurn = 0;
    std::atomic<std::uint32_t> count{0}; // of buffers, for the statistics
    bool listed = false;                 // the pool knows `count`, from the first get() on
};

} // namespace keplin
