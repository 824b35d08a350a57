// Arrays of the largest weights, 64x64x3x3: nested vectors, binary form and JSON, next to a copy of the same array,
// which takes fresh memory as the results do.

#include <string>

#include <benchmark/benchmark.h>

#include "SideBySide.h"
#include "trovi/Json.h"
#include "util/tensor/Array.h"

namespace {

using namespace util::tensor;

template <class Array>
Array filled()
{
    Array array;
    array.dimensions = {64, 64, 3, 3};
    array.data.resize(elementCount(array.dimensions));
    for (std::size_t i = 0; i < array.data.size(); ++i)
        array.data[i] = i % 3 == 0;
    return array;
}

/// Counters are for one element.
template <class Array, class Work>
void besideCopy(benchmark::State& state, Work work)
{
    const Array array = filled<Array>();
    bench::sideBySide(
        state, static_cast<double>(array.data.size()), [&] { work(array); },
        [&] {
            Array copy = array;
            benchmark::DoNotOptimize(copy.data);
        });
}

template <class Array>
void toVectors(benchmark::State& state)
{
    besideCopy<Array>(state, [](const Array& array) { benchmark::DoNotOptimize(buildList(array)); });
}

template <class Array>
void fromVectors(benchmark::State& state)
{
    const auto nested = buildList(filled<Array>());
    besideCopy<Array>(state, [&](const Array&) { benchmark::DoNotOptimize(arrayFromVector(nested)); });
}

template <class Array>
void toBytes(benchmark::State& state)
{
    besideCopy<Array>(state, [](const Array& array) { benchmark::DoNotOptimize(trovi::serializeToBuffer(array)); });
}

template <class Array>
void fromBytes(benchmark::State& state)
{
    const trovi::Bytes bytes = trovi::serializeToBuffer(filled<Array>());
    besideCopy<Array>(state, [&](const Array&) { benchmark::DoNotOptimize(trovi::deserializeBytes<Array>(bytes)); });
}

template <class Array>
void toJson(benchmark::State& state)
{
    besideCopy<Array>(state, [](const Array& array) { benchmark::DoNotOptimize(trovi::toJson(array)); });
}

template <class Array>
void fromJson(benchmark::State& state)
{
    const std::string document = trovi::toJson(filled<Array>());
    besideCopy<Array>(state, [&](const Array&) {
        Array array;
        trovi::fromJson(array, document);
        benchmark::DoNotOptimize(array.data);
    });
}

#define ARRAY_BENCHMARK(name)                              \
    BENCHMARK_TEMPLATE(name, Array4Int8)->UseManualTime(); \
    BENCHMARK_TEMPLATE(name, Array4Bool)->UseManualTime();
ARRAY_BENCHMARK(toVectors)
ARRAY_BENCHMARK(fromVectors)
ARRAY_BENCHMARK(toBytes)
ARRAY_BENCHMARK(fromBytes)
ARRAY_BENCHMARK(toJson)
ARRAY_BENCHMARK(fromJson)

} // namespace
