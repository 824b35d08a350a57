#pragma once
// The multichannel digital-to-analogue converter on a board.

#include <array>
#include <cstdint>
#include <vector>

#include "keplin/PacketQueue.h"
#include "trovi/Reflect.h"

namespace keplin::modules::dac {

/// Maps a channel's range to converter codes, linearly.
struct DacLinearChannelSpec {
    float minimumValue = 0; ///< gives code 0
    float maximumValue = 0; ///< gives code 65535

    friend bool operator==(const DacLinearChannelSpec&, const DacLinearChannelSpec&) = default;
};

inline constexpr std::size_t channelCount = 8;

/// The channels of a converter with a reference of 2.5 V, as on the lab boards.
inline constexpr std::array<DacLinearChannelSpec, channelCount> specsOf2500mV = [] {
    std::array<DacLinearChannelSpec, channelCount> specs;
    specs.fill({0.0F, 2.5F});
    return specs;
}();

/// The code for `value`: 0 below the minimum, 65535 above the maximum, and in between the fraction of the range times
/// 65535, cut to a whole number. If there is no such fraction (an empty range, not a number) it is 0.
std::uint16_t floatToRegisterValue(float value, const DacLinearChannelSpec& spec);

/// The word that sets a channel: the code from bit 4 on, the channel from bit 20 on, and the command.
std::uint32_t generateDacChannelSetWord(std::uint32_t channel, std::uint16_t value);

/// Values stay on the host until updateChannelValues() sends them. Nothing is acknowledged by the board.
/// Threads: reentrant.
class Dac {
public:
    /// `transmitQueue` must outlive it. Nothing is sent. All 8 values are 0.
    /// @param specs     one per channel; a channel without one is never sent
    /// @param moduleId  0 to 63; any other makes every function that sends throw std::out_of_range "Bad target ID"
    Dac(std::vector<DacLinearChannelSpec> specs, PacketQueue& transmitQueue, int moduleId);

    /// @param channel  from 0; in the unit of the channel's spec: `value`
    /// @throws std::out_of_range when there is no such channel; nothing is changed then
    void setChannelValue(std::uint64_t channel, float value);
    /// Replaces all values; the first is that of channel 0, and as many channels as there are values are sent.
    void setChannelValues(std::vector<float> values);
    std::vector<float> getChannelValues() const { return channelValues; }

    /// Sends the value of every channel that has a spec, in one packet.
    /// @throws std::length_error "Attempt to exceed max size of Keplin packet." above 64 channels; nothing is sent then
    void updateChannelValues();
    /// Sends a reset.
    void resetDevice();

private:
    int moduleId;
    std::vector<float> channelValues = std::vector<float>(channelCount);
    std::vector<DacLinearChannelSpec> specs;
    PacketQueue& transmitQueue;
};

} // namespace keplin::modules::dac

template <>
constexpr auto trovi::registerMembers<keplin::modules::dac::DacLinearChannelSpec>()
{
    using keplin::modules::dac::DacLinearChannelSpec;
    return members(member("minimum_value", &DacLinearChannelSpec::minimumValue, "the value that gives code 0"),
                   member("maximum_value", &DacLinearChannelSpec::maximumValue, "the value that gives code 65535"));
}

template <>
constexpr const char* trovi::registerDoc<keplin::modules::dac::DacLinearChannelSpec>()
{
    return "Maps the range of a channel to the codes of the digital-to-analogue converter, linearly.";
}

template <>
constexpr auto trovi::registerMemberFunctions<keplin::modules::dac::Dac>()
{
    using keplin::modules::dac::Dac;
    return functions(
        function(
            "set_channel_value", &Dac::setChannelValue,
            "Stores the value of one channel, counted from 0, in the unit of its spec; what lies outside its "
            "range is sent as the nearest end. A channel that does not exist is refused with an error, which ends the "
            "process that holds the converter.",
            "channel, value"),
        function("set_channel_values", &Dac::setChannelValues,
                 "Stores the values of all channels, the first that of channel 0.", "values"),
        function("get_channel_values", &Dac::getChannelValues, "The stored values."),
        function("update_channel_values", &Dac::updateChannelValues,
                 "Sends the stored values to the board, those of the channels that have a spec."));
}

template <>
constexpr const char* trovi::registerDoc<keplin::modules::dac::Dac>()
{
    return "The digital-to-analogue converter of a board.";
}
