#include <cstdio>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../Golden.h"
#include "tessel/registers/LayerCore.h"
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
    EXPECT_EQ(R(0xFFFF).raw(), 0xFF) << "a word is cut to the register's mask";
    EXPECT_EQ(layercore::Register39(0).set(layercore::Register39::thresholdHighLow, std::int16_t{-2}).raw(), 0xFE);
    EXPECT_EQ(layercore::Register40(0).set(layercore::Register40::thresholdHighHigh, std::int16_t{-2}).raw(), 0xFF);
}

TEST(Registers, HaveTheirResetValuesMasksAndFields)
{
    std::string lines;
    for (const std::uint8_t core : std::vector<std::uint8_t>{0, 12, 13, 14})
        for (const auto& content : registersOfCore(core)) {
            EXPECT_EQ(content.data, content.reset_value);
            char numbers[64];
            std::snprintf(numbers, sizeof numbers, " %d reset %02X mask %02X:", content.number, content.reset_value,
                          content.mask);
            lines += content.block + numbers;
            for (const auto& field : content.fields) {
                const int high = field.low_bit + field.width - 1;
                lines += " " + field.name + "[" + std::to_string(field.low_bit) + "-" + std::to_string(high) + "]";
                if (field.from_bit != 0)
                    lines += "=its bits from " + std::to_string(field.from_bit);
            }
            lines += "\n";
        }
    EXPECT_GOLDEN("chip_registers.txt", lines);
}

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

TEST(Registers, WhatTheChipDoesNotHaveIsRefused)
{
    EXPECT_THROW(describeRegister(0, 10, 0), std::out_of_range);
    EXPECT_THROW(describeRegister(13, 3, 0), std::out_of_range);
    for (const std::uint8_t core : std::vector<std::uint8_t>{9, 10, 11, 15, 255})
        EXPECT_THROW(registersOfCore(core), std::out_of_range) << int(core);
}

} // namespace
