// How a ravik model brings its chip up.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER(Model)

#include <chrono>
#include <string>

#include <gmock/gmock.h>

#include "../graph/NodeTesting.h"
#include "FakeDevice.h"

namespace ravik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Records the steps in their order.
struct BoardWithLines : DeviceAPI, RavikChipControl {
    explicit BoardWithLines(std::vector<std::string>& steps) : steps(steps) {}
    Out read() override { return {}; }
    void write(const In& events) override
    {
        if (!events.empty())
            steps.push_back("write " + std::to_string(events.size()));
    }
    void init() override { steps.emplace_back("init"); }
    void writeConfig(std::uint16_t a, std::uint16_t b) override
    {
        steps.push_back("config " + std::to_string(a) + " " + std::to_string(b));
    }
    void deassertReset() override { steps.emplace_back("deassert reset"); }
    void resetRegisters() override { steps.emplace_back("reset registers"); }

    std::vector<std::string>& steps; // of the caller's thread: the model's writes nothing here
};

TEST(RavikModel, BringsItsChipUpStepByStep)
{
    std::vector<std::string> steps;
    RavikModel model(std::make_unique<BoardWithLines>(steps));
    const auto start = std::chrono::steady_clock::now();
    model.init();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_THAT(steps, ElementsAre("init", "config 2 15", "deassert reset", "reset registers", "write 16384"));

    const auto record = std::make_shared<FakeDevice::Record>();
    RavikModel plain(std::make_unique<FakeDevice>(record));
    EXPECT_EQ(node_testing::errorOf([&] { plain.init(); }), "This model's device interface can't reset the chip.");
    EXPECT_THAT(record->writesUntilNow(), IsEmpty());
}

TEST(RavikModel, SilencesThePixelsRowByRow)
{
    const auto record = std::make_shared<FakeDevice::Record>();
    RavikModel model(std::make_unique<FakeDevice>(record));
    model.killAllPixels();
    const auto writes = record->writesUntilNow();
    ASSERT_THAT(writes, SizeIs(1));
    const auto& events = writes[0];
    ASSERT_THAT(events, SizeIs(128 * 128));
    for (std::size_t i = 0; i < events.size(); ++i)
        ASSERT_EQ(events[i], event::InputEvent(event::KillSensorPixel{static_cast<std::uint8_t>(i / 128),
                                                                      static_cast<std::uint8_t>(i % 128)}));
}

} // namespace
} // namespace ravik
