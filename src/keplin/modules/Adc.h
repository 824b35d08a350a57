#pragma once
// The multichannel analogue-to-digital converter on a board.

#include <array>
#include <cstdint>
#include <vector>

#include "keplin/PacketQueue.h"
#include "trovi/Reflect.h"

namespace keplin::modules::adc {

struct AdcSample {
    std::uint32_t sampleNumber = 0;
    std::array<std::uint32_t, 8> channelValues{};

    friend bool operator==(const AdcSample&, const AdcSample&) = default;
};

/// Its settings stay on the host until updateSampleRate() sends them. Nothing is acknowledged by the board.
/// Threads: reentrant.
class Adc {
public:
    /// Both queues must outlive it. Nothing is sent.
    /// @param moduleId  0 to 63; any other makes every function that sends throw std::out_of_range "Bad target ID"
    Adc(int moduleId, PacketQueue& transmitQueue, PacketQueue& receiveQueue);

    /// Chooses the divider of the converter's clock for `rate`, in Hz; nothing is sent. Divider and result are cut to
    /// 16 bits, so rates below 1526 Hz give another rate than asked for.
    /// @return the rate that results
    /// @throws std::invalid_argument when `rate` is 0 or gives a divider of 0; the old rate stays
    std::uint16_t setSampleRate(std::uint32_t rate);
    /// In Hz, cut to 16 bits.
    std::uint16_t getSampleRate() const;

    void start();
    void stop();
    void reset();
    /// Asks for one sample.
    void singleShot();
    /// Sends the divider. If settling would take longer than a sample, it sends a lower number of settling steps first.
    void updateSampleRate();

    /// Empties the receive queue and returns the samples that waited there. Missing bytes of a sample read as 0.
    std::vector<AdcSample> getSamples();

private:
    int moduleId;
    std::uint16_t rateDivider = 10'000;
    std::uint16_t settlingSteps = 200;
    std::uint16_t settlingRegister = 0; // its address
    PacketQueue& transmitQueue;
    PacketQueue& receiveQueue;
};

} // namespace keplin::modules::adc

template <>
constexpr auto trovi::registerMembers<keplin::modules::adc::AdcSample>()
{
    using keplin::modules::adc::AdcSample;
    return members(member("sample_number", &AdcSample::sampleNumber, "counted by the board"),
                   member("channel_values", &AdcSample::channelValues, "raw converter codes, one per channel"));
}

template <>
constexpr const char* trovi::registerDoc<keplin::modules::adc::AdcSample>()
{
    return "One sample of all 8 channels of the analogue-to-digital converter.";
}

template <>
constexpr auto trovi::registerMemberFunctions<keplin::modules::adc::Adc>()
{
    using keplin::modules::adc::Adc;
    return functions(
        function("set_sample_rate", &Adc::setSampleRate,
                 "Chooses a rate in Hz and returns the one that results, 100 MHz divided by a whole number; both are "
                 "cut to 16 bits. update_sample_rate() sends it. 0 and rates above 100 MHz are refused with an error, "
                 "which ends the process that holds the converter.",
                 "rate"),
        function("get_sample_rate", &Adc::getSampleRate, "The rate in Hz, cut to 16 bits. 10000 at first."),
        function("start", &Adc::start, "Starts sampling."), function("stop", &Adc::stop, "Stops sampling."),
        function("reset", &Adc::reset, "Resets the converter, and routes its samples to the host."),
        function("single_shot", &Adc::singleShot, "Asks for one sample."),
        function("update_sample_rate", &Adc::updateSampleRate, "Sends the rate to the board."),
        function("get_samples", &Adc::getSamples, "The samples that have come since the last call, oldest first."));
}

template <>
constexpr const char* trovi::registerDoc<keplin::modules::adc::Adc>()
{
    return "The analogue-to-digital converter of a board: 8 channels, sampled together.";
}
