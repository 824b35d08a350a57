#include <map>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tessel/registers/DvsCore.h"
#include "tessel/registers/InputInterface.h"
#include "tessel/registers/LayerCore.h"
#include "tessel/registers/ReadoutCore.h"
#include "tessel/registers/Register.h"
#include "tessel/registers/RegisterContent.h"

namespace {

using namespace tessel::registers;

// ---- what the compiler refuses, asked of tables that are wrong -----------------------------------------------------

struct Overlapping : Register<Overlapping, 0, 0, 0x0F> {
    static constexpr auto fields = std::tuple(Field<0, 3>{"a", ""}, Field<2, 2>{"b", ""});
};
struct Incomplete : Register<Incomplete, 0, 0, 0x0F> {
    static constexpr auto fields = std::tuple(Field<0, 3>{"a", ""});
};
struct Straying : Register<Straying, 0, 0, 0x0F> {
    static constexpr auto fields = std::tuple(Field<0, 5>{"a", ""});
};
static_assert(!tiles<Overlapping>() && !tiles<Incomplete>() && !tiles<Straying>());

template <class R, class F>
concept Settable = requires(R r, F f)
{
    r.set(f, 1U);
};
using R04 = layercore::Register04;
static_assert(Settable<R04, decltype(R04::outputHeightLess1)>);
static_assert(!Settable<layercore::Register05, decltype(R04::outputHeightLess1)>, "a field belongs to its register");
static_assert(!std::is_convertible_v<int, R04>);

// ---- words -------------------------------------------------------------------------------------------------------

TEST(Registers, AValueIsCutToItsField)
{
    using R = layercore::Register19;
    static_assert(R().raw() == 0x40);
    const auto high = R::outputFeaturesLess1High; // bits 8 and 9 of the value
    EXPECT_EQ(R(0).set(high, 0x2FFU).raw(), 0x02);
    EXPECT_EQ(R(0).set(high, 0xFCFFU).raw(), 0x00);
    EXPECT_EQ(R(0xFF).set(high, 0U).raw(), 0xFC);
    EXPECT_EQ(R(0xFF).get(high), 0x300U);
    EXPECT_EQ(layercore::Register39(0).set(layercore::Register39::thresholdHighLow, std::int16_t{-2}).raw(), 0xFE);
    EXPECT_EQ(layercore::Register40(0).set(layercore::Register40::thresholdHighHigh, std::int16_t{-2}).raw(), 0xFF);
}

// Written from the chip's documentation once more: what differs from reset value 0 and mask 0xFF.
TEST(Registers, ResetValuesAndMasks)
{
    using Row = std::pair<std::uint16_t, std::uint16_t>; // reset value, mask
    const std::map<std::pair<int, int>, Row> rows{
        {{14, 7}, {0x40, 0xFF}}, {{14, 9}, {0x10, 0x7F}}, {{14, 10}, {0, 0x0F}},    {{13, 0}, {0x03, 0xFB}},
        {{13, 2}, {0, 0x7F}},    {{0, 1}, {0, 0x3F}},     {{0, 6}, {0x20, 0xFF}},   {{0, 7}, {0x50, 0xFF}},
        {{0, 8}, {0x40, 0xFF}},  {{0, 9}, {0, 0x1F}},     {{0, 17}, {0, 0x7F}},     {{0, 19}, {0x40, 0xFF}},
        {{0, 20}, {0x41, 0xFF}}, {{0, 21}, {0x04, 0xFF}}, {{0, 35}, {0, 0x7F}},     {{0, 43}, {0x40, 0xFF}},
        {{0, 44}, {0x41, 0xFF}}, {{0, 45}, {0x40, 0xFF}}, {{0, 46}, {0, 0x1F}},     {{12, 0}, {0x3C, 0xFF}},
        {{12, 3}, {0x3C, 0xFF}}, {{12, 6}, {0x3C, 0xFF}}, {{12, 9}, {0x3C, 0xFF}},  {{12, 1}, {0xCF, 0xFF}},
        {{12, 4}, {0xCF, 0xFF}}, {{12, 7}, {0xCF, 0xFF}}, {{12, 10}, {0xCF, 0xFF}}, {{12, 2}, {0xF3, 0xFF}},
        {{12, 5}, {0xF3, 0xFF}}, {{12, 8}, {0xF3, 0xFF}}, {{12, 11}, {0xF3, 0xFF}}, {{12, 14}, {0x02, 0x0F}},
        {{12, 15}, {0, 0x0F}},
    };
    const std::map<int, std::set<int>> numbers{
        {0, {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  16, 17, 18, 19, 20, 21,
             32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46}},
        {12, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
        {13, {0, 1, 2}},
        {14, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
    };
    for (const auto& [core, expected] : numbers) {
        std::set<int> found;
        for (const auto& content : registersOfCore(static_cast<std::uint8_t>(core))) {
            found.insert(content.number);
            const auto row = rows.find({core, content.number});
            const Row values = row == rows.end() ? Row{0, 0xFF} : row->second;
            EXPECT_EQ(Row(content.reset_value, content.mask), values) << core << "/" << content.number;
            EXPECT_EQ(content.data, content.reset_value);
        }
        EXPECT_EQ(found, expected) << core;
    }
    EXPECT_EQ(inputinterface::Register00(0xFFFF).raw(), 0xFB);
    EXPECT_EQ(readoutcore::Register01().raw(), 0xCF);
    EXPECT_EQ(readoutcore::Register14(0x12).raw(), 0x02);
}

// ---- registers by name -------------------------------------------------------------------------------------------

TEST(Registers, TheFieldsOfARegisterAreItsWord)
{
    for (const std::uint8_t core : std::vector<std::uint8_t>{0, 8, 12, 13, 14})
        for (const auto& reset : registersOfCore(core))
            for (const std::uint16_t data : std::vector<std::uint16_t>{0x00, 0xFF, 0xA5, 0x3C}) {
                const auto content = describeRegister(core, reset.number, data);
                unsigned word = 0;
                std::set<std::string> names;
                for (const auto& field : content.fields) {
                    EXPECT_LT(field.value, 1U << field.width);
                    word |= unsigned{field.value} << field.low_bit;
                    names.insert(field.name);
                }
                EXPECT_EQ(word, unsigned(data & content.mask)) << content.block << " " << content.number;
                EXPECT_EQ(names.size(), content.fields.size()) << content.block << " " << content.number;
                EXPECT_FALSE(content.meaning.empty());
            }
}

TEST(Registers, DelaysRunOverTheEdgesOfRegisters)
{
    const auto first = describeRegister(12, 0, 0xFF), second = describeRegister(12, 1, 0xFF);
    ASSERT_EQ(first.fields.size(), 3U);
    ASSERT_EQ(second.fields.size(), 4U);
    EXPECT_EQ(first.fields[2], (FieldContent{"clockDelay[1]", 3, 6, 2, 0, first.fields[0].meaning}));
    EXPECT_EQ(second.fields[0], (FieldContent{"clockDelay[1]", 1, 0, 1, 2, first.fields[0].meaning}));
    EXPECT_EQ(second.fields[1].name, "resetDelay[1]");
    EXPECT_EQ(describeRegister(12, 11, 0xFF).fields.back().name, "resetDelay[15]");
}

TEST(Registers, WhatTheChipDoesNotHaveIsRefused)
{
    EXPECT_THROW(describeRegister(0, 10, 0), std::out_of_range);
    EXPECT_THROW(describeRegister(13, 3, 0), std::out_of_range);
    for (const std::uint8_t core : std::vector<std::uint8_t>{9, 10, 11, 15, 255})
        EXPECT_THROW(registersOfCore(core), std::out_of_range) << int(core);
}

} // namespace
