#pragma once
// What stands behind the packets of an emulated board.

#include <cstdint>

namespace emulation {

enum class ChipKind : std::uint8_t {
    memory,   ///< stores what is written to registers and memories, and answers reads
    loopback, ///< sends back what comes
    none,     ///< nothing; a test puts modules in by itself
};

} // namespace emulation
