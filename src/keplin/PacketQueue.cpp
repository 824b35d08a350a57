#include "keplin/PacketQueue.h"

#include "keplin/PacketPool.h"

namespace keplin {

void PacketQueue::enqueue(PacketPtr packet)
{
    if (!packet)
        return;
    const util::Lock lock(mutex);
    packets.push_back(std::move(packet));
    updateFirst();
}

void PacketQueue::enqueueAll(PacketRing& run)
{
    const util::Lock lock(mutex);
    packets.append(run);
    updateFirst();
}

std::optional<PacketPtr> PacketQueue::dequeue()
{
    const util::Lock lock(mutex);
    if (packets.empty())
        return std::nullopt;
    PacketPtr packet = packets.pop_front();
    updateFirst();
    return packet;
}

void PacketQueue::dequeueAll(PacketRing& run)
{
    const util::Lock lock(mutex);
    run.append(packets);
    updateFirst();
}

void PacketQueue::clear()
{
    const util::Lock lock(mutex);
    PacketPool::getInstance().putPacketBuffers(packets);
    updateFirst();
}

} // namespace keplin
