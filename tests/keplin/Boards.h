#pragma once
// Boards for the tests of the reader/writers: both transports, played by hand.

#include <condition_variable>
#include <deque>
#include <mutex>

#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/io/OkReaderWriter.h"

namespace packets {

/// Gives the reads that it was given, then `idle` for ever. Nobody asks for the result of a write.
struct Board {
    Bytes nextRead()
    {
        const std::lock_guard lock(mutex);
        ++readCount;
        changed.notify_all();
        if (reads.empty())
            return idle;
        Bytes read = std::move(reads.front());
        reads.pop_front();
        return read;
    }
    bool take(const Bytes& written)
    {
        const std::lock_guard lock(mutex);
        ++writeCount;
        if (keepsWrites)
            writes.push_back(written);
        changed.notify_all();
        return false;
    }
    template <class Condition>
    void waitFor(Condition condition)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, condition);
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Bytes> reads;
    Bytes idle;
    std::vector<Bytes> writes;
    bool keepsWrites = true;
    int readCount = 0, writeCount = 0;
};

struct DevKit : Board, KeplinEndpoint {
    using ReaderWriter = KeplinReaderWriter;
    static constexpr std::size_t mostWords = 4096;
    static constexpr bool sendsEmptyPackets = true;

    Bytes readKeplinEndpoint(int blocks) override
    {
        EXPECT_EQ(blocks, 8);
        return nextRead();
    }
    bool writeKeplinEndpoint(const Bytes& data) override { return take(data); }
    ReaderWriter connect(PacketQueue& transmit, PacketQueue& receive) { return {*this, transmit, receive}; }
};

struct OpalKelly : Board {
    using ReaderWriter = OkReaderWriter<OpalKelly>;
    static constexpr std::size_t mostWords = 16'384;
    static constexpr bool sendsEmptyPackets = false;

    Bytes readFromBlockPipeOut(int pipe, int blockSize, int length)
    {
        EXPECT_TRUE(pipe == 0xA0 && blockSize == 1024 && length == 16'384);
        return nextRead();
    }
    bool writeToBlockPipeIn(std::uint8_t pipe, int blockSize, const Bytes& data)
    {
        EXPECT_TRUE(pipe == 0x80 && blockSize == 1024);
        return take(data);
    }
    ReaderWriter connect(PacketQueue& transmit, PacketQueue& receive) { return {this, transmit, receive}; }
};

} // namespace packets
