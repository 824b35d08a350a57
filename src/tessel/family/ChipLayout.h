#pragma once
// The parts of a chip of either family, and the numbers by which its blocks are addressed.

#include <cstddef>
#include <cstdint>

namespace tessel {

inline constexpr std::size_t destinationCount = 2;    ///< of each layer's output, and of the camera events'
inline constexpr std::size_t readoutNeuronCount = 16; ///< neurons of the readout

// Core numbers: the `layer` of a register write. A convolutional layer has its own number.
inline constexpr std::uint8_t readoutCore = 12;
inline constexpr std::uint8_t inputInterfaceCore = 13;
inline constexpr std::uint8_t dvsCore = 14;

// The `layer` of events that leave the chip from the event camera: behind its front end, and raw.
inline constexpr std::uint8_t dvsEventLayer = 9;
inline constexpr std::uint8_t sensorEventLayer = 10;

} // namespace tessel
