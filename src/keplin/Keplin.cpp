#include "keplin/Keplin.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace keplin {

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
