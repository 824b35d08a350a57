#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

std::vector<std::uint32_t> numbersIn(const PacketRun& run)
{
    std::vector<std::uint32_t> numbers;
    for (std::size_t i = 0; i < run.size(); ++i)
        numbers.push_back(run[i].header);
    return numbers;
}

} // namespace

TEST(Queue, IsFirstInFirstOut)
{
    PacketQueue queue;
    EXPECT_FALSE(queue.dequeue().has_value());
    EXPECT_EQ(queue.peekUnsafe(), nullptr);
    queue.enqueue(nullptr);
    EXPECT_EQ(queue.peekUnsafe(), nullptr);

    queue.enqueue(numbered(1));
    PacketRun run;
    for (const std::uint32_t i : {2U, 3U, 4U, 5U})
        run.push_back(numbered(i));
    queue.enqueueAll(run);
    EXPECT_TRUE(run.empty());
    ASSERT_NE(queue.peekUnsafe(), nullptr);
    EXPECT_EQ(queue.peekUnsafe()->header, 1U);
    EXPECT_EQ((*queue.dequeue())->header, 1U);
    EXPECT_EQ(queue.peekUnsafe()->header, 2U);
    queue.dequeueWhile([](const PacketBuffer& packet) { return packet.header != 4; }, run);
    EXPECT_THAT(numbersIn(run), ElementsAre(2, 3));
    EXPECT_EQ(queue.peekUnsafe()->header, 4U);
    queue.dequeueAll(run);
    EXPECT_THAT(numbersIn(run), ElementsAre(2, 3, 4, 5));
    EXPECT_EQ(queue.peekUnsafe(), nullptr);
}

TEST(Queue, GivesWhatIsLeftBackToThePool)
{
    const PoolStats before = poolStats();
    {
        PacketQueue queue;
        for (std::uint32_t i = 0; i < 100; ++i)
            queue.enqueue(numbered(i));
        queue.clear();
        EXPECT_EQ(queue.peekUnsafe(), nullptr);
        EXPECT_EQ(poolStats().inPool - before.inPool, poolStats().inCirculation - before.inCirculation);
        queue.enqueue(numbered(1));
    }
    EXPECT_EQ(poolStats().inPool - before.inPool, poolStats().inCirculation - before.inCirculation);
}

TEST(Queue, KeepsOrderAroundTheEndOfItsMemory)
{
    PacketQueue queue;
    PacketRun run;
    std::uint32_t in = 0, out = 0;
    for (std::uint32_t round = 0; round < 500; ++round) {
        for (std::uint32_t i = 0; i < round % 13; ++i)
            queue.enqueue(numbered(in++));
        const std::uint32_t number = round % 11;
        std::uint32_t taken = 0;
        queue.dequeueWhile([&](const PacketBuffer&) { return taken++ < number; }, run);
        for (; !run.empty(); Keplin::putPacketBuffer(run.pop_front()))
            EXPECT_EQ(run[0].header, out++);
    }
    EXPECT_GT(out, 2'000U);
}

TEST(Queue, CarriesBetweenThreadsWhileTheConsumerPeeks)
{
    constexpr std::uint32_t each = 2'000;
    PacketQueue queue;
    std::vector<std::thread> producers;
    for (const std::uint32_t base : {0U, 1'000'000U})
        producers.emplace_back([&queue, base] {
            for (std::uint32_t i = 0; i < each; ++i)
                queue.enqueue(numbered(base + i));
        });
    std::uint32_t next[] = {0, 1'000'000};
    for (std::uint32_t seen = 0; seen < 2 * each;) {
        const PacketBuffer* first = queue.peekUnsafe();
        if (!first) {
            std::this_thread::yield();
            continue;
        }
        const std::uint32_t number = first->header;
        PacketPtr packet = std::move(*queue.dequeue());
        ASSERT_EQ(packet->header, number);
        ASSERT_EQ(number, next[number >= 1'000'000]++);
        Keplin::putPacketBuffer(std::move(packet));
        ++seen;
    }
    for (std::thread& producer : producers)
        producer.join();
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

        core.removeDispatchEntry(1);
        core.removeDispatchEntry(1);
        core.removeDispatchEntry(-1);
        core.removeDispatchEntry(49);
        core.receiveQueue().enqueue(packet(1, PktFmt::Raw, {1}));
        EXPECT_EQ(core.dispatchPackets(), 0U);
        EXPECT_EQ(adc.peekUnsafe(), nullptr);
        EXPECT_EQ(core.receiveQueue().peekUnsafe(), nullptr);
        EXPECT_THROW(core.setDispatchEntry(49, chip), std::out_of_range);
        EXPECT_THROW(core.setDispatchEntry(-1, chip), std::out_of_range);

        PacketPtr command = Keplin::getRawPacketBuffer(2, HdrExtFmt::Command, PktFmt::Raw);
        command->push_back(0x1234, 2);
        core.sendPacket(std::move(command));
        sent = core.transmitQueue().peekUnsafe();
        EXPECT_EQ(wireOf(*sent), (Words{0x0001'4201, 0x1234}));
        core.receiveQueue().enqueue(packet(1, PktFmt::Raw, {1}));
    }
    EXPECT_EQ(poolStats().inPool - before.inPool, poolStats().inCirculation - before.inCirculation)
        << "what waited went back to the pool";
    PacketPtr last = Keplin::getEmptyPacketBuffer();
    EXPECT_EQ(last.get(), sent) << "what was to be sent came last";
    Keplin::putPacketBuffer(std::move(last));
}
