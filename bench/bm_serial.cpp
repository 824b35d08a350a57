// The binary form of a million events, next to a memcpy of the same events: aim for at most 2 times the memcpy each
// way. The results are memory of their own, so the memcpy goes to fresh memory too; the copy to memory that is in use
// already is shown beside it.

#include <cstring>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "davis/event/DvsEvent.h"
#include "trovi/Serial.h"

namespace {

using davis::event::DvsEvent;

constexpr std::size_t count = 1'000'000;

const std::vector<DvsEvent>& events()
{
    static const std::vector<DvsEvent> all = [] {
        std::vector<DvsEvent> made(count);
        for (std::size_t i = 0; i < count; ++i)
            made[i] = {static_cast<std::uint16_t>(i % 346), static_cast<std::uint16_t>(i % 260), i % 3 == 0,
                       static_cast<std::int64_t>(i)};
        return made;
    }();
    return all;
}

void perEvent(benchmark::State& state)
{
    state.counters["per event"] = benchmark::Counter(
        static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void copyToFreshMemory(benchmark::State& state)
{
    constexpr std::size_t size = count * sizeof(DvsEvent);
    for (auto _ : state) {
        auto copy = std::make_unique_for_overwrite<std::uint8_t[]>(size);
        std::memcpy(copy.get(), events().data(), size);
        benchmark::DoNotOptimize(copy.get());
    }
    perEvent(state);
}

void copyToUsedMemory(benchmark::State& state)
{
    constexpr std::size_t size = count * sizeof(DvsEvent);
    std::vector<std::uint8_t> copy(size);
    for (auto _ : state) {
        std::memcpy(copy.data(), events().data(), size);
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    perEvent(state);
}

void writeEvents(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(trovi::serializeToBuffer(events()));
    perEvent(state);
}

void readEvents(benchmark::State& state)
{
    const trovi::Bytes bytes = trovi::serializeToBuffer(events());
    for (auto _ : state)
        benchmark::DoNotOptimize(trovi::deserializeBytes<std::vector<DvsEvent>>(bytes));
    perEvent(state);
}

BENCHMARK(copyToFreshMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(copyToUsedMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(writeEvents)->Unit(benchmark::kMillisecond);
BENCHMARK(readEvents)->Unit(benchmark::kMillisecond);

} // namespace
