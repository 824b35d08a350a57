#pragma once
// The packets of one read on their way to their clients, with a lock a read where there would be one a packet.

#include <cstdint>
#include <shared_mutex>
#include <utility>

#include "keplin/PacketDispatcher.h"
#include "keplin/PacketStash.h"

namespace keplin {

/// Made for one read. It behaves as if every packet had been dispatched (with a dispatcher) or enqueued on the receive
/// queue (without one) by itself, in order: packets for one queue are held back only while no callback could notice.
/// Locks: the dispatcher's, shared, for as long as it lives; inside it the queues' and the pool's, one after the other.
class PacketDelivery {
public:
    /// What lives from read to read, so that a steady run allocates nothing.
    struct Memory {
        PacketStash stash;
        PacketRun run;
    };

    /// @param dispatcher  null: all packets go to `receiveQueue`
    PacketDelivery(const PacketDispatcher* dispatcher, PacketQueue& receiveQueue, Memory& memory)
        : dispatcher(dispatcher), memory(memory), runQueue(&receiveQueue)
    {
        if (dispatcher)
            lock = std::shared_lock(dispatcher->mutex);
    }
    ~PacketDelivery()
    {
        flush();
        memory.stash.giveBack();
    }
    PacketDelivery(const PacketDelivery&) = delete;
    PacketDelivery& operator=(const PacketDelivery&) = delete;

    /// A buffer for the next packet.
    PacketPtr getEmptyPacketBuffer() { return memory.stash.get(); }

    /// As PacketDispatcher::dispatch() or PacketQueue::enqueue().
    void deliver(PacketPtr packet)
    {
        if (!dispatcher) {
            memory.run.push_back(std::move(packet));
            return;
        }
        // packets of one source come in a row
        const std::uint32_t source = packet->header & (header::moduleId.mask() | header::format.mask());
        if (!entry || source != entrySource) {
            entry = &dispatcher->entryFor(*packet);
            entrySource = source;
        }
        if (entry->queue) {
            if (entry->queue != runQueue) {
                flush();
                runQueue = entry->queue;
            }
            memory.run.push_back(std::move(packet));
        } else if (entry->pools) {
            memory.stash.put(std::move(packet));
        } else {
            flush();
            entry->function(std::move(packet));
        }
    }

private:
    void flush()
    {
        if (memory.run.empty())
            return;
        runQueue->enqueueAll(memory.run);
    }

    const PacketDispatcher* dispatcher;
    Memory& memory;
    PacketQueue* runQueue;                          // of the packets in `memory.run`
    const PacketDispatcher::Entry* entry = nullptr; // of the last packet
    std::uint32_t entrySource = 0;                  // its module and format
    std::shared_lock<std::shared_mutex> lock;
};

} // namespace keplin
