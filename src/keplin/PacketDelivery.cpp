#include "keplin/PacketDelivery.h"

namespace keplin {

PacketDelivery::PacketDelivery(const PacketDispatcher* dispatcher, PacketQueue& receiveQueue, Memory& memory)
    : dispatcher(dispatcher), memory(memory), runQueue(&receiveQueue),
      sourceMask(dispatcher ? header::moduleId.mask() | header::format.mask() : 0),
      runSource(dispatcher ? ~sourceMask : 0) // none yet, or any
{
    if (dispatcher)
        dispatcher->mutex.lock_shared();
}

PacketDelivery::~PacketDelivery()
{
    flush();
    memory.stash.giveBack();
    if (dispatcher)
        dispatcher->mutex.unlock_shared();
}

void PacketDelivery::deliverFromOther(PacketBuffer* packet)
{
    PacketPtr owned(packet);
    const PacketDispatcher::Entry& entry = dispatcher->entryFor(*packet);
    if (entry.queue) {
        if (entry.queue != runQueue) {
            flush();
            runQueue = entry.queue;
        }
        runSource = packet->header & sourceMask;
        memory.run.push_back(std::move(owned));
    } else if (entry.pools) {
        memory.stash.put(std::move(owned));
    } else {
        // the callback finds queues and pool as if each packet before had been handled on its own
        flush();
        memory.stash.giveBack();
        entry.function(std::move(owned));
    }
}

void PacketDelivery::flush()
{
    if (!memory.run.empty())
        runQueue->enqueueAll(memory.run);
}

} // namespace keplin
