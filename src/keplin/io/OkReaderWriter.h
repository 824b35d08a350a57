#pragma once
// The thread that moves packets between an Opal Kelly board and the queues.
//
//   using ReaderWriter = keplin::OkReaderWriter<opalkelly::OpalKellyDevice>;
//   ReaderWriter readerWriter(&device, core.transmitQueue(), core.receiveQueue());

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "keplin/BlockDecoder.h"
#include "keplin/PacketDelivery.h"
#include "keplin/PacketDispatcher.h"
#include "keplin/PacketQueue.h"
#include "keplin/io/BlockWriter.h"
#include "keplin/io/LoopThread.h"

namespace keplin {

/// Device has block pipes:
///   std::vector<std::uint8_t> readFromBlockPipeOut(int pipe, int blockSize, int length)        empty on failure
///   bool writeToBlockPipeIn(std::uint8_t pipe, int blockSize, const std::vector<std::uint8_t>& data)
///
/// Each turn reads 16 blocks and hands their packets to the dispatcher, or without one to the receive queue; then it
/// sends waiting packets as far as the credit of this read allows. It pauses 1 ms after each read and write. A failed
/// read ends the turn. The packets of a failed write are lost.
/// Locks: those of LoopThread in start(), stop() and setPacketDispatcher(); while packets are handed on, the
/// dispatcher's, and inside it a queue's or the pool's. None during a transfer.
/// Threads: start() and stop() are thread-safe. A turn by hand and a running thread exclude each other.
template <class Device>
class OkReaderWriter {
public:
    /// `device` may be null: then there is nothing to start. Device and queues must outlive it. It is the only consumer
    /// of `transmitQueue`.
    OkReaderWriter(Device* device, PacketQueue& transmitQueue, PacketQueue& receiveQueue)
        : device(device), transmitQueue(transmitQueue), receiveQueue(receiveQueue)
    {}
    ~OkReaderWriter() { stop(); }

    /// Null, as at first: packets go to the receive queue.
    /// @return false while the thread runs; nothing is changed then
    bool setPacketDispatcher(std::shared_ptr<PacketDispatcher> newDispatcher)
    {
        return thread.whileStopped([&] { dispatcher = std::move(newDispatcher); });
    }
    std::shared_ptr<PacketDispatcher> getPacketDispatcher() const { return dispatcher; }

    /// Does nothing if already running, or without a device. A packet cut off by the end of the last read continues in
    /// the next.
    void start()
    {
        if (device)
            thread.start([this] { threadReadWrite(); });
    }
    /// Waits for the end of the turn; does nothing if not running.
    void stop() { thread.stop(); }

    /// One turn, on the caller's thread. Does nothing without a device.
    void singleShotReadWrite()
    {
        if (!device)
            return;
        const std::vector<std::uint8_t> data =
            device->readFromBlockPipeOut(pipeOut, blockSize, blocksPerRead * blockSize);
        pause();
        if (data.empty())
            return;
        std::int32_t credit = 0;
        {
            PacketDelivery delivery(dispatcher.get(), receiveQueue, memory);
            credit = decoder.decode(data, credit, delivery);
        }
        if (credit != 0 && transmitQueue.peekUnsafe()) {
            write(credit);
            pause();
        }
    }

    /// Turns until stop(): the body of the thread.
    void threadReadWrite()
    {
        while (thread.running())
            singleShotReadWrite();
    }

private:
    static constexpr int blockSize = BlockBytes;
    static constexpr int blocksPerRead = 16;
    static constexpr std::int32_t mostWordsPerWrite = 64 * BlockWords;
    static constexpr int pipeOut = 0xA0; // from the board
    static constexpr std::uint8_t pipeIn = 0x80;

    void write(std::int32_t credit)
    {
        if (writer.collect(transmitQueue, std::min(credit, mostWordsPerWrite)) > 0)
            device->writeToBlockPipeIn(pipeIn, blockSize, writer.blocks()); // the packets of a failed write are lost
    }

    // a signal does not cut it short
    static void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

    Device* device;
    PacketQueue& transmitQueue;
    PacketQueue& receiveQueue;
    std::shared_ptr<PacketDispatcher> dispatcher;
    BlockDecoder decoder;
    PacketDelivery::Memory memory;
    BlockWriter writer{BlockWriter::EmptyPackets::drop};
    LoopThread thread;
};

} // namespace keplin
