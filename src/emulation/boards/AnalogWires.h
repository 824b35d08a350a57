#pragma once
// What connects the DAC and the ADC of a board: a wire from each output to the input of the same number.

#include <array>
#include <cstddef>
#include <cstdint>

#include "util/Mutex.h"

namespace emulation {

/// Levels as 16-bit converter codes: 0 to 65535 for the whole range. Threads: thread-safe.
class AnalogWires {
public:
    static constexpr std::size_t count = 8;

    void set(std::size_t wire, std::uint16_t code);
    std::array<std::uint16_t, count> codes() const;

private:
    mutable util::Mutex mutex; // innermost
    std::array<std::uint16_t, count> levels VORNA_GUARDED_BY(mutex){};
};

} // namespace emulation
