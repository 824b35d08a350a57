#include "keplin/PacketStash.h"

#include <algorithm>

#include "keplin/PacketPool.h"

namespace keplin {

void PacketStash::refill()
{
    PacketPool& pool = PacketPool::getInstance();
    const util::Lock lock(pool.bufferPoolMutex);
    if (!listed) {
        pool.stashed.push_back(&count);
        listed = true;
    }
    if (pool.bufferPool.empty()) {
        buffers.push_back(std::make_unique<PacketBuffer>());
        ++pool.packetsInCirculation;
    } else {
        // as many as the last turn used; if this one is longer, twice as many each time
        const std::uint32_t expected = usedLastTurn > taken ? usedLastTurn - taken : std::max(1U, taken);
        pool.bufferPool.moveBackTo(buffers, std::min<std::size_t>(pool.bufferPool.size(), expected));
    }
    taken += static_cast<std::uint32_t>(buffers.size());
    updateCount();
}

void PacketStash::putBeforeAnyGet(PacketPtr buffer) { PacketPool::getInstance().putPacketBuffer(std::move(buffer)); }

void PacketStash::giveBack()
{
    const auto left = static_cast<std::uint32_t>(buffers.size());
    usedLastTurn = taken - std::min(taken, left);
    taken = 0;
    if (buffers.empty())
        return;
    {
        PacketPool& pool = PacketPool::getInstance();
        const util::Lock lock(pool.bufferPoolMutex);
        count.store(0, std::memory_order_relaxed);
        pool.putLocked(buffers);
    }
    buffers.clear(); // those for which the pool had no room
}

PacketStash::~PacketStash()
{
    giveBack();
    if (!listed)
        return;
    PacketPool& pool = PacketPool::getInstance();
    const util::Lock lock(pool.bufferPoolMutex);
    std::erase(pool.stashed, &count);
}

} // namespace keplin
