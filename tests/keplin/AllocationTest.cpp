// What a steady run allocates: the vector of each read, and nothing else.

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/io/OkReaderWriter.h"

namespace {

std::atomic<int> allocations = 0;

} // namespace

void* operator new(std::size_t size)
{
    ++allocations;
    if (void* memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

using namespace packets;

namespace {

/// Always the same read: packets of one and of 32 event words, and some for a callback.
struct Board : KeplinEndpoint {
    Board()
    {
        Words stream;
        while (stream.size() < 8 * 255 - 75) {
            stream = stream + Words{0x0000'0207, 1, 2} + Words{0x0000'4303, 5} + Words{0x0000'0401, 6};
            stream.push_back(0x0000'02FF);
            stream.resize(stream.size() + 64, 9);
        }
        Words blocks;
        for (std::size_t at = 0; at < stream.size(); at += 255)
            blocks = blocks +
                     block(1'000, {stream.begin() + static_cast<std::ptrdiff_t>(at),
                                   stream.begin() + static_cast<std::ptrdiff_t>(std::min(at + 255, stream.size()))});
        bytes = bytesOf(blocks);
    }
    Bytes readKeplinEndpoint(int) override { return bytes; }
    bool writeKeplinEndpoint(const Bytes& data) override { return ++writes, !data.empty(); }
    Bytes readFromBlockPipeOut(int, int, int) const { return bytes; }
    bool writeToBlockPipeIn(std::uint8_t, int, const Bytes& data) { return ++writes, !data.empty(); }

    Bytes bytes;
    int writes = 0;
};

template <class ReaderWriter>
void expectOneAllocationARead(ReaderWriter& readerWriter, Board& board, PacketQueue& transmit, PacketQueue& received)
{
    std::size_t words = 0;
    PacketRun run;
    const auto turn = [&] {
        for (int i = 0; i < 20; ++i) {
            PacketPtr command = Keplin::getRawPacketBuffer(2, HdrExtFmt::WriteRegister, PktFmt::Raw);
            for (std::uint32_t word = 0; word < 40; ++word)
                command->push_back(word, 4);
            command->prepToSend();
            transmit.enqueue(std::move(command));
        }
        readerWriter.singleShotReadWrite();
        received.dequeueAll(run);
        for (std::size_t i = 0; i < run.size(); ++i)
            run[i].forEachEventWord([&](std::uint64_t word) { words += word != 0; });
        Keplin::putPacketBuffers(run);
    };
    for (int i = 0; i < 10; ++i)
        turn();
    const int before = allocations;
    words = 0;
    board.writes = 0;
    constexpr int turns = 50;
    for (int i = 0; i < turns; ++i)
        turn();
    EXPECT_EQ(allocations - before, turns);
    EXPECT_EQ(board.writes, turns);
    EXPECT_GT(words, 500U * turns);
}

} // namespace

TEST(Allocations, OfADevKit)
{
    Board board;
    PacketQueue transmit, receive, client;
    int calls = 0;
    KeplinReaderWriter readerWriter(board, transmit, receive);
    readerWriter.getPacketDispatcher()->setDispatchEntryEv32(2, enqueueInto(client));
    readerWriter.getPacketDispatcher()->setDispatchEntryRaw(3, [&calls](PacketPtr packet) {
        ++calls;
        Keplin::putPacketBuffer(std::move(packet));
    });
    expectOneAllocationARead(readerWriter, board, transmit, client);
    EXPECT_GT(calls, 0);
}

TEST(Allocations, OfAnOpalKellyBoard)
{
    Board board;
    PacketQueue client;
    Keplin core;
    core.setDispatchEntry(2, client);
    OkReaderWriter<Board> readerWriter(&board, core.transmitQueue(), core.receiveQueue());
    const struct Sorted {
        OkReaderWriter<Board>& inner;
        Keplin& core;
        void singleShotReadWrite() const
        {
            inner.singleShotReadWrite();
            core.dispatchPackets();
        }
    } sorted{readerWriter, core};
    expectOneAllocationARead(sorted, board, core.transmitQueue(), client);
}
