#include <gmock/gmock.h>

#include "Packets.h"

using namespace packets;
using testing::ElementsAre;

namespace {

PacketPtr numbered(std::uint32_t number)
{
    PacketPtr result = Keplin::getEmptyPacketBuffer();
    result->header = number;
    return result;
}

} // namespace

TEST(Queue, IsFirstInFirstOut)
{
    const PoolStats before = poolStats();
    PacketQueue queue;
    EXPECT_FALSE(queue.dequeue().has_value());
    queue.enqueue(nullptr);
    EXPECT_EQ(queue.peekUnsafe(), nullptr);

    queue.enqueue(numbered(1));
    PacketRun run;
    for (const std::uint32_t i : {2U, 3U, 4U, 5U})
        run.push_back(numbered(i));
    queue.enqueueAll(run);
    EXPECT_TRUE(run.empty());
    EXPECT_EQ(queue.peekUnsafe()->header, 1U);
    run.push_back(std::move(*queue.dequeue()));
    EXPECT_EQ(queue.peekUnsafe()->header, 2U);
    queue.dequeueWhile([](const PacketBuffer& packet) { return packet.header != 4; }, run);
    EXPECT_EQ(queue.peekUnsafe()->header, 4U);
    queue.dequeueAll(run);
    EXPECT_EQ(queue.peekUnsafe(), nullptr);
    for (std::uint32_t i = 0; i < 5; ++i)
        EXPECT_EQ(run[i].header, i + 1);

    queue.enqueueAll(run);
    queue.clear();
    EXPECT_EQ(queue.peekUnsafe(), nullptr);
    EXPECT_EQ(poolStats().inUse(), before.inUse()) << "what was left is in the pool";
}

TEST(Queue, KeepsOrderAroundTheEndOfItsMemory)
{
    PacketQueue queue;
    PacketRun run;
    std::uint32_t in = 0, out = 0;
    for (std::uint32_t round = 0; round < 500; ++round) {
        for (std::uint32_t i = 0; i < round % 13; ++i)
            queue.enqueue(numbered(in++));
        std::uint32_t left = round % 11;
        queue.dequeueWhile([&](const PacketBuffer&) { return left-- > 0; }, run);
        for (; !run.empty(); Keplin::putPacketBuffer(run.pop_front()))
            EXPECT_EQ(run[0].header, out++);
    }
    EXPECT_GT(out, 2'000U);
}

TEST(KeplinCore, SortsWhatWasReceived)
{
    const PoolStats before = poolStats();
    const PacketBuffer* sent = nullptr;
    {
        PacketQueue chip, adc;
        Keplin core;
        EXPECT_EQ(core.dispatchPackets(), 0U);
        core.setDispatchEntry(2, chip);
        core.setDispatchEntry(48, chip);
        core.setDispatchEntry(1, adc);
        // ids up to 63 come from a board: those above the table have no client
        for (const std::uint8_t id : Bytes{2, 2, 1, 5, 48, 49, 63, 2})
            core.receiveQueue().enqueue(packet(id, PktFmt::Config, {id, 0}));
        EXPECT_EQ(core.dispatchPackets(), 5U);
        EXPECT_THAT(drain(chip), ElementsAre(Words{0xC201, 2}, Words{0xC201, 2}, Words{0xF001, 48}, Words{0xC201, 2}));
        EXPECT_THAT(drain(adc), ElementsAre(Words{0xC101, 1}));

        for (const int id : {1, 1, -1, 49})
            core.removeDispatchEntry(id);
        core.receiveQueue().enqueue(packet(1, PktFmt::Raw, {1}));
        EXPECT_EQ(core.dispatchPackets(), 0U);
        EXPECT_EQ(adc.peekUnsafe(), nullptr);
        EXPECT_EQ(core.receiveQueue().peekUnsafe(), nullptr);
        for (const int id : {49, -1})
            EXPECT_THROW(core.setDispatchEntry(id, chip), std::out_of_range);

        PacketPtr command = Keplin::getRawPacketBuffer(2, HdrExtFmt::Command, PktFmt::Raw);
        command->push_back(0x1234, 2);
        core.sendPacket(std::move(command));
        sent = core.transmitQueue().peekUnsafe();
        EXPECT_EQ(wireOf(*sent), (Words{0x0001'4201, 0x1234}));
        core.receiveQueue().enqueue(packet(1, PktFmt::Raw, {1}));
    }
    EXPECT_EQ(poolStats().inUse(), before.inUse()) << "what waited went back to the pool";
    PacketPtr last = Keplin::getEmptyPacketBuffer();
    EXPECT_EQ(last.get(), sent) << "what was to be sent came last";
    Keplin::putPacketBuffer(std::move(last));
}
