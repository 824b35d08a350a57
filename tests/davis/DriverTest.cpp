// Drivers: what a camera class calls, and which one it gets.

#include <functional>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSink.h"
#include "davis/driver/Open.h"

namespace {

using namespace davis::driver;
using emulation::plugVirtualDavis;
using emulation::plugVirtualDvXplorer;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

/// With the parameter set, libcaer finds the camera of a test.
class Drivers : public testing::TestWithParam<bool> {
protected:
    test::EmptyBus bus;
    std::shared_ptr<emulation::VirtualCamera> camera = test::plugged(plugVirtualDavis(), GetParam());
    std::unique_ptr<Driver> driver = open(CameraKind::davis);
};
INSTANTIATE_TEST_SUITE_P(VirtualAndLibcaer, Drivers, testing::Bool());

TEST_P(Drivers, BiasesAreSetAndReadAsTheChipTakesThem)
{
    const struct {
        CoarseFineBias bias;
        std::uint32_t word;
    } rows[] = {
        {{2, 116, true, false, true, true}, 0x274D}, {{1, 33, true, false, true, true}, 0x121D},
        {{7, 255, true, true, true, true}, 0x7FFF},  {{0, 0, false, false, false, false}, 0},
        {{4, 1, false, true, false, false}, 0x4012}, {{0, 0, false, false, true, false}, 0x0004},
    };
    for (const auto& row : rows) {
        driver->setBias(9, row.bias);
        EXPECT_EQ(driver->configuration({biasModule, 9}), row.word);
        EXPECT_EQ(driver->bias(9), row.bias);
    }
}

TEST_P(Drivers, OfAnUnpluggedCameraFailWithItsNameInFront)
{
    const std::string name = "DAVIS346 ID-1 SN-" + camera->serialNumber() + " [0:0]: ";
    const struct {
        std::function<void()> call;
        const char* text;
    } rows[] = {
        {[&] { driver->stop(); }, "failed to stop getting data."},
        {[&] { driver->sendDefaultConfig(); }, "failed to send default configuration."},
        {[&] {
             driver->configure({5, 9}, 4);
         },
         "failed to set configuration parameter, modAddr=5, paramAddr=9, param=4."},
        {[&] {
             driver->configuration({5, 8});
         },
         "failed to get configuration parameter, modAddr=5, paramAddr=8."},
        {[&] { driver->start(nullptr, nullptr); }, "failed to start getting data."},
    };
    driver->configure({5, 8}, 123);
    EXPECT_EQ(driver->configuration({5, 8}), 123u);
    camera->unplug();
    EXPECT_NO_THROW(driver->configure(blockingDataExchange, 1)) << "a setting of the host needs no camera";
    for (const auto& row : rows)
        EXPECT_THAT(row.call, ThrowsMessage<std::runtime_error>(StartsWith(GetParam() ? name : name + row.text)));
}

TEST(DriverChoice, FreeVirtualCamerasOfTheKindInPlugOrderThenLibcaersThenTheErrorThatSaysWhatIsMissing)
{
    const test::EmptyBus bus;
    const auto opened = [](const emulation::VirtualCamera& camera) {
        auto driver = open(CameraKind::davis);
        EXPECT_THAT(driver->info().name, HasSubstr(camera.serialNumber()));
        EXPECT_TRUE(camera.isOpen());
        return driver;
    };
    const auto real = test::plugged(plugVirtualDavis(), true);
    const auto otherKind = plugVirtualDvXplorer();
    opened(*real);
    const auto first = plugVirtualDavis();
    const auto second = plugVirtualDavis();
    {
        const auto one = opened(*first);
        const auto two = opened(*second);
        EXPECT_THAT([] { open(CameraKind::davis); },
                    ThrowsMessage<std::runtime_error>("Failed to open a DAVIS camera (device type 4, id 1): all 2 that "
                                                      "are plugged in are open already."));
    }
    EXPECT_FALSE(first->isOpen());
    opened(*first);
    first->unplug();
    opened(*second);
    second->unplug();
    const auto held = opened(*real);
    EXPECT_FALSE(otherKind->isOpen());
    otherKind->unplug();
    for (const auto& [kind, type, plug] : {std::tuple{CameraKind::davis, "type=4", "davis()"},
                                           std::tuple{CameraKind::dvXplorer, "type=8", "dvxplorer()"}})
        EXPECT_THAT(
            [kind = kind] { open(kind); },
            ThrowsMessage<std::runtime_error>(AllOf(StartsWith("Failed to open device, "), HasSubstr(type),
                                                    HasSubstr(std::string("vorna.emulation.plug_virtual_") + plug))));
}

} // namespace
