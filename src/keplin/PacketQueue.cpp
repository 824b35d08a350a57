#include "keplin/PacketQueue.h"

#include "keplin/Keplin.h"

namespace keplin {

void PacketQueue::enqueue(PacketPtr packet)
{
    if (!packet)
        return;
    const std::lock_guard lock(mutex);
    packets.push_back(std::move(packet));
    noteFirst();
}

void PacketQueue::enqueueAll(PacketRun& run)
{
    const std::lock_guard lock(mutex);
    packets.append(run);
    noteFirst();
}

std::optional<PacketPtr> PacketQueue::dequeue()
{
    const std::lock_guard lock(mutex);
    if (packets.empty())
        return std::nullopt;
    PacketPtr packet = packets.pop_front();
    noteFirst();
    return packet;
}

void PacketQueue::dequeueAll(PacketRun& run)
{
    const std::lock_guard lock(mutex);
    run.append(packets);
    noteFirst();
}

void PacketQueue::clear()
{
    const std::lock_guard lock(mutex);
    Keplin::putPacketBuffers(packets);
    noteFirst();
}

} // namespace keplin
