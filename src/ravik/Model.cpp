// What a ravik model does beyond the other family's (tessel/family/Model.cpp): it brings its chip up.

#include "ravik/Model.h"

#include <chrono>

namespace ravik {

namespace {

constexpr std::chrono::milliseconds settlingTime{100}; // of the chip, after each step
constexpr int sensorSize = 128;                        // pixels in a row, and in a column

// A signal doesn't cut it short: the library's function sleeps again for what is left.
void settle() { std::this_thread::sleep_for(settlingTime); }

RavikChipControl& controlOf(RavikDeviceAPIInterface& device)
{
    if (auto* const control = dynamic_cast<RavikChipControl*>(&device))
        return *control;
    throw std::runtime_error("This model's device interface can't reset the chip.");
}

} // namespace

void RavikModel::init()
{
    withDevice([](auto& device) {
        auto& control = controlOf(device);
        control.init();
        control.writeConfig(2, 15);
    });
    settle();
    withDevice([](auto& device) { controlOf(device).deassertReset(); });
    settle();
    withDevice([](auto& device) { controlOf(device).resetRegisters(); });
    settle();
    killAllPixels();
}

void RavikModel::killAllPixels()
{
    std::vector<event::InputEvent> events;
    events.reserve(sensorSize * sensorSize);
    for (std::uint8_t y = 0; y < sensorSize; ++y)
        for (std::uint8_t x = 0; x < sensorSize; ++x)
            events.emplace_back(event::KillSensorPixel{y, x});
    write(events);
}

} // namespace ravik
