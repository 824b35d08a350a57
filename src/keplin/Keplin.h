#pragma once
// The pool from which every packet of the process comes, and a board's pair of queues with the table that sorts what
// was received into the queues of its clients.

#include <array>
#include <cstdint>
#include <shared_mutex>

#include "keplin/PacketBuffer.h"
#include "keplin/PacketQueue.h"
#include "keplin/PacketRun.h"

namespace keplin {

class PacketStash;

/// The pool serves all boards at once. It is there before any static object is made and after the last one is gone.
/// Threads: the static functions are thread-safe, and so is sendPacket(). The rest is reentrant.
class Keplin {
public:
    /// More buffers than this don't lie in the pool: what comes back beyond is freed.
    static constexpr std::size_t MaxPooledBuffers = 0xF0EF + 1;

    /// A buffer of size 0, the one that came back last, or a new one. One from the pool keeps its old header and bytes.
    static PacketPtr getEmptyPacketBuffer();

    /// The same, with the header set.
    /// @throws std::out_of_range "Bad target ID" when `moduleId` is above 63; the pool is not touched then
    static PacketPtr getRawPacketBuffer(std::uint8_t moduleId, HdrExtFmt hdrExt, PktFmt pktFmt);

    /// Takes the buffer back. An empty pointer is ignored.
    static void putPacketBuffer(PacketPtr buffer);
    /// The same for all of `buffers`, in their order and under one lock; leaves it empty.
    static void putPacketBuffers(PacketRun& buffers);

    /// @param inCirculation  all buffers that were made and not freed by the pool
    /// @param inPool         those that nobody has, the ones in a PacketStash with them
    static void getBufferPoolStats(std::uint32_t& inCirculation, std::uint32_t& inPool);

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
    friend class PacketStash;

    static void putLocked(PacketRun& buffers);
    static std::size_t pooled();

    // Never destroyed, so that static objects may give buffers back at exit in any order.
    template <class T>
    union Everlasting {
        constexpr Everlasting() : value() {}
        ~Everlasting() {}
        T value;
    };
    static Everlasting<PacketRun> bufferPool; // used as a stack: what came last is the warmest
    static Everlasting<std::shared_mutex> bufferPoolMutex;
    static std::uint32_t packetsInCirculation;
    static PacketStash* stashes; // those that hold buffers

    PacketQueue transmitQueue_;
    PacketQueue receiveQueue_;
    std::array<PacketQueue*, MaxModules> table{};
    PacketRun received; // of dispatchPackets(), kept so that a steady run allocates nothing
    PacketRun sorted;
};

} // namespace keplin
