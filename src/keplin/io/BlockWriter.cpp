#include "keplin/io/BlockWriter.h"

#include "keplin/PacketPool.h"

namespace keplin {

std::int32_t BlockWriter::collect(PacketQueue& queue, std::int32_t limitWords)
{
    const auto sends = [this](const PacketBuffer& packet) {
        return packet.size != 0 || emptyPackets == EmptyPackets::send;
    };
    std::int32_t used = 0;
    queue.dequeueWhile(
        [&](const PacketBuffer& packet) {
            const auto words = static_cast<std::int32_t>(packet.wireWords());
            if (words > limitWords - used)
                return false;
            used += sends(packet) ? words : 0;
            return true;
        },
        run);
    bytes.clear();
    for (std::size_t i = 0; i < run.size(); ++i)
        if (sends(run[i])) {
            const auto* wire = reinterpret_cast<const std::uint8_t*>(run[i].wire());
            bytes.insert(bytes.end(), wire, wire + 4 * run[i].wireWords());
        }
    bytes.resize((bytes.size() + BlockBytes - 1) / BlockBytes * BlockBytes);
    PacketPool::getInstance().putPacketBuffers(run);
    return used;
}

} // namespace keplin
