// Our layer under libcaer's names: what the cameras rest on.

#include <functional>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSink.h"
#include "davis/caer/Devices.h"

namespace {

using emulation::plugVirtualDavis;
using emulation::plugVirtualDvXplorer;
using testing::HasSubstr;
using testing::ThrowsMessage;

class CaerLayer : public testing::Test {
    test::EmptyBus bus;
};

std::string serialOf(const libcaer::devices::davis& device) { return device.infoGet().deviceSerialNumber; }

TEST_F(CaerLayer, BiasesAreMadeAndReadAsTheChipTakesThem)
{
    const struct {
        caer_bias_coarsefine bias;
        std::uint16_t word;
    } rows[] = {
        {{2, 116, true, false, true, true}, 0x274D}, {{1, 33, true, false, true, true}, 0x421D},
        {{7, 255, true, true, true, true}, 0x7FFF},  {{0, 0, false, false, false, false}, 0},
        {{4, 1, false, true, false, false}, 0x1012},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(caerBiasCoarseFineGenerate(row.bias), row.word);
        const caer_bias_coarsefine back = caerBiasCoarseFineParse(row.word);
        EXPECT_EQ(back.coarseValue, row.bias.coarseValue);
        EXPECT_EQ(back.fineValue, row.bias.fineValue);
        EXPECT_EQ(back.enabled, row.bias.enabled);
        EXPECT_EQ(back.sexN, row.bias.sexN);
        EXPECT_EQ(back.typeNormal, row.bias.typeNormal);
        EXPECT_EQ(back.currentLevelNormal, row.bias.currentLevelNormal);
    }
}

TEST_F(CaerLayer, DevicesAreFoundByKindInPlugOrderOneOpenerAtATime)
{
    const auto explorer = plugVirtualDvXplorer();
    const auto first = plugVirtualDavis();
    const auto second = plugVirtualDavis();
    {
        const libcaer::devices::davis one(1);
        const libcaer::devices::davis two(2, 0, 0, "");
        EXPECT_EQ(serialOf(one), first->serialNumber());
        EXPECT_EQ(serialOf(two), second->serialNumber());
        EXPECT_TRUE(first->isOpen());
        EXPECT_FALSE(explorer->isOpen());
        EXPECT_THAT([] { libcaer::devices::davis(3); },
                    ThrowsMessage<std::runtime_error>(HasSubstr("all 2 that are plugged in are open already")));
    }
    EXPECT_FALSE(first->isOpen());
    EXPECT_EQ(serialOf(libcaer::devices::davis(1)), first->serialNumber());
    first->unplug();
    EXPECT_EQ(serialOf(libcaer::devices::davis(1)), second->serialNumber());
}

TEST_F(CaerLayer, WithoutACameraTheErrorNamesTheTypeAndTheRemedy)
{
    EXPECT_THAT([] { libcaer::devices::davis(1); },
                ThrowsMessage<std::runtime_error>(testing::AllOf(HasSubstr("DAVIS camera (device type 4"),
                                                                 HasSubstr("vorna.emulation.plug_virtual_davis()"))));
    const auto davis = plugVirtualDavis();
    EXPECT_THAT([] { libcaer::devices::dvXplorer(1); }, ThrowsMessage<std::runtime_error>(testing::AllOf(
                                                            HasSubstr("DVXplorer camera (device type 8"),
                                                            HasSubstr("vorna.emulation.plug_virtual_dvxplorer()"))));
    EXPECT_THROW(libcaer::devices::davis(1, 2, 0, ""), std::runtime_error) << "no virtual camera is on bus 2";
}

TEST_F(CaerLayer, AnUnpluggedDeviceFailsWithItsNameInFront)
{
    const auto camera = plugVirtualDavis();
    const libcaer::devices::davis device(7);
    const std::string name = "DAVIS346 ID-7 SN-" + camera->serialNumber() + " [0:0]: ";
    EXPECT_THAT([&] { device.dataStop(); }, ThrowsMessage<std::runtime_error>(name + "failed to stop getting data."));
    device.configSet(5, 8, 123);
    EXPECT_EQ(device.configGet(5, 8), 123u);
    camera->unplug();
    const struct {
        std::function<void()> call;
        const char* text;
    } rows[] = {
        {[&] { device.sendDefaultConfig(); }, "failed to send default configuration."},
        {[&] { device.configSet(5, 9, 4); }, "failed to set configuration parameter, modAddr=5, paramAddr=9, param=4."},
        {[&] { device.configGet(5, 8); }, "failed to get configuration parameter, modAddr=5, paramAddr=8."},
        {[&] { device.dataStart(nullptr, nullptr, nullptr, nullptr, nullptr); }, "failed to start getting data."},
    };
    for (const auto& row : rows)
        EXPECT_THAT(row.call, ThrowsMessage<std::runtime_error>(name + row.text));
}

TEST_F(CaerLayer, AReadHoldsPacketsAsACameraSendsThem)
{
    const auto camera = plugVirtualDavis(test::fastScene(20'000));
    const libcaer::devices::davis device(1);
    device.dataStart(nullptr, nullptr, nullptr, nullptr, nullptr);

    const auto reset = device.dataGet();
    ASSERT_TRUE(reset);
    EXPECT_EQ((*reset->begin())->getEventType(), SPECIAL_EVENT) << "a camera first tells that its clock was reset";

    const auto read = device.dataGet();
    ASSERT_TRUE(read);
    ASSERT_EQ(read->size(), 2u);
    EXPECT_EQ(*read->begin(), nullptr);
    const auto& polarity = *(read->begin() + 1);
    EXPECT_EQ(polarity->getEventType(), POLARITY_EVENT);
    EXPECT_EQ(polarity->getEventSize(), 8);
    EXPECT_EQ(polarity->getEventNumber(), 10'000);
    EXPECT_EQ(polarity->getEventTSOverflow(), 0);

    ASSERT_TRUE(device.dataGet());
    EXPECT_EQ(device.dataGet(), nullptr) << "nothing is left, and without blocking there is no wait";
    EXPECT_TRUE(camera->isFinished());
    device.dataStop();
}

} // namespace
