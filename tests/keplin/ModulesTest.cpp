#include <cmath>
#include <functional>
#include <limits>
#include <sstream>

#include <gmock/gmock.h>

#include "../Golden.h"
#include "Packets.h"
#include "keplin/modules/Adc.h"
#include "keplin/modules/Dac.h"

using namespace packets;
using namespace keplin::modules;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

struct Modules : testing::Test {
    PacketQueue transmit, receive;
    adc::Adc adc{1, transmit, receive};
    dac::Dac dac{{dac::specsOf2500mV.begin(), dac::specsOf2500mV.end()}, transmit, 3};
};

} // namespace

// Every command, the settings of the ADC at the rates where something changes, and the codes of the DAC.
TEST_F(Modules, SayWhatTheBoardsLogicExpects)
{
    std::ostringstream text;
    const auto printSent = [&](const auto& what) {
        text << what << '\n';
        while (auto packet = transmit.dequeue())
            text << "    " << **packet;
    };
    printSent("nothing from the constructors");
    for (const auto& [what, send] : std::initializer_list<std::pair<const char*, std::function<void()>>>{
             {"ADC: start", [&] { adc.start(); }},
             {"ADC: stop", [&] { adc.stop(); }},
             {"ADC: one sample", [&] { adc.singleShot(); }},
             {"ADC: reset", [&] { adc.reset(); }},
             {"ADC: the default rate", [&] { adc.updateSampleRate(); }},
             {"ADC: the default rate, when 1 settling step is left", [&] { adc.updateSampleRate(); }},
             {"DAC: reset", [&] { dac.resetDevice(); }},
             {"DAC: values at first", [&] { dac.updateChannelValues(); }},
             {"DAC: 2.5, 0, 1.25", [&] { dac.setChannelValues({2.5F, 0, 1.25F}), dac.updateChannelValues(); }},
             {"DAC: no values", [&] { dac.setChannelValues({}), dac.updateChannelValues(); }}}) {
        send();
        printSent(what);
    }
    // with 1 step: divider 1780, all of a sample's time, and 1781
    for (const std::uint32_t rate : {56'179, 56'148})
        adc.setSampleRate(rate), adc.updateSampleRate(), printSent("ADC: 1 step and " + std::to_string(rate) + " Hz");
    // with 200 steps: dividers 100,000 (cut to 16 bits), 37608, 37593 (the steps fit, or just don't), and on
    for (const std::uint32_t rate : {1'000, 2'659, 2'660, 10'000, 70'000, 70'422, 200'000, 100'000'000}) {
        adc::Adc fresh(1, transmit, receive);
        const std::uint16_t result = fresh.setSampleRate(rate);
        EXPECT_EQ(fresh.getSampleRate(), result);
        fresh.updateSampleRate();
        printSent("ADC: " + std::to_string(rate) + " Hz, gives " + std::to_string(result));
    }
    constexpr float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    for (const dac::DacLinearChannelSpec& spec : {dac::DacLinearChannelSpec{0, 2.5F},
                                                  {-1, 1},
                                                  {0, 0},
                                                  {5, 1},
                                                  {nan, 2},
                                                  {0, nan},
                                                  {0, infinity},
                                                  {-infinity, infinity},
                                                  {-3e38F, 3e38F}})
        for (const float value : {-infinity, -1.F, 0.F, 0.0001F, 1.25F, 2.5F, 2.6F, 3e38F, infinity, nan})
            text << "DAC: " << value << " in " << spec.minimumValue << " to " << spec.maximumValue << " is "
                 << dac::floatToRegisterValue(value, spec) << '\n';
    EXPECT_GOLDEN("board_modules.txt", text.str());
    EXPECT_EQ(dac::generateDacChannelSetWord(7, 0x1234), 0x0371'2340U);
}

TEST_F(Modules, AdcFindsItsSamples)
{
    EXPECT_THAT(adc.getSamples(), IsEmpty());
    Bytes sample{0x04, 0x03, 0x02, 0x01};
    for (std::uint8_t i = 0; i < 8; ++i)
        sample.insert(sample.end(), {i, static_cast<std::uint8_t>(0xF0 + i)});
    receive.enqueue(packet(1, PktFmt::Raw, sample, HdrExtFmt::AdcSample));
    receive.enqueue(packet(1, PktFmt::Raw, sample, HdrExtFmt::Command));
    receive.enqueue(packet(1, PktFmt::Ev32, sample));
    PacketPtr cut = packet(2, PktFmt::Raw, {sample.begin(), sample.begin() + 7}, HdrExtFmt::AdcSample);
    std::fill(cut->data.begin() + 7, cut->data.end(), std::uint8_t{0xEE});
    receive.enqueue(std::move(cut));
    const PoolStats before = poolStats();
    const std::vector<adc::AdcSample> samples = adc.getSamples();
    ASSERT_THAT(samples, SizeIs(2));
    EXPECT_EQ(samples[0],
              (adc::AdcSample{0x0102'0304, {0xF000, 0xF101, 0xF202, 0xF303, 0xF404, 0xF505, 0xF606, 0xF707}}));
    EXPECT_EQ(samples[1], (adc::AdcSample{0x0102'0304, {0xF000, 1}})) << "what is missing reads as 0";
    EXPECT_EQ(receive.peekUnsafe(), nullptr);
    EXPECT_EQ(poolStats(), before) << "these packets stay in circulation for ever";
}

TEST_F(Modules, RefuseWhatTheyCannotDoAndKeepWhatTheyHad)
{
    adc.setSampleRate(20'000);
    for (const std::uint32_t rate : {0U, 100'000'001U, ~0U})
        EXPECT_THROW(adc.setSampleRate(rate), std::invalid_argument);
    EXPECT_EQ(adc.getSampleRate(), 20'000);

    dac.setChannelValue(7, 2.5F);
    for (const std::uint64_t channel : {std::uint64_t{8}, ~std::uint64_t{0}})
        EXPECT_THROW(dac.setChannelValue(channel, 1), std::out_of_range);
    EXPECT_THAT(dac.getChannelValues(), ElementsAre(0, 0, 0, 0, 0, 0, 0, 2.5F));
    dac.setChannelValues(std::vector<float>(20, 1));
    EXPECT_THAT(dac.getChannelValues(), SizeIs(20));
    EXPECT_EQ(transmit.peekUnsafe(), nullptr);
    dac.updateChannelValues();
    EXPECT_EQ(transmit.peekUnsafe()->size, 32U) << "8 specs";
    transmit.clear();

    const PoolStats before = poolStats();
    dac::Dac wide(std::vector<dac::DacLinearChannelSpec>(65), transmit, 3);
    wide.setChannelValues(std::vector<float>(65));
    EXPECT_THROW(wide.updateChannelValues(), std::length_error);
    for (const int moduleId : {-1, 64, 300})
        EXPECT_THROW(dac::Dac({}, transmit, moduleId).resetDevice(), std::out_of_range);
    EXPECT_EQ(transmit.peekUnsafe(), nullptr);
    EXPECT_EQ(poolStats().inUse(), before.inUse());
}
