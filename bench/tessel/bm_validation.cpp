// Validation of a full configuration without faults: the nine layers in a chain, most destinations enabled, about
// 100,000 memory words. Aim for less than a millisecond. The floor is a copy of the same configuration, which a script
// pays each time it hands one over.

#include <sstream>

#include <benchmark/benchmark.h>

#include "tessel/configuration/Validation.h"

namespace {

using namespace tessel::configuration;

template <class Array>
void reshape(Array& array, const typename Array::Dimensions& dimensions)
{
    array.dimensions = dimensions;
    array.data.assign(util::tensor::elementCount(dimensions), {});
}

// Each layer gives 16 features of 16 x 16, and from two of its neighbours behind gets 32: 9 * (32 * 16 * 9 + 16 * 256)
// words of weights and neurons, and those of kill bits with them.
const TesselConfiguration& full()
{
    static const TesselConfiguration made = [] {
        TesselConfiguration c;
        for (std::size_t i = 0; i < c.cnn_layers.size(); ++i) {
            CNNLayerConfig& layer = c.cnn_layers[i];
            const std::uint16_t inputs = i == 0 ? 2 : i == 1 ? 16 : 32;
            layer.dimensions.padding = {1, 1};
            layer.dimensions.kernel_size = 3;
            layer.dimensions.input_shape = {inputs, {16, 16}};
            layer.dimensions.output_shape = {16, {16, 16}};
            layer.threshold_high = 100;
            layer.threshold_low = -100;
            reshape(layer.weights, layer.dimensions.getWeightsArrayDimensions());
            reshape(layer.weights_kill_bit, layer.dimensions.getWeightsArrayDimensions());
            reshape(layer.biases, layer.dimensions.getBiasesArrayDimensions());
            reshape(layer.biases_kill_bit, layer.dimensions.getBiasesArrayDimensions());
            reshape(layer.neurons_initial_value, layer.dimensions.getNeuronStatesArrayDimensions());
            reshape(layer.neurons_value_kill_bit, layer.dimensions.getNeuronStatesArrayDimensions());
            for (std::size_t k = 0; k < 2 && i + k + 1 < c.cnn_layers.size(); ++k)
                layer.destinations[k] = {.layer = static_cast<std::uint8_t>(i + k + 1),
                                         .enable = true,
                                         .feature_shift = static_cast<std::uint16_t>(k == 0 ? 0 : 16)};
        }
        c.dvs_layer.destinations[0] = {.layer = 0, .enable = true};
        c.dvs_layer.cut = {63, 63};
        c.dvs_layer.pooling = {4, 4};
        return c;
    }();
    return made;
}

void copyConfiguration(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(TesselConfiguration(full()));
}

void validateFull(benchmark::State& state)
{
    std::ostringstream stream;
    for (auto _ : state)
        if (!validate(full(), stream))
            state.SkipWithError(stream.str().c_str());
}

// As Python's function: with the stream and the text.
void validateForPython(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(tessel::validateConfiguration(full()));
}

BENCHMARK(copyConfiguration)->Unit(benchmark::kMicrosecond);
BENCHMARK(validateFull)->Unit(benchmark::kMicrosecond);
BENCHMARK(validateForPython)->Unit(benchmark::kMicrosecond);

} // namespace
