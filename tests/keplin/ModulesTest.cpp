#include <cmath>
#include <functional>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/modules/Adc.h"
#include "keplin/modules/Dac.h"

using namespace packets;
using namespace keplin::modules;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

struct Modules : testing::Test {
    PacketQueue transmit, receive;
    adc::Adc adc{1, transmit, receive};
    dac::Dac dac{{dac::specsOf2500mV.begin(), dac::specsOf2500mV.end()}, transmit, 3};
};

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

} // namespace

TEST_F(Modules, CommandsOnTheWire)
{
    const struct {
        const char* what;
        std::function<void()> send;
        std::vector<Words> packets;
    } rows[] = {
        {"nothing from the constructors", [] {}, {}},
        {"start", [&] { adc.start(); }, {{0x0000'C103, 0x2000'0001}}},
        {"stop", [&] { adc.stop(); }, {{0x0000'C103, 0x2000'0000}}},
        {"one sample", [&] { adc.singleShot(); }, {{0x0001'4101, 0x2000}}},
        {"reset", [&] { adc.reset(); }, {{0x0000'8101, 0x0040}, {0x0001'4101, 0x1000}}},
        {"reset of the DAC", [&] { dac.resetDevice(); }, {{0x0001'4301, 0x1000}}},
        {"values of the DAC",
         [&] {
             dac.setChannelValues({2.5F, 0, 1.25F});
             dac.updateChannelValues();
         },
         {{0x030B'430B, 0x030F'FFF0, 0x0310'0000, 0x0327'FFF0}}},
        {"no values", [&] { dac.setChannelValues({}), dac.updateChannelValues(); }, {{0xFFFF'FFFF}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        row.send();
        EXPECT_EQ(drain(transmit), row.packets);
    }
}

TEST_F(Modules, AdcSendsFewerSettlingStepsWhereTheyTakeTooLong)
{
    const struct {
        std::uint32_t rate;
        std::uint16_t result;
        Words packet; // of updateSampleRate() on a new object
    } rows[] = {
        {0, 10'000, {0x0000'C107, 0x0000'0001, 0x2001'2710}}, // the default, 200 steps
        {10'000, 10'000, {0x0000'C107, 0x0000'0001, 0x2001'2710}},
        {200'000, 3'392, {0x0000'C107, 0x0000'0007, 0x2001'01F4}}, // divider 500, 200,000 Hz cut to 16 bits
        {70'422, 4'886, {0x0000'C107, 0x0000'0002, 0x2001'058C}},  // divider 1420: 180 spare
        {70'000, 4'492, {0x0000'C107, 0x0000'0001, 0x2001'0594}},  // divider 1428: 172 spare
        {2'600, 2'600, {0x0000'C103, 0x2001'963D}},                // divider 38461: 200 steps fit
        {100'000'000, 0xE100, {0x0000'C107, 0x0000'0009, 0x2001'0001}},
        {1'000, 2'901, {0x0000'C107, 0x0000'0001, 0x2001'86A0}}, // divider 100,000 cut to 34464
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rate);
        adc::Adc fresh(1, transmit, receive);
        if (row.rate != 0) {
            EXPECT_EQ(fresh.setSampleRate(row.rate), row.result);
        }
        EXPECT_EQ(fresh.getSampleRate(), row.result);
        fresh.updateSampleRate();
        EXPECT_EQ(drain(transmit), std::vector<Words>{row.packet});
    }
    adc.updateSampleRate();
    adc.updateSampleRate(); // now 1 step, which fits
    EXPECT_THAT(drain(transmit), ElementsAre(SizeIs(3), Words{0x0000'C103, 0x2001'2710}));
    for (const std::uint32_t rate : {56'179U, 56'148U}) { // divider 1780, all of a sample's time, and 1781
        adc.setSampleRate(rate);
        adc.updateSampleRate();
    }
    EXPECT_THAT(drain(transmit),
                ElementsAre(Words{0x0000'C107, 0x0000'0001, 0x2001'06F4}, Words{0x0000'C103, 0x2001'06F5}));
    adc.setSampleRate(10'000);
    for (const std::uint32_t rate : {0U, 100'000'001U, ~0U}) {
        EXPECT_THROW(adc.setSampleRate(rate), std::invalid_argument);
        EXPECT_EQ(adc.getSampleRate(), 10'000);
    }
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
    Bytes cut(sample.begin(), sample.begin() + 7);
    PacketPtr stale = packet(2, PktFmt::Raw, cut, HdrExtFmt::AdcSample);
    std::fill(stale->data.begin() + 7, stale->data.end(), std::uint8_t{0xEE});
    receive.enqueue(std::move(stale));
    const PoolStats before = poolStats();
    const std::vector<adc::AdcSample> samples = adc.getSamples();
    ASSERT_THAT(samples, SizeIs(2));
    EXPECT_EQ(samples[0].sampleNumber, 0x0102'0304U);
    EXPECT_THAT(samples[0].channelValues, ElementsAre(0xF000, 0xF101, 0xF202, 0xF303, 0xF404, 0xF505, 0xF606, 0xF707));
    EXPECT_EQ(samples[1].sampleNumber, 0x0102'0304U);
    EXPECT_THAT(samples[1].channelValues, ElementsAre(0xF000, 1, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(receive.peekUnsafe(), nullptr);
    EXPECT_EQ(poolStats(), before) << "these packets stay in circulation for ever";
}

TEST(DacCodes, OfValues)
{
    const struct {
        float value, minimum, maximum;
        std::uint16_t code;
    } rows[] = {
        {0, 0, 2.5F, 0},
        {-0.1F, 0, 2.5F, 0},
        {2.5F, 0, 2.5F, 65535},
        {2.6F, 0, 2.5F, 65535},
        {1.25F, 0, 2.5F, 32767},
        {0.0001F, 0, 2.5F, 2},
        {0, -1, 1, 32767},
        {0, 0, 0, 0}, // an empty range
        {-1, 0, 0, 0},
        {0.5F, 0, 0, 65535},
        {3, 5, 1, 0}, // a range upside down
        {6, 5, 1, 65535},
        {notANumber, 0, 2.5F, 0},
        {1, notANumber, 2, 0},
        {1, 0, notANumber, 0},
        {infinity, 0, 2.5F, 65535},
        {-infinity, 0, 2.5F, 0},
        {1, -infinity, infinity, 0},
        {1, 0, infinity, 0},
        {3e38F, -3e38F, 3e38F, 0}, // the range is beyond a float
    };
    for (const auto& row : rows)
        EXPECT_EQ(dac::floatToRegisterValue(row.value, {row.minimum, row.maximum}), row.code)
            << row.value << " in " << row.minimum << " to " << row.maximum;
    EXPECT_EQ(dac::generateDacChannelSetWord(7, 0x1234), 0x0371'2340U);
    EXPECT_EQ(dac::generateDacChannelSetWord(0, 0), 0x0300'0000U);
}

TEST_F(Modules, DacKeepsValuesAndSendsThoseWithASpec)
{
    EXPECT_THAT(dac.getChannelValues(), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
    dac.setChannelValue(7, 2.5F);
    EXPECT_EQ(dac.getChannelValues()[7], 2.5F);
    EXPECT_THROW(dac.setChannelValue(8, 1), std::out_of_range);
    EXPECT_THROW(dac.setChannelValue(~0ULL, 1), std::out_of_range);
    EXPECT_THAT(transmit.peekUnsafe(), testing::IsNull());
    dac.updateChannelValues();
    EXPECT_EQ(transmit.peekUnsafe()->size, 32U);
    EXPECT_EQ(drain(transmit)[0][8], 0x037F'FFF0U);

    dac.setChannelValues(std::vector<float>(20, 1));
    EXPECT_THAT(dac.getChannelValues(), SizeIs(20));
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
    EXPECT_EQ(poolStats().inCirculation - poolStats().inPool, before.inCirculation - before.inPool);
}
