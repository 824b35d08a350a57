#pragma once
// Packets on their way between queues and clients: one lock moves all of them.
//
//   keplin::PacketRun run; // kept from turn to turn: it keeps its memory
//   queue.dequeueAll(run);
//   for (std::size_t i = 0; i < run.size(); ++i)
//       decode(run[i]);
//   keplin::Keplin::putPacketBuffers(run);

#include "keplin/PacketPool.h"
#include "keplin/PacketRing.h"

namespace keplin {

/// Threads: reentrant.
class PacketRun : public PacketRing {
public:
    PacketRun() = default;
    /// What is left goes back to the pool.
    ~PacketRun() { PacketPool::getInstance().putPacketBuffers(*this); }
    PacketRun(const PacketRun&) = delete;
    PacketRun& operator=(const PacketRun&) = delete;
};

} // namespace keplin
