#pragma once
// The thread that moves packets between a dev kit and the queues.

#include <cstdint>
#include <memory>
#include <vector>

#include "keplin/BlockDecoder.h"
#include "keplin/PacketDelivery.h"
#include "keplin/PacketDispatcher.h"
#include "keplin/PacketQueue.h"
#include "keplin/io/BlockWriter.h"
#include "keplin/io/KeplinEndpoint.h"
#include "keplin/io/LoopThread.h"
#include "trovi/Reflect.h"

namespace keplin {

/// Each turn reads 8 blocks and hands their packets to the dispatcher, then sends waiting packets as far as the board's
/// credit allows. The blocking read sets the pace. A failed read counts as blocks of zeros; if reads fail without
/// blocking, the loop spins until stop(). The packets of a failed write are lost.
/// Must be stopped before it is destroyed: destroying it while its thread runs ends the process.
/// Locks: those of LoopThread in start(), stop() and setPacketDispatcher(); while packets are handed on, the
/// dispatcher's, and inside it a queue's or the pool's. None during a read or a write.
/// Threads: start() and stop() are thread-safe. A turn by hand and a running thread exclude each other.
class KeplinReaderWriter {
public:
    /// Endpoint and queues must outlive it. It is the only consumer of `transmitQueue`.
    KeplinReaderWriter(KeplinEndpoint& endpoint, PacketQueue& transmitQueue, PacketQueue& receiveQueue);

    /// Null: packets go to the receive queue.
    /// @return false while the thread runs; nothing is changed then
    bool setPacketDispatcher(std::shared_ptr<PacketDispatcher> dispatcher);
    /// At first one that gives every packet back to the pool.
    std::shared_ptr<PacketDispatcher> getPacketDispatcher() const { return dispatcher; }

    /// Does nothing if already running. A packet cut off by the end of the last read continues in the next.
    void start();
    /// Waits for the end of the turn; does nothing if not running.
    void stop();

    /// One turn, on the caller's thread.
    void singleShotReadWrite();
    /// Turns until stop(): the body of the thread.
    void threadReadWrite();

private:
    void processReadBlocks(const std::vector<std::uint8_t>& data);
    void write();

    bool useDispatcher = true;
    KeplinEndpoint& endpoint;
    PacketQueue& transmitQueue;
    PacketQueue& receiveQueue;
    std::shared_ptr<PacketDispatcher> dispatcher = std::make_shared<PacketDispatcher>();
    BlockDecoder decoder;
    std::int32_t credit = 0; // words for which the board has room
    PacketDelivery::Memory memory;
    BlockWriter writer{BlockWriter::EmptyPackets::send};
    LoopThread thread;
};

} // namespace keplin

template <>
constexpr auto trovi::registerMemberFunctions<keplin::KeplinReaderWriter>()
{
    using keplin::KeplinReaderWriter;
    return functions(
        blockingFunction("start", &KeplinReaderWriter::start,
                         "Starts the thread that reads from the board and writes to it."),
        blockingFunction("stop", &KeplinReaderWriter::stop, "Stops the thread and waits for the end of its turn."),
        blockingFunction("single_shot_read_write", &KeplinReaderWriter::singleShotReadWrite,
                         "Reads once and writes what waits. Only while the thread is stopped."));
}

template <>
constexpr const char* trovi::registerDoc<keplin::KeplinReaderWriter>()
{
    return "The thread that moves packets between a dev kit and its queues.";
}
