#pragma once
// The limits of the chips. Both families share one core design, so these numbers hold for both.
//
// A constant has the type of the configuration member that it limits. Ranges include both ends.

#include <array>
#include <cstddef>
#include <cstdint>

// The inner namespace lets either family show them as its own (`using namespace tessel::limits`).
namespace tessel {
inline namespace limits {

// convolutional layers
inline constexpr std::array<std::uint8_t, 4> CNN_STRIDE_VALUES{1, 2, 4, 8};
inline constexpr std::array<std::uint8_t, 4> CNN_POOLING_VALUES{1, 2, 4, 8};
inline constexpr std::uint8_t CNN_MIN_PADDING = 0;
inline constexpr std::uint8_t CNN_MAX_PADDING = 7;
inline constexpr std::uint8_t CNN_MIN_KERNEL_SIZE = 1;
inline constexpr std::uint8_t CNN_MAX_KERNEL_SIZE = 16;
inline constexpr std::uint16_t CNN_MIN_FEATURE_NUMBER = 1;
inline constexpr std::uint16_t CNN_MAX_FEATURE_NUMBER = 1024;
inline constexpr std::uint8_t CNN_MIN_INPUT_FEATURE_SIZE = 1;
inline constexpr std::uint8_t CNN_MAX_INPUT_FEATURE_SIZE = 128;
inline constexpr std::uint8_t CNN_MIN_OUTPUT_FEATURE_SIZE = 1;
inline constexpr std::uint8_t CNN_MAX_OUTPUT_FEATURE_SIZE = 64;
inline constexpr std::int16_t CNN_MIN_HIGH_THRESHOLD = 0;
inline constexpr std::int16_t CNN_MAX_HIGH_THRESHOLD = 32767;
inline constexpr std::int16_t CNN_MIN_LOW_THRESHOLD = -32768;
inline constexpr std::int16_t CNN_MAX_LOW_THRESHOLD = 0;

// routes between layers; a feature shift is the number of a feature in the target's input space
inline constexpr std::uint8_t CNN_MIN_LAYER = 0;
inline constexpr std::uint8_t CNN_MAX_LAYER = 8;
inline constexpr std::uint16_t CNN_MIN_FEATURE_SHIFT = 0;
inline constexpr std::uint16_t CNN_MAX_FEATURE_SHIFT = CNN_MAX_FEATURE_NUMBER - 1;

// event camera front end
inline constexpr std::array<std::uint8_t, 3> DVS_POOLING_VALUES{1, 2, 4};
inline constexpr std::uint8_t DVS_MIN_ORDINATE = 0;
inline constexpr std::uint8_t DVS_MAX_ORDINATE = 127;
inline constexpr std::uint8_t DVS_CURRENT_CONTROL_MIN = 0;
inline constexpr std::uint8_t DVS_CURRENT_CONTROL_MAX = 15;

// readout
inline constexpr std::uint8_t READOUT_MIN_ADDRESS_INTERPRETATION = 0;
inline constexpr std::uint8_t READOUT_MAX_ADDRESS_INTERPRETATION = 3;

inline constexpr std::size_t CNN_LAYER_COUNT = CNN_MAX_LAYER + 1;

/// The number of the event camera where sources are numbered: it follows the layers.
inline constexpr std::uint16_t DVS_SOURCE = CNN_LAYER_COUNT;

// clang-format off
// layer                      0      1      2      3      4      5      6      7      8
/// Words of weight memory: a weight and its kill bit each.
inline constexpr std::array<std::uint64_t, CNN_LAYER_COUNT> weightsMemorySize{
                          16384, 16384, 16384, 32768, 32768, 65536, 65536, 16384, 16384};
/// Words of neuron memory: a state and its kill bit each.
inline constexpr std::array<std::uint64_t, CNN_LAYER_COUNT> neuronsMemorySize{
                          65536, 65536, 65536, 32768, 32768, 16384, 16384, 16384, 16384};
// clang-format on

/// @throws std::out_of_range when there is no such layer
constexpr std::uint64_t getMaximumWeightMemory(std::size_t layer) { return weightsMemorySize.at(layer); }

/// @throws std::out_of_range when there is no such layer
constexpr std::uint64_t getMaximumNeuronMemory(std::size_t layer) { return neuronsMemorySize.at(layer); }

} // namespace limits
} // namespace tessel
