#include <atomic>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include "Packets.h"
#include "keplin/PacketDelivery.h"

using namespace packets;
using testing::ElementsAre;

TEST(Dispatcher, GivesPacketsToTheEntryOfModuleAndFormat)
{
    PacketDispatcher dispatcher;
    std::vector<std::string> seen;
    const auto note = [&seen](std::string who) {
        return [&seen, who](PacketPtr packet) {
            seen.push_back(who + std::to_string(packet->size));
            Keplin::putPacketBuffer(std::move(packet));
        };
    };
    const PoolStats before = poolStats();
    dispatcher.setDispatchEntryEv32(2, note("ev2 "));
    dispatcher.setDispatchEntryRaw(2, note("raw2 "));
    dispatcher.setDispatchEntryRaw(48, note("raw48 "));
    dispatcher.dispatch(packet(2, PktFmt::Raw, {1}));
    dispatcher.dispatch(packet(2, PktFmt::Ev32, {1, 2}));
    dispatcher.dispatch(packet(48, PktFmt::Raw, {1, 2, 3}));
    const pktfunc copy = dispatcher.getDispatchEntryRaw(48);
    dispatcher.setDispatchEntryRaw(48, note("later "));
    copy(packet(0, PktFmt::Ev32, {}));
    dispatcher.dispatch(packet(48, PktFmt::Raw, {1}));
    // those that nobody asked for go to the pool
    dispatcher.dispatch(packet(7, PktFmt::Ev32, {1}));
    dispatcher.dispatch(nullptr);
    dispatcher.getDispatchEntryEv32(0)(packet(0, PktFmt::Ev32, {}));
    EXPECT_THAT(seen, ElementsAre("raw2 1", "ev2 2", "raw48 3", "raw48 0", "later 1"));
    EXPECT_EQ(poolStats().inUse(), before.inUse());
}

TEST(Dispatcher, ASetterWaitsForTheCallbackThatRuns)
{
    PacketDispatcher dispatcher;
    std::promise<void> entered, leave;
    std::atomic<bool> left = false;
    dispatcher.setDispatchEntryRaw(2, [&](PacketPtr packet) {
        Keplin::putPacketBuffer(std::move(packet));
        entered.set_value();
        leave.get_future().wait();
        left = true;
    });
    std::jthread reader([&] { dispatcher.dispatch(packet(2, PktFmt::Raw, {1})); });
    entered.get_future().wait();
    std::jthread setter([&] {
        dispatcher.setDispatchEntryRaw(2, PacketDispatcher::defaultPktFunc);
        EXPECT_TRUE(left);
    });
    leave.set_value();
}

TEST(DispatcherDeathTest, WhatMustHoldEndsTheProcess)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    PacketDispatcher dispatcher;
    PacketQueue queue;
    const pktfunc f = [](PacketPtr) {};
    const char* const outOfRange = "moduleId is out of range\\.";
    EXPECT_DEATH(dispatcher.setDispatchEntryRaw(49, f), outOfRange);
    EXPECT_DEATH(dispatcher.setDispatchEntryEv32(255, pktfunc()), outOfRange);
    EXPECT_DEATH(dispatcher.getDispatchEntryEv32(49), outOfRange);
    EXPECT_DEATH(dispatcher.setDispatchEntryRaw(48, pktfunc()), "Argument f must be a valid function\\.");
    EXPECT_DEATH(dispatcher.dispatch(packet(49, PktFmt::Raw, {1})), "moduleId < MaxModules");
    EXPECT_DEATH(dispatcher.dispatch(packet(2, PktFmt::Route, {1})), "Unexpected packet format\\.");
    PacketDelivery::Memory memory;
    PacketDelivery delivery(&dispatcher, queue, memory);
    EXPECT_DEATH(delivery.deliver(packet(2, PktFmt::Config, {1}), 0xC200), "Unexpected packet format\\.");
}

namespace {

/// One read: `number` packets of one header after another, in pooled buffers.
struct Read {
    Read(const PacketDispatcher& dispatcher, PacketDelivery::Memory& memory) : delivery(&dispatcher, unused, memory) {}
    Read& deliver(int number, std::uint32_t header)
    {
        for (int i = 0; i < number; ++i) {
            PacketPtr packet = delivery.getEmptyPacketBuffer();
            packet->header = header;
            packet->size = 1;
            delivery.deliver(std::move(packet), header);
        }
        return *this;
    }
    PacketQueue unused;
    PacketDelivery delivery;
};

} // namespace

// A delivery holds packets back; what clients can see must be as if it did not.
TEST(Delivery, BehavesAsIfEveryPacketWereDispatchedByItself)
{
    PacketDispatcher dispatcher;
    PacketQueue chip, adc;
    PacketDelivery::Memory memory;
    std::vector<std::string> seen;
    const PoolStats before = poolStats();
    dispatcher.setDispatchEntryEv32(2, enqueueInto(chip));
    dispatcher.setDispatchEntryRaw(2, enqueueInto(chip));
    dispatcher.setDispatchEntryRaw(1, enqueueInto(adc));
    dispatcher.setDispatchEntryRaw(5, [&](PacketPtr packet) {
        const std::uint32_t inUse = poolStats().inUse() - before.inUse();
        seen.push_back(std::to_string(drain(chip).size()) + " " + std::to_string(drain(adc).size()) + " " +
                       std::to_string(inUse));
        Keplin::putPacketBuffer(std::move(packet));
    });
    Read(dispatcher, memory)
        .deliver(1, 0x0200)
        .deliver(1, 0x4200)
        .deliver(1, 0x4100)
        .deliver(1, 0x0200)
        .deliver(1, 0x0900) // to the pool
        .deliver(2, 0x4500) // look
        .deliver(1, 0x4100);
    EXPECT_THAT(seen, ElementsAre("3 1 5", "0 0 1"));
    EXPECT_EQ(drain(adc).size(), 1U);
    EXPECT_EQ(poolStats().inUse(), before.inUse());
    EXPECT_EQ(poolStats().inCirculation, std::max(before.inCirculation, before.inUse() + 5))
        << "no more than are out at a time";
}

TEST(Delivery, ACallbackFindsThePoolWithEveryBufferThatIsFree)
{
    PacketRun others; // so that five are left
    while (poolStats().inPool > 0 || others.size() < 5)
        others.push_back(Keplin::getEmptyPacketBuffer());
    for (int i = 0; i < 5; ++i)
        Keplin::putPacketBuffer(others.pop_back());
    const PoolStats before = poolStats();

    PacketDispatcher dispatcher;
    PacketQueue transmit, chip;
    PacketDelivery::Memory memory;
    dispatcher.setDispatchEntryEv32(2, enqueueInto(chip));
    dispatcher.setDispatchEntryRaw(5, [&](PacketPtr request) {
        transmit.enqueue(packet(6, PktFmt::Raw, {1}));
        Keplin::putPacketBuffer(std::move(request));
    });
    Read(dispatcher, memory).deliver(5, 0x0200);
    chip.clear();
    Read(dispatcher, memory).deliver(4, 0x4500); // after a turn that used all five
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, 1})) << "four wait to be sent, and none was made";
}
