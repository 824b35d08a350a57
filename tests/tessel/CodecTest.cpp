// The codecs of both families, by one text.

#include "ravik/event/Codec.h"

#include <array>
#include <random>
#include <span>

#include <gmock/gmock.h>

#include "tessel/event/Codec.h"
#include "tessel/family/WordText.h"

namespace {

constexpr std::uint64_t bits(std::uint64_t word, unsigned low, unsigned high)
{
    std::uint64_t value = 0;
    for (unsigned bit = low; bit <= high; ++bit)
        value |= (word >> bit & 1) << (bit - low);
    return value;
}

template <class T>
T member(std::uint64_t word, unsigned low, unsigned high)
{
    return static_cast<T>(bits(word, low, high));
}

} // namespace

#define VORNA_FAMILY tessel
#include "CodecTest.inc"
#undef VORNA_FAMILY

#define VORNA_FAMILY ravik
#include "CodecTest.inc"
#undef VORNA_FAMILY
