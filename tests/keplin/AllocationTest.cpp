// What a steady run allocates: the vector of each read, and nothing else.

#include <atomic>
#include <cstdlib>
#include <new>

#include "Boards.h"

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

/// `turn` on a board that always sends the same: packets of one and of 32 event words for module 2, and some for
/// others.
template <class Turn>
void expectOneAllocationARead(Board& board, PacketQueue& transmit, PacketQueue& received, Turn turn)
{
    Words words;
    for (int n = 0; n < 8; ++n) {
        Words content;
        while (content.size() < 180)
            content = content + Words{0x0000'0207, 1, 2, 0x0000'4303, 5, 0x0000'0401, 6, 0x0000'02FF} + Words(64, 9);
        words = words + block(1'000, content);
    }
    board.idle = bytesOf(words);
    board.keepsWrites = false;
    PacketRun run;
    std::size_t eventWords = 0;
    constexpr int warmUp = 10, turns = 50;
    int before = 0;
    for (int i = 0; i < warmUp + turns; ++i) {
        if (i == warmUp)
            before = allocations;
        for (int n = 0; n < 20; ++n) {
            PacketPtr command = Keplin::getRawPacketBuffer(2, HdrExtFmt::WriteRegister, PktFmt::Raw);
            for (std::uint32_t word = 0; word < 40; ++word)
                command->push_back(word, 4);
            command->prepToSend();
            transmit.enqueue(std::move(command));
        }
        turn();
        received.dequeueAll(run);
        for (std::size_t n = 0; n < run.size(); ++n)
            run[n].forEachEventWord([&](std::uint64_t word) { eventWords += word != 0; });
        Keplin::putPacketBuffers(run);
    }
    EXPECT_EQ(allocations - before, turns);
    EXPECT_EQ(board.writeCount, warmUp + turns);
    EXPECT_GT(eventWords, 500U * turns);
}

} // namespace

TEST(Allocations, OfADevKit)
{
    DevKit board;
    PacketQueue transmit, receive, client;
    int calls = 0;
    KeplinReaderWriter readerWriter(board, transmit, receive);
    readerWriter.getPacketDispatcher()->setDispatchEntryEv32(2, enqueueInto(client));
    readerWriter.getPacketDispatcher()->setDispatchEntryRaw(3, [&calls](PacketPtr packet) {
        ++calls;
        Keplin::putPacketBuffer(std::move(packet));
    });
    expectOneAllocationARead(board, transmit, client, [&] { readerWriter.singleShotReadWrite(); });
    EXPECT_GT(calls, 0);
}

TEST(Allocations, OfAnOpalKellyBoard)
{
    OpalKelly board;
    PacketQueue client;
    Keplin core;
    core.setDispatchEntry(2, client);
    OkReaderWriter<OpalKelly> readerWriter(&board, core.transmitQueue(), core.receiveQueue());
    expectOneAllocationARead(board, core.transmitQueue(), client, [&] {
        readerWriter.singleShotReadWrite();
        core.dispatchPackets();
    });
}
