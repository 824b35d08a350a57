#include "keplin/modules/Adc.h"

#include <stdexcept>
#include <string>

#include "keplin/modules/Command.h"

namespace keplin::modules::adc {

namespace {

constexpr std::uint32_t clockHz = 100'000'000;

// of the board's logic
namespace command {
constexpr std::uint16_t reset = 0x1000;
constexpr std::uint16_t singleShot = 0x2000;
} // namespace command
namespace route {
constexpr std::uint16_t toHost = 0x0040;
} // namespace route
namespace address {
constexpr std::uint16_t enable = 0x2000;
constexpr std::uint16_t rateDivider = 0x2001;
} // namespace address

// clock periods that a sample takes: so many for each settling step, and so many for converting
constexpr int periodsPerStep = 180;
constexpr int periodsOfConversion = 1600;

} // namespace

Adc::Adc(int moduleId, PacketQueue& transmitQueue, PacketQueue& receiveQueue)
    : moduleId(moduleId), transmitQueue(transmitQueue), receiveQueue(receiveQueue)
{}

std::uint16_t Adc::setSampleRate(std::uint32_t rate)
{
    const auto divider = static_cast<std::uint16_t>(rate == 0 ? 0 : clockHz / rate);
    if (divider == 0)
        throw std::invalid_argument("The ADC can't sample at " + std::to_string(rate) +
                                    " Hz: 100 MHz divided by the rate, cut to 16 "
                                    "bits, must not be 0");
    rateDivider = divider;
    return getSampleRate();
}

std::uint16_t Adc::getSampleRate() const { return static_cast<std::uint16_t>(clockHz / rateDivider); }

void Adc::start() { send(transmitQueue, moduleId, PktFmt::Config, {1, address::enable}); }
void Adc::stop() { send(transmitQueue, moduleId, PktFmt::Config, {0, address::enable}); }

void Adc::reset()
{
    send(transmitQueue, moduleId, PktFmt::Route, {route::toHost});
    send(transmitQueue, moduleId, PktFmt::Raw, {command::reset});
}

void Adc::singleShot() { send(transmitQueue, moduleId, PktFmt::Raw, {command::singleShot}); }

void Adc::updateSampleRate()
{
    if (settlingSteps * periodsPerStep + periodsOfConversion < rateDivider) {
        send(transmitQueue, moduleId, PktFmt::Config, {rateDivider, address::rateDivider});
        return;
    }
    // Kept for compatibility with boards in use: the steps drop to 1 for every divider above the conversion time, even
    // if there is time for more.
    const int spare = periodsOfConversion - rateDivider;
    settlingSteps = static_cast<std::uint16_t>(spare >= periodsPerStep ? spare / periodsPerStep + 1 : 1);
    send(transmitQueue, moduleId, PktFmt::Config, {settlingSteps, settlingRegister, rateDivider, address::rateDivider});
}

std::vector<AdcSample> Adc::getSamples()
{
    std::vector<AdcSample> samples;
    // The packets are freed here, not returned to the pool, which keeps counting them as in circulation.
    while (const std::optional<PacketPtr> packet = receiveQueue.dequeue()) {
        if ((*packet)->format() != PktFmt::Raw || (*packet)->extension() != HdrExtFmt::AdcSample)
            continue;
        AdcSample& sample = samples.emplace_back();
        sample.sampleNumber = (*packet)->payload<std::uint32_t>(0);
        for (std::size_t i = 0; i < sample.channelValues.size(); ++i)
            sample.channelValues[i] =
                (*packet)->payload<std::uint16_t>(sizeof sample.sampleNumber + i * sizeof(std::uint16_t));
    }
    return samples;
}

} // namespace keplin::modules::adc
