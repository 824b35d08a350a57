// From configurations to registers and events in both families, by one text. Registers are packed a second time here,
// bit by bit from a list of positions; nothing of the tables is used.

#include "ravik/configuration/Translation.h"

#include <bitset>
#include <functional>
#include <limits>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "Leaves.h"
#include "tessel/configuration/Translation.h"

namespace {

// 2, 4 and 8 as 1, 2 and 3; whatever else as 0
std::uint64_t powerCode(std::uint64_t value) { return value == 2 ? 1 : value == 4 ? 2 : value == 8 ? 3 : 0; }

std::uint64_t bitsNeeded(std::uint64_t largest)
{
    std::uint64_t bits = 0;
    while (largest >> bits != 0)
        ++bits;
    return bits;
}

template <class Array>
Array arrayOf(const typename Array::Dimensions& dimensions, std::mt19937& random)
{
    Array array;
    array.dimensions = dimensions;
    array.data.resize(util::tensor::elementCount(dimensions));
    for (std::size_t i = 0; i < array.data.size(); ++i)
        array.data[i] = static_cast<typename decltype(array.data)::value_type>(random() >> 16);
    return array;
}

} // namespace

#define VORNA_FAMILY tessel
#include "TranslationTest.inc"
#undef VORNA_FAMILY

#define VORNA_FAMILY ravik
#include "TranslationTest.inc"
#undef VORNA_FAMILY
