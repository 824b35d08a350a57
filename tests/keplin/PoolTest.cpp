#include <thread>

#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/PacketStash.h"

using namespace packets;

namespace {

// Takes and gives buffers while static objects of other files are not there yet, or no more.
struct FromStartToExit {
    PacketPtr buffer = Keplin::getRawPacketBuffer(1, HdrExtFmt::Command, PktFmt::Ev32);
    PacketQueue queue;
    FromStartToExit() { queue.enqueue(Keplin::getEmptyPacketBuffer()); }
    ~FromStartToExit() { Keplin::putPacketBuffer(std::move(buffer)); }
} fromStartToExit;

} // namespace

TEST(Pool, GivesWhatCameBackLastAsItWas)
{
    PacketPtr first = Keplin::getEmptyPacketBuffer();
    PacketPtr second = packet(5, PktFmt::Ev32, {1, 2, 3});
    const PacketBuffer* const addresses[] = {first.get(), second.get()};
    const PoolStats before = poolStats();
    Keplin::putPacketBuffer(std::move(first));
    Keplin::putPacketBuffer(std::move(second));
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, before.inPool + 2}));
    EXPECT_EQ(addresses[1]->size, 0U);

    second = Keplin::getEmptyPacketBuffer();
    first = Keplin::getRawPacketBuffer(63, HdrExtFmt::AdcSample, PktFmt::Raw);
    EXPECT_EQ(second.get(), addresses[1]);
    EXPECT_EQ(first.get(), addresses[0]);
    EXPECT_EQ(second->size, 0U);
    EXPECT_EQ(second->header, 0x0000'0502U);
    EXPECT_EQ(second->data[2], 3);
    EXPECT_EQ(first->header, 0x0700'7F00U);
    EXPECT_EQ(poolStats(), before);
    PacketRun run;
    run.push_back(std::move(first));
    run.push_back(std::move(second));
    run[1].size = 9;
    Keplin::putPacketBuffers(run);
    second = Keplin::getEmptyPacketBuffer();
    EXPECT_EQ(second.get(), addresses[1]);
    EXPECT_EQ(second->size, 0U);
    Keplin::putPacketBuffer(std::move(second));
}

TEST(Pool, RefusesTargetsThatDoNotFitTheHeader)
{
    Keplin::putPacketBuffer(Keplin::getEmptyPacketBuffer());
    const PoolStats before = poolStats();
    for (const int id : {64, 0x41, 255})
        try {
            Keplin::getRawPacketBuffer(static_cast<std::uint8_t>(id), HdrExtFmt::Command, PktFmt::Raw);
            ADD_FAILURE() << id;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "Bad target ID");
        }
    EXPECT_EQ(poolStats(), before);
}

TEST(Pool, HoldsNoMoreThanItsLimit)
{
    constexpr std::uint32_t limit = 61'680;
    static_assert(Keplin::MaxPooledBuffers == limit);
    for (const bool atOnce : {false, true}) {
        PacketRun run;
        while (poolStats().inPool > 0)
            run.push_back(Keplin::getEmptyPacketBuffer());
        while (run.size() < limit + 3)
            run.push_back(Keplin::getEmptyPacketBuffer());
        const PoolStats before = poolStats();
        if (atOnce)
            Keplin::putPacketBuffers(run);
        while (!run.empty())
            Keplin::putPacketBuffer(run.pop_front());
        const PoolStats after = poolStats();
        EXPECT_EQ(after.inPool, limit);
        EXPECT_EQ(before.inCirculation - after.inCirculation, 3U);
    }
}

TEST(Pool, CountsStayExactWithTwoThreads)
{
    const PoolStats before = poolStats();
    const auto work = [] {
        PacketStash stash;
        for (int i = 0; i < 2'000; ++i) {
            PacketPtr a = Keplin::getEmptyPacketBuffer();
            PacketPtr b = stash.get();
            poolStats();
            Keplin::putPacketBuffer(std::move(a));
            if (i % 3 == 0)
                stash.put(std::move(b));
            else
                Keplin::putPacketBuffer(std::move(b));
            if (i % 7 == 0)
                stash.giveBack();
        }
    };
    std::thread other(work);
    work();
    other.join();
    const PoolStats after = poolStats();
    EXPECT_EQ(after.inCirculation - after.inPool, before.inCirculation - before.inPool);
}

TEST(Stash, CountsAsThePool)
{
    PacketRun run;
    for (int i = 0; i < 100; ++i)
        run.push_back(Keplin::getEmptyPacketBuffer());
    const PacketBuffer* const last = &run[99];
    const PacketBuffer* const before = &run[97];
    Keplin::putPacketBuffers(run);
    const PoolStats full = poolStats();

    PacketStash stash;
    PacketPtr first = stash.get();
    EXPECT_EQ(first.get(), last);
    EXPECT_EQ(poolStats(), (PoolStats{full.inCirculation, full.inPool - 1}));
    PacketPtr second = stash.get();
    EXPECT_EQ(poolStats(), (PoolStats{full.inCirculation, full.inPool - 2}));
    stash.giveBack();
    EXPECT_EQ(poolStats(), (PoolStats{full.inCirculation, full.inPool - 2}));
    PacketPtr third = Keplin::getEmptyPacketBuffer();
    EXPECT_EQ(third.get(), before) << "in the order as if they had been taken singly";
    for (PacketPtr* buffer : {&third, &second, &first})
        Keplin::putPacketBuffer(std::move(*buffer));
    EXPECT_EQ(poolStats(), full);
}

TEST(Pool, IsThereForStaticObjects) { EXPECT_EQ(fromStartToExit.buffer->header, 0x0000'0100U); }
