#include "tessel/registers/RegisterContent.h"

#include <algorithm>
#include <stdexcept>

#include "tessel/family/ChipLayout.h"
#include "tessel/family/Limits.h"
#include "tessel/registers/DvsCore.h"
#include "tessel/registers/InputInterface.h"
#include "tessel/registers/LayerCore.h"
#include "tessel/registers/ReadoutCore.h"

namespace tessel::registers {

namespace {

struct FieldRow {
    const char* name;
    const char* meaning;
    int index;
    std::uint8_t low;
    std::uint8_t width;
    std::uint8_t from;
    std::uint16_t mask;
};

struct RegisterRow {
    std::uint16_t number;
    std::uint16_t resetValue;
    std::uint16_t mask;
    const char* meaning;
    std::span<const FieldRow> fields;
};

template <class R>
constexpr auto fieldRows = std::apply(
    []<class... Fs>(const Fs&... f) {
        return std::array{FieldRow{f.name, f.meaning, f.index, Fs::low, Fs::width, Fs::from, Fs::mask}...};
    },
    R::fields);

template <class List>
struct Rows;
template <class... Rs>
struct Rows<RegisterList<Rs...>> {
    static constexpr std::array rows{RegisterRow{Rs::number, Rs::resetValue, Rs::mask, Rs::meaning, fieldRows<Rs>}...};
};

struct Block {
    std::string name;
    std::span<const RegisterRow> rows;
};

Block blockOf(std::uint8_t core)
{
    if (core < CNN_LAYER_COUNT)
        return {"Layer[" + std::to_string(core) + "]", Rows<layercore::Registers>::rows};
    switch (core) {
    case readoutCore:
        return {"Readout", Rows<readoutcore::Registers>::rows};
    case inputInterfaceCore:
        return {"Input interface", Rows<inputinterface::Registers>::rows};
    case dvsCore:
        return {"DVS", Rows<dvscore::Registers>::rows};
    default:
        throw std::out_of_range("The chip has no block number " + std::to_string(core) + ".");
    }
}

RegisterContent contentOf(const Block& block, std::uint8_t core, const RegisterRow& row, std::uint16_t data)
{
    RegisterContent content{block.name, core, row.number, data, row.resetValue, row.mask, row.meaning, {}};
    for (const FieldRow& field : row.fields) {
        std::string name = field.name;
        if (field.index >= 0)
            name += "[" + std::to_string(field.index) + "]";
        const int value = (data & field.mask) >> field.low;
        content.fields.push_back(
            {name, static_cast<std::uint16_t>(value), field.low, field.width, field.from, field.meaning});
    }
    return content;
}

} // namespace

RegisterContent describeRegister(std::uint8_t core, std::uint16_t number, std::uint16_t data)
{
    const Block block = blockOf(core);
    const auto row = std::ranges::lower_bound(block.rows, number, {}, &RegisterRow::number);
    if (row == block.rows.end() || row->number != number)
        throw std::out_of_range(block.name + " has no register " + std::to_string(number) + ".");
    return contentOf(block, core, *row, data);
}

std::vector<RegisterContent> registersOfCore(std::uint8_t core)
{
    const Block block = blockOf(core);
    std::vector<RegisterContent> contents;
    contents.reserve(block.rows.size());
    for (const RegisterRow& row : block.rows)
        contents.push_back(contentOf(block, core, row, row.resetValue));
    return contents;
}

} // namespace tessel::registers
