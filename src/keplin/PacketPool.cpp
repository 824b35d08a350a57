#include "keplin/PacketPool.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace keplin {

constinit PacketPool::Everlasting PacketPool::everlasting;

PacketPtr PacketPool::getEmptyPacketBuffer()
{
    const util::Lock lock(bufferPoolMutex);
    if (!bufferPool.empty()) {
        PacketPtr buffer = bufferPool.pop_back();
        buffer->size = 0; // still set if it came back in a run
        return buffer;
    }
    auto buffer = std::make_unique<PacketBuffer>();
    ++packetsInCirculation;
    return buffer;
}

PacketPtr PacketPool::getRawPacketBuffer(std::uint8_t moduleId, HdrExtFmt hdrExt, PktFmt pktFmt)
{
    if (moduleId >= MaxTargets)
        throw std::out_of_range("Bad target ID");
    PacketPtr buffer = getEmptyPacketBuffer();
    buffer->setHeader(moduleId, hdrExt, pktFmt);
    return buffer;
}

void PacketPool::putPacketBuffer(PacketPtr buffer)
{
    if (!buffer)
        return;
    buffer->size = 0;
    const util::Lock lock(bufferPoolMutex);
    if (pooled() >= MaxPooledBuffers)
        --packetsInCirculation;
    else
        bufferPool.push_back(std::move(buffer));
}

void PacketPool::putPacketBuffers(PacketRing& buffers)
{
    if (buffers.empty())
        return;
    {
        const util::Lock lock(bufferPoolMutex);
        putLocked(buffers);
    }
    buffers.clear();
}

void PacketPool::putLocked(PacketRing& buffers)
{
    const std::size_t room = MaxPooledBuffers - std::min(MaxPooledBuffers, pooled());
    buffers.moveFrontTo(bufferPool, std::min(room, buffers.size()));
    packetsInCirculation -= static_cast<std::uint32_t>(buffers.size());
}

std::size_t PacketPool::pooled() const
{
    std::size_t count = bufferPool.size();
    for (const auto* inStash : stashed)
        count += inStash->load(std::memory_order_relaxed);
    return count;
}

void PacketPool::getBufferPoolStats(std::uint32_t& inCirculation, std::uint32_t& inPool) const
{
    const util::SharedLock lock(bufferPoolMutex);
    inCirculation = packetsInCirculation;
    inPool = static_cast<std::uint32_t>(pooled());
}

} // namespace keplin
