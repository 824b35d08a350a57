#include "keplin/modules/Dac.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "keplin/modules/Command.h"

namespace keplin::modules::dac {

namespace {

constexpr std::uint16_t resetCommand = 0x1000;

// the word that sets a channel; a channel above 15 changes bits of the command
namespace setWord {
constexpr unsigned value = 4;
constexpr unsigned channel = 20;
constexpr std::uint32_t command = 0x0300'0000; // write and update one channel
} // namespace setWord

} // namespace

std::uint16_t floatToRegisterValue(float value, const DacLinearChannelSpec& spec)
{
    constexpr float highest = 65535.0F;
    if (value < spec.minimumValue)
        return 0;
    if (value > spec.maximumValue)
        return static_cast<std::uint16_t>(highest);
    const float code = (value - spec.minimumValue) / (spec.maximumValue - spec.minimumValue) * highest;
    return code > 0 ? static_cast<std::uint16_t>(std::min(code, highest)) : std::uint16_t{0}; // 0 for NaN
}

std::uint32_t generateDacChannelSetWord(std::uint32_t channel, std::uint16_t value)
{
    return (channel << setWord::channel) | (std::uint32_t{value} << setWord::value) | setWord::command;
}

Dac::Dac(std::vector<DacLinearChannelSpec> specs, PacketQueue& transmitQueue, int moduleId)
    : moduleId(moduleId), specs(std::move(specs)), transmitQueue(transmitQueue)
{}

void Dac::setChannelValue(std::uint64_t channel, float value)
{
    if (channel >= channelValues.size())
        throw std::out_of_range("The DAC has no channel " + std::to_string(channel) + ": there are " +
                                std::to_string(channelValues.size()));
    channelValues[channel] = value;
}

void Dac::setChannelValues(std::vector<float> values) { channelValues = std::move(values); }

void Dac::updateChannelValues()
{
    std::vector<std::uint32_t> words(std::min(channelValues.size(), specs.size()));
    for (std::uint32_t i = 0; i < words.size(); ++i)
        words[i] = generateDacChannelSetWord(i, floatToRegisterValue(channelValues[i], specs[i]));
    send(transmitQueue, moduleId, HdrExtFmt::WriteRegister, PktFmt::Raw, std::span<const std::uint32_t>(words));
}

void Dac::resetDevice() { send(transmitQueue, moduleId, PktFmt::Raw, {resetCommand}); }

} // namespace keplin::modules::dac
