// A configuration of about 100,000 memory words into the events that write it, beside the plain fill of a vector with
// as many events of the same kinds: once into a vector with room for them, once into a new one. Aim: 100 million events
// a second with room.

#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "../SideBySide.h"
#include "tessel/configuration/Translation.h"

namespace {

using namespace tessel::event;
using tessel::configuration::TesselConfiguration;

// Eight layers of 16 to 32 features of 16 x 16 pixels, kernel 3.
const TesselConfiguration& network()
{
    static const TesselConfiguration made = [] {
        TesselConfiguration configuration;
        for (std::size_t i = 0; i < 8; ++i) {
            auto& layer = configuration.cnn_layers[i];
            layer.dimensions.kernel_size = 3;
            layer.dimensions.input_shape = {16, {18, 18}};
            layer.dimensions.output_shape = {32, {16, 16}};
            const auto fill = [i](auto& array, const auto& dimensions, auto value) {
                array.dimensions = dimensions;
                array.data.resize(util::tensor::elementCount(dimensions));
                for (std::size_t k = 0; k < array.data.size(); ++k)
                    array.data[k] = value(k * 7 + i);
            };
            const auto number = [](std::size_t k) { return static_cast<signed char>(k); };
            const auto rarely = [](std::size_t k) { return k % 100 == 0; };
            fill(layer.weights, layer.dimensions.getWeightsArrayDimensions(), number);
            fill(layer.weights_kill_bit, layer.dimensions.getWeightsArrayDimensions(), rarely);
            fill(layer.biases, layer.dimensions.getBiasesArrayDimensions(), number);
            fill(layer.biases_kill_bit, layer.dimensions.getBiasesArrayDimensions(), rarely);
            fill(layer.neurons_initial_value, layer.dimensions.getNeuronStatesArrayDimensions(), number);
            fill(layer.neurons_value_kill_bit, layer.dimensions.getNeuronStatesArrayDimensions(), rarely);
        }
        return configuration;
    }();
    return made;
}

const std::size_t count = tesselConfigurationToEvent(network()).size();
constexpr std::size_t weightShare = 3; // of 8: weights 3 in 8, neuron values 5 in 8, as in the network

void fill(std::vector<InputEvent>& events)
{
    const std::size_t weights = count * weightShare / 8;
    for (std::size_t i = 0; i < weights; ++i)
        events.emplace_back(WriteWeightValue{0, static_cast<std::uint32_t>(i), false, static_cast<std::int8_t>(i)});
    for (std::size_t i = weights; i < count; ++i)
        events.emplace_back(WriteNeuronValue{0, static_cast<std::uint32_t>(i), false, static_cast<std::int16_t>(i)});
    benchmark::DoNotOptimize(events.data());
}

void intoReservedVector(benchmark::State& state)
{
    std::vector<InputEvent> events, plain;
    events.reserve(count);
    plain.reserve(count);
    bench::sideBySide(
        state, static_cast<double>(count),
        [&] {
            events.clear();
            tesselConfigurationToEvent(network(), events);
        },
        [&] {
            plain.clear();
            fill(plain);
        });
    state.counters["events"] = static_cast<double>(count);
    state.counters["million_per_s"] = 1e3 / state.counters["ns"];
}
BENCHMARK(intoReservedVector)->UseManualTime();

void intoNewVector(benchmark::State& state)
{
    bench::sideBySide(
        state, static_cast<double>(count),
        [&] { benchmark::DoNotOptimize(tesselConfigurationToEvent(network()).data()); },
        [&] {
            std::vector<InputEvent> plain;
            plain.reserve(count);
            fill(plain);
        });
    state.counters["million_per_s"] = 1e3 / state.counters["ns"];
}
BENCHMARK(intoNewVector)->UseManualTime();

// What the registers cost: nine layers of one word, so that 310 of 337 events are register writes.
void registersOfADefaultConfiguration(benchmark::State& state)
{
    const TesselConfiguration configuration;
    std::vector<InputEvent> events;
    for (auto _ : state) {
        events.clear();
        tesselConfigurationToEvent(configuration, events);
        benchmark::DoNotOptimize(events.data());
    }
}
BENCHMARK(registersOfADefaultConfiguration);

} // namespace
