#pragma once
// A board's pair of queues, and the table that sorts what was received into the queues of its clients. The static
// functions are the clients' way to the pool from which every packet of the process comes.

#include <array>
#include <cstdint>
#include <utility>

#include "keplin/PacketBuffer.h"
#include "keplin/PacketPool.h"
#include "keplin/PacketQueue.h"
#include "keplin/PacketRun.h"

namespace keplin {

/// Threads: the static functions are thread-safe, and so is sendPacket(). The rest is reentrant.
class Keplin {
public:
    static constexpr std::size_t MaxPooledBuffers = PacketPool::MaxPooledBuffers;

    // Those of PacketPool, which serves all boards.
    static PacketPtr getEmptyPacketBuffer() { return PacketPool::getInstance().getEmptyPacketBuffer(); }
    static PacketPtr getRawPacketBuffer(std::uint8_t moduleId, HdrExtFmt hdrExt, PktFmt pktFmt)
    {
        return PacketPool::getInstance().getRawPacketBuffer(moduleId, hdrExt, pktFmt);
    }
    static void putPacketBuffer(PacketPtr buffer) { PacketPool::getInstance().putPacketBuffer(std::move(buffer)); }
    static void putPacketBuffers(PacketRing& buffers) { PacketPool::getInstance().putPacketBuffers(buffers); }
    static void getBufferPoolStats(std::uint32_t& inCirculation, std::uint32_t& inPool)
    {
        PacketPool::getInstance().getBufferPoolStats(inCirculation, inPool);
    }

    Keplin() = default;
    /// What waits goes back to the pool: first what was received, then what was to be sent.
    ~Keplin();
    Keplin(const Keplin&) = delete;
    Keplin& operator=(const Keplin&) = delete;

    PacketQueue& transmitQueue() { return transmitQueue_; }
    PacketQueue& receiveQueue() { return receiveQueue_; }

    /// Finishes the packet and puts it on the transmit queue.
    void sendPacket(PacketPtr packet);

    /// Packets of that module go to `queue` from now on; it must live until the entry is removed.
    /// @throws std::out_of_range for a module id outside 0 to MaxModules - 1
    void setDispatchEntry(int moduleId, PacketQueue& queue);
    /// Does nothing where there is no entry.
    void removeDispatchEntry(int moduleId);

    /// Sorts everything that was received into the clients' queues; packets that nobody wants go back to the pool.
    /// @return how many were handed on
    std::uint32_t dispatchPackets();

private:
    PacketQueue transmitQueue_;
    PacketQueue receiveQueue_;
    std::array<PacketQueue*, MaxModules> table{};
    PacketRun received; // of dispatchPackets(), kept so that a steady run allocates nothing
    PacketRun sorted;
};

} // namespace keplin
