#pragma once
// Which chip answers the packets of an emulated board.

#include <cstdint>

namespace emulation {

enum class ChipKind : std::uint8_t {
    memory,   ///< stores what is written to registers and memories, and answers reads
    loopback, ///< sends back what comes
    none,     ///< no chip; a test adds modules itself
};

} // namespace emulation
