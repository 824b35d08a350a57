// Chip words to events and back, beside floors that are written out by hand for the one purpose, with a branch on the
// kind of each event. Mixed kinds are the worst case of such a branch, and runs of one kind its best: the spikes that a
// chip mostly sends, the writes of a configuration. By callgrind --branch-sim=yes, of 100,000 random words the decoder
// mispredicts 7 branches and its floor 95,000.

#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "../SideBySide.h"
#include "tessel/event/Codec.h"

namespace {

using namespace tessel::event;

constexpr std::size_t count = 16384; // more than a predictor learns by heart; the events fit the second level cache

enum class Stream { mixed, spikes };

std::vector<std::uint64_t> wordsOf(Stream stream)
{
    std::mt19937_64 random(1);
    std::vector<std::uint64_t> words(count);
    for (auto& word : words)
        word = stream == Stream::mixed ? random() : random() & ~std::uint64_t{0xF000000};
    return words;
}

// The alternatives are built where they stay, each from its own constants.
void buildInPlace(const std::vector<std::uint64_t>& words, OutputEvent* slot)
{
    for (const std::uint64_t word : words) {
        const auto time = static_cast<std::uint32_t>(word >> 32);
        const auto low = static_cast<std::uint32_t>(word);
        const auto spike = [&](std::uint32_t layer) {
            slot->emplace<Spike>(Spike{static_cast<std::uint8_t>(layer), static_cast<std::uint16_t>(low >> 14 & 0x3FF),
                                       static_cast<std::uint8_t>(low >> 7 & 0x3F),
                                       static_cast<std::uint8_t>(low & 0x3F), time});
        };
        const auto dvs = [&](std::uint8_t layer) {
            slot->emplace<DvsEvent>(DvsEvent{(low >> 14 & 1) != 0, static_cast<std::uint8_t>(low >> 7 & 0x7F),
                                             static_cast<std::uint8_t>(low & 0x7F), layer, time});
        };
        if ((low >> 27 & 1) == 0) {
            spike(low >> 24 & 7);
        } else {
            switch (low >> 24 & 7) {
            case 0:
                spike(8);
                break;
            case 1:
                dvs(9);
                break;
            case 2:
                dvs(10);
                break;
            case 3:
                slot->emplace<InputInterfaceEvent>(InputInterfaceEvent{low & 0x1FFFFF, false, time});
                break;
            case 4:
                slot->emplace<InputInterfaceEvent>(InputInterfaceEvent{low & 0xFFFFF, true, time});
                break;
            case 5:
                slot->emplace<NeuronValue>(NeuronValue{static_cast<std::uint8_t>(low >> 17 & 0x1F),
                                                       (low >> 16 & 1) != 0, static_cast<std::int16_t>(low), time});
                break;
            case 6:
                slot->emplace<BiasValue>(BiasValue{static_cast<std::uint8_t>(low >> 17 & 0x1F), (low >> 16 & 1) != 0,
                                                   static_cast<std::int16_t>(low), time});
                break;
            default:
                slot->emplace<WeightValue>(WeightValue{static_cast<std::uint8_t>(low >> 9), (low >> 8 & 1) != 0,
                                                       static_cast<std::int8_t>(low), time});
            }
        }
        ++slot;
    }
}

void decode(benchmark::State& state, Stream stream)
{
    const auto words = wordsOf(stream);
    std::vector<OutputEvent> events, slots(count);
    events.reserve(count);
    bench::sideBySide(
        state, count,
        [&] {
            events.clear();
            for (const std::uint64_t word : words)
                events.emplace_back(decodeOutputEvent(word));
            benchmark::DoNotOptimize(events.data());
            benchmark::ClobberMemory();
        },
        [&] {
            buildInPlace(words, slots.data());
            benchmark::DoNotOptimize(slots.data());
            benchmark::ClobberMemory();
        });
}
BENCHMARK_CAPTURE(decode, mixed, Stream::mixed)->UseManualTime();
BENCHMARK_CAPTURE(decode, spikes, Stream::spikes)->UseManualTime();

// Input events: all kinds in random order, and what a configuration mostly is, runs of writes.
std::vector<InputEvent> inputEvents(bool mixed)
{
    std::mt19937_64 random(2);
    std::vector<InputEvent> events;
    while (events.size() < count) {
        const std::uint64_t word = random() & 0xFF'FFFF'FFFF;
        if (!mixed)
            events.emplace_back(WriteWeightValue{3, static_cast<std::uint32_t>(word & 0xFFFF), false,
                                                 static_cast<std::int8_t>(word >> 32)});
        else if (word % 11 == 0)
            events.emplace_back(WriteRegisterValue{1, 2, static_cast<std::uint16_t>(word >> 8)});
        else
            events.push_back(decodeInputEvent(
                (word & ~(std::uint64_t{3} << 38)) | (word % 5 < 2 ? std::uint64_t{6} << 38 : 0), word % 3 == 0));
    }
    return events;
}

std::uint64_t wordByHand(const InputEvent& event)
{
    const auto u = [](auto value) { return std::uint64_t{static_cast<std::make_unsigned_t<decltype(value)>>(value)}; };
    constexpr std::uint64_t one = 1;
    switch (event.index()) {
    case 0: {
        const auto& e = *std::get_if<0>(&event);
        return u(e.x) | u(e.y) << 7 | u(e.feature) << 14 | u(e.layer) << 24 | u(e.timestamp) << 32 | 0x18000000000;
    }
    case 1: {
        const auto& e = *std::get_if<1>(&event);
        return u(e.x) | u(e.y) << 7 | u(e.feature) << 14 | u(e.layer) << 24 | 0x18000000000;
    }
    case 2: {
        const auto& e = *std::get_if<2>(&event);
        return u(e.x) | u(e.y) << 7 | 0x1C000000000;
    }
    case 3:
        return 0x1C000004000;
    case 4: {
        const auto& e = *std::get_if<4>(&event);
        return u(e.neuron_state) | (e.kill ? one << 16 : 0) | u(e.address) << 17 | u(e.layer) << 37;
    }
    case 5: {
        const auto& e = *std::get_if<5>(&event);
        return u(e.monitor_tag) | u(e.address) << 17 | one << 35 | u(e.layer) << 37;
    }
    case 6: {
        const auto& e = *std::get_if<6>(&event);
        return u(e.weight) | (e.kill ? one << 8 : 0) | u(e.address) << 9 | one << 36 | u(e.layer) << 37;
    }
    case 7: {
        const auto& e = *std::get_if<7>(&event);
        return u(e.monitor_tag) | u(e.address) << 9 | one << 30 | one << 36 | u(e.layer) << 37;
    }
    case 8: {
        const auto& e = *std::get_if<8>(&event);
        return u(e.bias) | (e.kill ? one << 16 : 0) | u(e.address) << 17 | one << 35 | one << 36 | u(e.layer) << 37;
    }
    case 9: {
        const auto& e = *std::get_if<9>(&event);
        return u(e.monitor_tag) | u(e.address) << 17 | one << 27 | one << 35 | one << 36 | u(e.layer) << 37;
    }
    case 10: {
        const auto& e = *std::get_if<10>(&event);
        return u(e.data) | u(e.index) << 16 | u(e.layer) << 22 | one << 60;
    }
    default:
        return 0;
    }
}

void encode(benchmark::State& state, bool mixed)
{
    const auto events = inputEvents(mixed);
    std::vector<std::uint64_t> words(count);
    const auto pass = [&](auto encoder) {
        return [&words, &events, encoder] {
            for (std::size_t i = 0; i < count; ++i)
                words[i] = encoder(events[i]);
            benchmark::DoNotOptimize(words.data());
            benchmark::ClobberMemory();
        };
    };
    bench::sideBySide(state, count, pass([](const InputEvent& event) { return encodeInputInterfaceEvent(event); }),
                      pass([](const InputEvent& event) { return wordByHand(event); }));
}
BENCHMARK_CAPTURE(encode, mixed, true)->UseManualTime();
BENCHMARK_CAPTURE(encode, writes, false)->UseManualTime();

} // namespace
