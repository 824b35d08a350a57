#include "emulation/boards/AnalogWires.h"

namespace emulation {

void AnalogWires::set(std::size_t wire, std::uint16_t code)
{
    const util::Lock lock(mutex);
    levels.at(wire) = code;
}

std::array<std::uint16_t, AnalogWires::count> AnalogWires::codes() const
{
    const util::Lock lock(mutex);
    return levels;
}

} // namespace emulation
