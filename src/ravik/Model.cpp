#include "ravik/Model.h"

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "device/Log.h"
#include "ravik/configuration/Translation.h"
#include "ravik/configuration/Validation.h"

#define VORNA_FAMILY ravik
#define VORNA_FAMILY_TITLE Ravik
#include "tessel/family/ModelFunctions.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY

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
