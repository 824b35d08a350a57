#include <gmock/gmock.h>

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

TEST(Pool, IsThereForStaticObjects) { EXPECT_EQ(fromStartToExit.buffer->header, 0x0000'0100U); }

TEST(Pool, GivesWhatCameBackLastAsItWas)
{
    PacketPtr first = Keplin::getEmptyPacketBuffer(), second = packet(5, PktFmt::Ev32, {1, 2, 3});
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

    const PoolStats full = poolStats();
    for (const int id : {64, 0x41, 255})
        EXPECT_THAT([&] { Keplin::getRawPacketBuffer(static_cast<std::uint8_t>(id), HdrExtFmt::Command, PktFmt::Raw); },
                    testing::ThrowsMessage<std::out_of_range>("Bad target ID"));
    EXPECT_EQ(poolStats(), full) << "not touched";
}

TEST(Pool, HoldsNoMoreThanItsLimit)
{
    constexpr std::uint32_t limit = 61'680;
    for (const bool atOnce : {false, true}) {
        PacketRun run;
        while (poolStats().inPool > 0 || run.size() < limit + 3)
            run.push_back(Keplin::getEmptyPacketBuffer());
        const PoolStats before = poolStats();
        const auto surplus = static_cast<std::uint32_t>(run.size()) - limit;
        if (atOnce)
            Keplin::putPacketBuffers(run);
        while (!run.empty())
            Keplin::putPacketBuffer(run.pop_front());
        EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation - surplus, limit}));
    }
}

TEST(Stash, CountsAsThePool)
{
    PacketRun run;
    while (run.size() < 100)
        run.push_back(Keplin::getEmptyPacketBuffer());
    const PacketBuffer* const order[] = {&run[99], &run[98], &run[97]};
    Keplin::putPacketBuffers(run);
    const PoolStats full = poolStats();

    PacketStash stash;
    run.push_back(stash.get());
    EXPECT_EQ(poolStats(), (PoolStats{full.inCirculation, full.inPool - 1}));
    run.push_back(stash.get());
    EXPECT_EQ(poolStats(), (PoolStats{full.inCirculation, full.inPool - 2}));
    stash.giveBack();
    EXPECT_EQ(poolStats(), (PoolStats{full.inCirculation, full.inPool - 2}));
    run.push_back(Keplin::getEmptyPacketBuffer());
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(&run[i], order[i]) << "in the order as if they had been taken singly";
    stash.put(run.pop_back());
    PacketStash().put(run.pop_back()); // one that never got a buffer
    Keplin::putPacketBuffers(run);
    EXPECT_EQ(poolStats(), full);
}
