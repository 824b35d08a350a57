#include "keplin/Keplin.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "keplin/PacketStash.h"

namespace keplin {

constinit Keplin::Everlasting<PacketRun> Keplin::bufferPool;
constinit Keplin::Everlasting<std::shared_mutex> Keplin::bufferPoolMutex;
constinit std::uint32_t Keplin::packetsInCirculation = 0;
constinit PacketStash* Keplin::stashes = nullptr;

PacketPtr Keplin::getEmptyPacketBuffer()
{
    const std::lock_guard lock(bufferPoolMutex.value);
    if (!bufferPool.value.empty()) {
        PacketPtr buffer = bufferPool.value.pop_back();
        buffer->size = 0; // of those that came back as a run nobody has touched it
        return buffer;
    }
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

void Keplin::putPacketBuffer(PacketPtr buffer)
{
    if (!buffer)
        return;
    buffer->size = 0;
    const std::lock_guard lock(bufferPoolMutex.value);
    if (pooled() >= MaxPooledBuffers)
        --packetsInCirculation;
    else
        bufferPool.value.push_back(std::move(buffer));
}

void Keplin::putPacketBuffers(PacketRun& buffers)
{
    {
        const std::lock_guard lock(bufferPoolMutex.value);
        putLocked(buffers);
    }
    while (!buffers.empty()) // what the pool did not want
        buffers.pop_front();
}

/// Leaves those for which there is no room.
void Keplin::putLocked(PacketRun& buffers)
{
    const std::size_t room = MaxPooledBuffers - std::min(MaxPooledBuffers, pooled());
    buffers.moveFrontTo(bufferPool.value, std::min(room, buffers.size()));
    packetsInCirculation -= static_cast<std::uint32_t>(buffers.size());
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

void PacketStash::refill()
{
    const std::lock_guard lock(Keplin::bufferPoolMutex.value);
    if (!listed) {
        next = std::exchange(Keplin::stashes, this);
        listed = true;
    }
    PacketRun& pool = Keplin::bufferPool.value;
    if (pool.empty()) {
        buffers.push_back(std::make_unique<PacketBuffer>());
        ++Keplin::packetsInCirculation;
    } else {
        // no more than a turn like the last one would take; in a longer one twice as many each time
        const std::uint32_t expected = usedLastTurn > taken ? usedLastTurn - taken : std::max(1U, taken);
        pool.moveBackTo(buffers, std::min<std::size_t>(pool.size(), expected));
    }
    taken += static_cast<std::uint32_t>(buffers.size());
    noteCount();
}

void PacketStash::putBeforeAnyGet(PacketPtr buffer) { Keplin::putPacketBuffer(std::move(buffer)); }

void PacketStash::giveBack()
{
    const auto left = static_cast<std::uint32_t>(buffers.size());
    usedLastTurn = taken - std::min(taken, left);
    taken = 0;
    if (buffers.empty())
        return;
    const std::lock_guard lock(Keplin::bufferPoolMutex.value);
    count.store(0, std::memory_order_relaxed);
    Keplin::putLocked(buffers);
    while (!buffers.empty())
        buffers.pop_front();
}

PacketStash::~PacketStash()
{
    giveBack();
    if (!listed)
        return;
    const std::lock_guard lock(Keplin::bufferPoolMutex.value);
    PacketStash** link = &Keplin::stashes;
    while (*link != this)
        link = &(*link)->next;
    *link = next;
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
    const auto clientOf = [this](const PacketBuffer& packet) {
        const std::uint32_t id = packet.moduleId(); // up to 63, and the table is shorter
        return id < MaxModules ? table[id] : nullptr;
    };
    std::uint32_t count = 0;
    for (receiveQueue_.dequeueAll(received); !received.empty(); receiveQueue_.dequeueAll(received)) {
        // neighbours that go to one place go there under one lock
        while (!received.empty()) {
            PacketQueue* const client = clientOf(received[0]);
            std::size_t number = 1;
            while (number < received.size() && clientOf(received[number]) == client)
                ++number;
            received.moveFrontTo(sorted, number);
            if (client) {
                client->enqueueAll(sorted);
                count += static_cast<std::uint32_t>(number);
            } else {
                putPacketBuffers(sorted);
            }
        }
    }
    return count;
}

} // namespace keplin
