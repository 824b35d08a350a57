#pragma once
// Registers by name: the fields of a register write, as text for people. They come from the tables that make the words.
//
//   for (const auto& field : tessel::registers::describeRegister(3, 4, 0x1F).fields)
//       std::cout << field.name << " = " << field.value << "\n";    // outputHeightLess1 = 31 ...

#include <cstdint>
#include <string>
#include <vector>

#include "trovi/Reflect.h"

namespace tessel::registers {

struct FieldContent {
    std::string name;
    std::uint16_t value = 0;
    std::uint8_t low_bit = 0;
    std::uint8_t width = 0;
    std::uint8_t from_bit = 0;
    std::string meaning;

    friend bool operator==(const FieldContent&, const FieldContent&) = default;
};

struct RegisterContent {
    std::string block;
    std::uint8_t core = 0;
    std::uint16_t number = 0;
    std::uint16_t data = 0;
    std::uint16_t reset_value = 0;
    std::uint16_t mask = 0;
    std::string meaning;
    std::vector<FieldContent> fields;

    friend bool operator==(const RegisterContent&, const RegisterContent&) = default;
};

/// The register `number` of block `core` (0 to 8: a layer, 12: the readout, 13: the input interface, 14: the event
/// camera's front end), with `data` cut into its fields.
/// @throws std::out_of_range when there is no such register
RegisterContent describeRegister(std::uint8_t core, std::uint16_t number, std::uint16_t data);

/// All registers of a block, in ascending order, with their reset values as data.
/// @throws std::out_of_range when there is no such block
std::vector<RegisterContent> registersOfCore(std::uint8_t core);

} // namespace tessel::registers

template <>
constexpr auto trovi::registerMembers<tessel::registers::FieldContent>()
{
    using tessel::registers::FieldContent;
    return members(
        member("name", &FieldContent::name, "name of the field, as \"outputHeightLess1\" or \"clockDelay[3]\""),
        member("value", &FieldContent::value, "the field's bits as a number, from 0"),
        member("low_bit", &FieldContent::low_bit, "the register's bit at which the field begins, from 0"),
        member("width", &FieldContent::width, "number of bits"),
        member("from_bit", &FieldContent::from_bit,
               "the bit of the named value that lies at the field's lowest bit: above 0 for the high part of a value "
               "that is spread over registers"),
        member("meaning", &FieldContent::meaning, "what the value is, or what holds when the bit is set"));
}
template <>
constexpr const char* trovi::registerDoc<tessel::registers::FieldContent>()
{
    return "One field of a register and what it holds.";
}

template <>
constexpr auto trovi::registerMembers<tessel::registers::RegisterContent>()
{
    using tessel::registers::RegisterContent;
    return members(
        member("block", &RegisterContent::block, "\"Layer[3]\", \"Readout\", \"Input interface\" or \"DVS\""),
        member("core", &RegisterContent::core, "number of the block: `layer` of a WriteRegisterValue"),
        member("number", &RegisterContent::number, "number of the register: `index` of a WriteRegisterValue"),
        member("data", &RegisterContent::data, "the register's word: `data` of a WriteRegisterValue"),
        member("reset_value", &RegisterContent::reset_value, "the word that it holds after a reset of the chip"),
        member("mask", &RegisterContent::mask, "the bits that are defined"),
        member("meaning", &RegisterContent::meaning, "what the register is for"),
        member("fields", &RegisterContent::fields, "its fields, from the lowest bit"));
}
template <>
constexpr const char* trovi::registerDoc<tessel::registers::RegisterContent>()
{
    return "One register of a chip, its word, and the word cut into named fields.";
}
