#pragma once
// Hands the packets of one read to their clients, with one lock for the read instead of one for each packet.

#include <cstdint>
#include <utility>

#include "keplin/PacketDispatcher.h"
#include "keplin/PacketRun.h"
#include "keplin/PacketStash.h"
#include "util/Mutex.h"

namespace keplin {

/// Made for one read. It behaves as if each packet were dispatched (with a dispatcher) or enqueued on the receive queue
/// (without one) one at a time, in order. Packets for one queue are held back only while no callback could notice.
/// Locks: the dispatcher's, shared, for as long as it lives; inside it the queues' and the pool's, one after the other.
class PacketDelivery {
public:
    /// Kept from read to read, so that a steady run allocates nothing.
    struct Memory {
        PacketStash stash;
        PacketRun run;
    };

    /// @param dispatcher  null: all packets go to `receiveQueue`
    PacketDelivery(const PacketDispatcher* dispatcher, PacketQueue& receiveQueue, Memory& memory)
        VORNA_NO_THREAD_SAFETY_ANALYSIS; // the lock stays for the object's life, if there is a dispatcher
    ~PacketDelivery() VORNA_NO_THREAD_SAFETY_ANALYSIS;
    PacketDelivery(const PacketDelivery&) = delete;
    PacketDelivery& operator=(const PacketDelivery&) = delete;

    /// A buffer for the next packet; its `size` may be anything.
    PacketPtr getEmptyPacketBuffer() { return memory.stash.get(); }

    /// As PacketDispatcher::dispatch() or PacketQueue::enqueue().
    /// @param headerWord  that of the packet, which may not have reached memory yet
    void deliver(PacketPtr packet, std::uint32_t headerWord)
    {
        if ((headerWord & sourceMask) == runSource) [[likely]]
            memory.run.push_back(std::move(packet));
        else
            deliverFromOther(packet.release());
    }

private:
    /// Looks up where packets of this source go. Takes ownership of `packet`; it is a bare pointer so that deliver()
    /// keeps its own in a register.
    void deliverFromOther(PacketBuffer* packet) VORNA_NO_THREAD_SAFETY_ANALYSIS; // the constructor took the lock
    void flush();

    const PacketDispatcher* dispatcher;
    Memory& memory;
    PacketQueue* runQueue;    // destination of `memory.run`
    std::uint32_t sourceMask; // header bits that choose the dispatcher's entry; 0 without a dispatcher
    std::uint32_t runSource;  // these bits of the packets in `memory.run`
};

} // namespace keplin
