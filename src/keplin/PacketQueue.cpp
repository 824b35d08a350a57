#include "keplin/PacketQueue.h"

#include "keplin/Keplin.h"

namespace keplin {

void PacketQueue::enqueue(PacketPtr packet) { enqueueAll({&packet, packet ? 1U : 0U}); }

void PacketQueue::enqueueAll(std::span<PacketPtr> run)
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

void PacketQueue::clear()
{
    const std::lock_guard lock(mutex);
    Keplin::putPacketBuffers(packets);
    noteFirst();
}

} // namespace keplin
