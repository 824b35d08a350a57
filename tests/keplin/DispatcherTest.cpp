#include <atomic>
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    dispatcher.setDispatchEntryEv32(2, note("ev2 "));
    dispatcher.setDispatchEntryRaw(2, note("raw2 "));
    dispatcher.setDispatchEntryRaw(48, note("raw48 "));
    dispatcher.dispatch(packet(2, PktFmt::Raw, {1}));
    dispatcher.dispatch(packet(2, PktFmt::Ev32, {1, 2}));
    dispatcher.dispatch(packet(48, PktFmt::Raw, {1, 2, 3}));
    EXPECT_THAT(seen, ElementsAre("raw2 1", "ev2 2", "raw48 3"));

    seen.clear();
    const pktfunc copy = dispatcher.getDispatchEntryRaw(48);
    dispatcher.setDispatchEntryRaw(48, note("later "));
    copy(packet(0, PktFmt::Ev32, {}));
    dispatcher.dispatch(packet(48, PktFmt::Raw, {1}));
    EXPECT_THAT(seen, ElementsAre("raw48 0", "later 1"));
}

TEST(Dispatcher, PacketsThatNobodyAskedForGoBackToThePool)
{
    const PacketDispatcher dispatcher;
    PacketPtr stray = packet(7, PktFmt::Ev32, {1});
    const PoolStats before = poolStats();
    dispatcher.dispatch(std::move(stray));
    dispatcher.dispatch(nullptr);
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, before.inPool + 1}));
    dispatcher.getDispatchEntryEv32(0)(packet(0, PktFmt::Ev32, {}));
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, before.inPool + 1}));
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
    std::thread reader([&] { dispatcher.dispatch(packet(2, PktFmt::Raw, {1})); });
    entered.get_future().wait();
    std::thread setter([&] {
        dispatcher.setDispatchEntryRaw(2, PacketDispatcher::defaultPktFunc);
        EXPECT_TRUE(left);
    });
    leave.set_value();
    setter.join();
    reader.join();
}

TEST(DispatcherDeathTest, WhatMustHoldEndsTheProcess)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    PacketDispatcher dispatcher;
    PacketQueue queue;
    const pktfunc f = [](PacketPtr) {};
    EXPECT_DEATH(dispatcher.setDispatchEntryRaw(49, f), "moduleId is out of range\\.");
    EXPECT_DEATH(dispatcher.setDispatchEntryEv32(255, pktfunc()), "moduleId is out of range\\.");
    EXPECT_DEATH(dispatcher.setDispatchEntryRaw(48, pktfunc()), "Argument f must be a valid function\\.");
    EXPECT_DEATH(dispatcher.getDispatchEntryEv32(49), "moduleId is out of range\\.");
    EXPECT_DEATH(dispatcher.dispatch(packet(49, PktFmt::Raw, {1})), "moduleId < MaxModules");
    EXPECT_DEATH(dispatcher.dispatch(packet(2, PktFmt::Route, {1})), "Unexpected packet format\\.");
    EXPECT_DEATH(
        {
            PacketDelivery::Memory memory;
            PacketDelivery delivery(&dispatcher, queue, memory);
            delivery.deliver(packet(2, PktFmt::Config, {1}), 0xC200);
        },
        "Unexpected packet format\\.");
}

TEST(Delivery, ACallbackFindsThePoolWithEveryBufferThatIsFree)
{
    PacketRun free;
    for (int i = 0; i < 5; ++i)
        free.push_back(Keplin::getEmptyPacketBuffer());
    Keplin::putPacketBuffers(free);
    PacketRun others; // so that five are left
    while (poolStats().inPool > 5)
        others.push_back(Keplin::getEmptyPacketBuffer());
    const PoolStats before = poolStats();

    PacketDispatcher dispatcher;
    PacketQueue transmit, chip, unused;
    PacketDelivery::Memory memory;
    dispatcher.setDispatchEntryEv32(2, enqueueInto(chip));
    dispatcher.setDispatchEntryRaw(5, [&](PacketPtr request) {
        transmit.enqueue(packet(6, PktFmt::Raw, {1}));
        Keplin::putPacketBuffer(std::move(request));
    });
    const auto deliver = [&](int packets, std::uint32_t header) {
        PacketDelivery delivery(&dispatcher, unused, memory);
        for (int i = 0; i < packets; ++i) {
            PacketPtr packet = delivery.getEmptyPacketBuffer();
            packet->header = header;
            delivery.deliver(std::move(packet), header);
        }
    };
    deliver(5, 0x0200);
    chip.clear();
    deliver(4, 0x4500); // after a turn that used all five
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, 1})) << "four wait to be sent, and none was made";
}

// A delivery holds packets back; what clients can see must be as if it did not.
TEST(Delivery, BehavesAsIfEveryPacketWereDispatchedByItself)
{
    PacketDispatcher dispatcher;
    PacketQueue chip, adc, unused;
    PacketDelivery::Memory memory;
    std::vector<std::string> seen;
    dispatcher.setDispatchEntryEv32(2, enqueueInto(chip));
    dispatcher.setDispatchEntryRaw(2, enqueueInto(chip));
    dispatcher.setDispatchEntryRaw(1, enqueueInto(adc));
    dispatcher.setDispatchEntryRaw(5, [&](PacketPtr packet) {
        const PoolStats stats = poolStats();
        seen.push_back(std::to_string(drain(chip).size()) + " " + std::to_string(drain(adc).size()) + " " +
                       std::to_string(stats.inCirculation - stats.inPool));
        Keplin::putPacketBuffer(std::move(packet));
    });
    const PoolStats before = poolStats();
    const std::uint32_t others = before.inCirculation - before.inPool;
    {
        PacketDelivery delivery(&dispatcher, unused, memory);
        const auto deliver = [&](std::uint8_t id, PktFmt format) {
            PacketPtr packet = delivery.getEmptyPacketBuffer();
            packet->setHeader(id, HdrExtFmt::Command, format);
            packet->size = 1;
            const std::uint32_t header = packet->header;
            delivery.deliver(std::move(packet), header);
        };
        deliver(2, PktFmt::Ev32);
        deliver(2, PktFmt::Raw);
        deliver(1, PktFmt::Raw);
        deliver(2, PktFmt::Ev32);
        deliver(9, PktFmt::Ev32); // to the pool
        deliver(5, PktFmt::Raw);  // looks
        deliver(5, PktFmt::Raw);
        deliver(1, PktFmt::Raw);
    }
    EXPECT_THAT(seen, ElementsAre("3 1 " + std::to_string(others + 5), "0 0 " + std::to_string(others + 1)));
    EXPECT_EQ(drain(adc).size(), 1U);
    EXPECT_EQ(unused.peekUnsafe(), nullptr);
    EXPECT_EQ(poolStats().inCirculation - poolStats().inPool, others);
    EXPECT_EQ(poolStats().inCirculation, std::max(before.inCirculation, others + 5))
        << "no more than are out at a time";
}
