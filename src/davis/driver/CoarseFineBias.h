#pragma once
// A bias current of a DAVIS, and the word in which the chip takes it.

#include <cstdint>

#include "util/BitField.h"

namespace davis::driver {

/// `coarse` chooses one of 8 ranges of current (0 the smallest), `fine` a value within it.
struct CoarseFineBias {
    std::uint8_t coarse = 0; ///< 0 to 7
    std::uint8_t fine = 0;   ///< 0 to 255
    bool enabled = false;
    bool sexN = false;
    bool typeNormal = false;
    bool currentLevelNormal = false;

    friend bool operator==(const CoarseFineBias&, const CoarseFineBias&) = default;
};

struct BiasWord {
    static constexpr util::BitField enabled{0, 1};
    static constexpr util::BitField sexN{1, 1};
    static constexpr util::BitField typeNormal{2, 1};
    static constexpr util::BitField currentLevelNormal{3, 1};
    static constexpr util::BitField fine{4, 8};
    static constexpr util::BitField coarse{12, 3};
};

constexpr std::uint32_t biasWord(const CoarseFineBias& bias)
{
    return BiasWord::enabled.put(bias.enabled) | BiasWord::sexN.put(bias.sexN) |
           BiasWord::typeNormal.put(bias.typeNormal) | BiasWord::currentLevelNormal.put(bias.currentLevelNormal) |
           BiasWord::fine.put(bias.fine) | BiasWord::coarse.put(bias.coarse);
}

constexpr CoarseFineBias biasOf(std::uint32_t word)
{
    return {static_cast<std::uint8_t>(BiasWord::coarse.get(word)),
            static_cast<std::uint8_t>(BiasWord::fine.get(word)),
            BiasWord::enabled.get(word) != 0,
            BiasWord::sexN.get(word) != 0,
            BiasWord::typeNormal.get(word) != 0,
            BiasWord::currentLevelNormal.get(word) != 0};
}

} // namespace davis::driver
