#include "keplin/Keplin.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "keplin/PacketStash.h"

namespace keplin {

constinit Keplin::Everlasting<detail::PacketRing> Keplin::bufferPool;
constinit Keplin::Everlasting<std::shared_mutex> Keplin::bufferPoolMutex;
constinit std::uint32_t Keplin::packetsInCirculation = 0;
constinit PacketStash* Keplin::stashes = nullptr;

PacketPtr Keplin::getEmptyPacketBuffer()
{
    const std::lock_guard lock(bufferPoolMutex.value);
    if (!bufferPool.value.empty())
        return bufferPool.value.pop_back();
    auto buffer = std::make_unique<PacketBuffer>();
    ++packetsInCirculation;
    return buffer;
}

PacketPtr Keplin::getRawPacketBuffer(std::uint8_t moduleId, HdrExtFmt hdrExt, PktFmt pktFmt)
{
    if (moduleId >= MaxTargets)
        throw std::out_of_range("Bad target ID");
    PacketPtr buffer = getEmptyPacketBuffer();
    buffer->setHeader(moduleId, hdrExt, pktFmt);
    return buffer;
}

void Keplin::putPacketBuffer(PacketPtr buffer) { putPacketBuffers({&buffer, 1}); }

void Keplin::putPacketBuffers(std::span<PacketPtr> buffers)
{
    for (const PacketPtr& buffer : buffers)
        if (buffer)
            buffer->size = 0;
    {
        const std::lock_guard lock(bufferPoolMutex.value);
        for (PacketPtr& buffer : buffers)
            if (buffer)
                putLocked(buffer);
    }
    for (PacketPtr& buffer : buffers)
        buffer.reset(); // what the pool did not want
}

void Keplin::putPacketBuffers(detail::PacketRing& buffers)
{
    const std::lock_guard lock(bufferPoolMutex.value);
    while (!buffers.empty()) {
        PacketPtr buffer = buffers.pop_front();
        buffer->size = 0;
        putLocked(buffer);
    }
}

/// Leaves the buffer where it is when the pool is full.
void Keplin::putLocked(PacketPtr& buffer)
{
    if (pooled() >= MaxPooledBuffers)
        --packetsInCirculation;
    else
        bufferPool.value.push_back(std::move(buffer));
}

std::size_t Keplin::pooled()
{
    std::size_t count = bufferPool.value.size();
    for (const PacketStash* stash = stashes; stash; stash = stash->next)
        count += stash->count.load(std::memory_order_relaxed);
    return count;
}

void Keplin::getBufferPoolStats(std::uint32_t& inCirculation, std::uint32_t& inPool)
{
    const std::shared_lock lock(bufferPoolMutex.value);
    inCirculation = packetsInCirculation;
    inPool = static_cast<std::uint32_t>(pooled());
}

PacketPtr PacketStash::refill()
{
    const std::lock_guard lock(Keplin::bufferPoolMutex.value);
    detail::PacketRing& pool = Keplin::bufferPool.value;
    if (!listed) {
        next = std::exchange(Keplin::stashes, this);
        listed = true;
    }
    if (pool.empty()) {
        auto buffer = std::make_unique<PacketBuffer>();
        ++Keplin::packetsInCirculation;
        return buffer;
    }
    PacketPtr buffer = pool.pop_back();
    constexpr std::uint32_t fewest = 32;
    const std::uint32_t expected = std::max(fewest, usedLastTurn > used ? usedLastTurn - used : 0);
    buffers.resize(std::min<std::size_t>(pool.size(), expected));
    for (auto slot = buffers.rbegin(); slot != buffers.rend(); ++slot)
        *slot = pool.pop_back();
    noteCount();
    return buffer;
}

void PacketStash::putBeforeAnyGet(PacketPtr buffer) { Keplin::putPacketBuffer(std::move(buffer)); }

void PacketStash::giveBack()
{
    usedLastTurn = std::exchange(used, 0);
    if (!listed)
        return;
    const std::lock_guard lock(Keplin::bufferPoolMutex.value);
    PacketStash** link = &Keplin::stashes;
    while (*link != this)
        link = &(*link)->next;
    *link = next;
    listed = false;
    count.store(0, std::memory_order_relaxed);
    for (PacketPtr& buffer : buffers)
        Keplin::putLocked(buffer);
    buffers.clear();
}

Keplin::~Keplin()
{
    receiveQueue_.clear();
    transmitQueue_.clear();
}

void Keplin::sendPacket(PacketPtr packet)
{
    if (!packet)
        return;
    packet->prepToSend();
    transmitQueue_.enqueue(std::move(packet));
}

void Keplin::setDispatchEntry(int moduleId, PacketQueue& queue)
{
    if (moduleId < 0 || static_cast<std::uint32_t>(moduleId) >= MaxModules)
        throw std::out_of_range("No dispatch entry for module " + std::to_string(moduleId) + ": ids go from 0 to " +
                                std::to_string(MaxModules - 1));
    table[static_cast<std::size_t>(moduleId)] = &queue;
}

void Keplin::removeDispatchEntry(int moduleId)
{
    if (moduleId >= 0 && static_cast<std::uint32_t>(moduleId) < MaxModules)
        table[static_cast<std::size_t>(moduleId)] = nullptr;
}

std::uint32_t Keplin::dispatchPackets()
{
    const auto clientOf = [this](const PacketPtr& packet) {
        const std::uint32_t id = packet->moduleId(); // up to 63, and the table is shorter
        return id < MaxModules ? table[id] : nullptr;
    };
    std::uint32_t count = 0;
    for (receiveQueue_.dequeueAll(run); !run.empty(); receiveQueue_.dequeueAll(run)) {
        // neighbours that go to one place go there under one lock
        for (auto begin = run.begin(); begin != run.end();) {
            PacketQueue* const client = clientOf(*begin);
            const auto end = std::find_if(begin, run.end(), [&](const PacketPtr& p) { return clientOf(p) != client; });
            if (client) {
                client->enqueueAll({begin, end});
                count += static_cast<std::uint32_t>(end - begin);
            } else {
                putPacketBuffers({begin, end});
            }
            begin = end;
        }
        run.clear();
    }
    return count;
}

} // namespace keplin
