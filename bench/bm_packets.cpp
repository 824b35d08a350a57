// What packets cost.
//
// BM_BlocksToWords: from the blocks of a read, through the dispatcher and a client's queue, to decoded words in a
// vector. The floor parses the same blocks in place. BM_OneByOne is the same with the operations for single packets,
// which lock pool, dispatcher and queue for each. Argument: 64-bit words per packet. BM_Dispatch: packets alone,
// through queue and dispatcher. BM_Pool: get and put of a buffer, on one and on two threads, beside a bare mutex.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <thread>
#include <variant>
#include <vector>

#include "SideBySide.h"
#include "keplin/BlockDecoder.h"
#include "keplin/PacketDelivery.h"
#include "tessel/event/Codec.h"

namespace {

using namespace keplin;

constexpr std::uint32_t moduleId = 2;
constexpr std::size_t blocksPerRead = 8;
constexpr int reads = 20; // in a round

// Two decoders: that of a chip, and one that does little, so that the packets' own cost shows.
struct Chip {
    using Event = tessel::event::OutputEvent;
    static void decode(std::uint64_t word, std::vector<Event>& events)
    {
        events.push_back(tessel::event::decodeOutputEvent(word));
    }
};
struct Light {
    struct Spike {
        std::uint16_t x, y;
        std::uint8_t feature, layer;
        std::uint32_t timestamp;
    };
    struct Value {
        std::uint64_t address;
    };
    using Event = std::variant<Spike, Value>;
    static void decode(std::uint64_t word, std::vector<Event>& events)
    {
        if ((word & 1 << 27) == 0)
            events.emplace_back(Spike{static_cast<std::uint16_t>(word & 0x7F),
                                      static_cast<std::uint16_t>(word >> 7 & 0x7F),
                                      static_cast<std::uint8_t>(word >> 14), static_cast<std::uint8_t>(word >> 24 & 7),
                                      static_cast<std::uint32_t>(word >> 32)});
        else
            events.emplace_back(Value{word >> 3});
    }
};

/// Reads of packets with `words` 64-bit words each. A packet cut off by the end of the last block continues in the
/// first.
struct Reads {
    explicit Reads(std::uint32_t words)
    {
        std::mt19937 random(1);
        std::vector<std::uint32_t> stream;
        const std::size_t room = blocksPerRead * (BlockWords - 1);
        while (stream.size() + 1 + 2 * words <= room) {
            stream.push_back(header::length.put(8 * words - 1) | header::moduleId.put(moduleId));
            for (std::uint32_t i = 0; i < 2 * words; ++i)
                stream.push_back(static_cast<std::uint32_t>(random()) & (i % 2 == 0 ? 0x07FF'FFFF : ~0U));
            ++packets;
        }
        stream.resize(room);
        for (std::size_t block = 0; block < blocksPerRead; ++block) {
            blocks.push_back(100);
            blocks.insert(blocks.end(), stream.begin() + static_cast<std::ptrdiff_t>(block * (BlockWords - 1)),
                          stream.begin() + static_cast<std::ptrdiff_t>((block + 1) * (BlockWords - 1)));
        }
        wordCount = packets * words;
    }
    std::span<const std::uint8_t> bytes() const
    {
        return {reinterpret_cast<const std::uint8_t*>(blocks.data()), blocks.size() * 4};
    }

    std::vector<std::uint32_t> blocks;
    std::size_t packets = 0;
    std::size_t wordCount = 0;
};

/// The least that has to be done: headers are followed and words decoded where they lie.
template <class Decoder>
class InPlace {
public:
    void parse(const Reads& read, std::vector<typename Decoder::Event>& events)
    {
        std::uint32_t missing = 0;
        for (std::size_t b = 0; b < read.blocks.size(); b += BlockWords) {
            const std::uint32_t* word = &read.blocks[b] + 1;
            const std::uint32_t* const end = &read.blocks[b] + BlockWords;
            while (true) {
                if (missing == 0) {
                    if (word == end || *word == 0)
                        break;
                    missing = wordsOfHeader(*word++) - 1;
                }
                if (low && word != end) { // a block's end has cut an event word
                    Decoder::decode(*low | std::uint64_t{*word++} << 32, events);
                    low.reset();
                    missing -= 1;
                }
                const auto here = std::min<std::ptrdiff_t>(missing, end - word);
                for (const std::uint32_t* const last = word + (here & ~1); word != last; word += 2)
                    Decoder::decode(word[0] | std::uint64_t{word[1]} << 32, events);
                missing -= static_cast<std::uint32_t>(here);
                if (here % 2 != 0)
                    low = *word++;
                if (missing > 0)
                    break;
            }
        }
    }

private:
    std::optional<std::uint32_t> low;
};

template <class Decoder>
void decodeInto(std::vector<typename Decoder::Event>& events, const PacketBuffer& packet)
{
    packet.forEachEventWord([&](std::uint64_t word) { Decoder::decode(word, events); });
}

/// Runs `read(events)` for each read of a round, beside the parse in place.
template <class Decoder, class Read>
void besideInPlace(benchmark::State& state, const Reads& input, Read read)
{
    std::vector<typename Decoder::Event> events;
    events.reserve(input.wordCount);
    InPlace<Decoder> inPlace;
    bench::sideBySide(
        state, static_cast<double>(reads * input.wordCount),
        [&] {
            for (int i = 0; i < reads; ++i) {
                events.clear();
                read(events);
                benchmark::DoNotOptimize(events.data());
            }
            if (events.size() != input.wordCount)
                state.SkipWithError("words were lost");
        },
        [&] {
            for (int i = 0; i < reads; ++i) {
                events.clear();
                inPlace.parse(input, events);
                benchmark::DoNotOptimize(events.data());
            }
            if (events.size() != input.wordCount)
                state.SkipWithError("words were lost");
        });
}

template <class Decoder>
void BM_BlocksToWords(benchmark::State& state)
{
    std::thread([] {}).join(); // from here on mutexes are real
    const Reads input(static_cast<std::uint32_t>(state.range(0)));
    PacketQueue received, unused;
    PacketDispatcher dispatcher;
    dispatcher.setDispatchEntryEv32(moduleId, enqueueInto(received));
    BlockDecoder decoder;
    PacketDelivery::Memory memory;
    PacketRun run;
    besideInPlace<Decoder>(state, input, [&](auto& events) {
        {
            PacketDelivery delivery(&dispatcher, unused, memory);
            decoder.decode(input.bytes(), 0, delivery);
        }
        received.dequeueAll(run);
        for (std::size_t i = 0; i < run.size(); ++i)
            decodeInto<Decoder>(events, run[i]);
        Keplin::putPacketBuffers(run);
    });
}
BENCHMARK_TEMPLATE(BM_BlocksToWords, Chip)->Arg(32)->Arg(1)->UseManualTime();
BENCHMARK_TEMPLATE(BM_BlocksToWords, Light)->Arg(32)->Arg(1)->UseManualTime();

template <class Decoder>
void BM_OneByOne(benchmark::State& state)
{
    std::thread([] {}).join();
    const Reads input(static_cast<std::uint32_t>(state.range(0)));
    PacketQueue received;
    PacketDispatcher dispatcher;
    dispatcher.setDispatchEntryEv32(moduleId, [&](PacketPtr packet) { received.enqueue(std::move(packet)); });
    besideInPlace<Decoder>(state, input, [&](auto& events) {
        PacketPtr current;
        std::uint32_t written = 0, missing = 0;
        for (std::size_t b = 0; b < input.blocks.size(); b += BlockWords) {
            for (std::uint32_t i = 1; i < BlockWords;) {
                const std::uint32_t* word = &input.blocks[b + i];
                if (missing == 0) {
                    if (*word == 0)
                        break;
                    current = Keplin::getEmptyPacketBuffer();
                    written = 0;
                    missing = wordsOfHeader(*word);
                }
                const std::uint32_t here = std::min(missing, BlockWords - i);
                std::memcpy(current->wire() + 4 * written, word, 4 * here);
                written += here;
                missing -= here;
                i += here;
                if (missing == 0) {
                    current->size = header::length.get(current->header) + 1;
                    dispatcher.dispatch(std::move(current));
                }
            }
        }
        while (auto packet = received.dequeue()) {
            decodeInto<Decoder>(events, **packet);
            Keplin::putPacketBuffer(std::move(*packet));
        }
    });
}
BENCHMARK_TEMPLATE(BM_OneByOne, Chip)->Arg(32)->Arg(1)->UseManualTime();
BENCHMARK_TEMPLATE(BM_OneByOne, Light)->Arg(32)->Arg(1)->UseManualTime();

void BM_Dispatch(benchmark::State& state)
{
    std::thread([] {}).join();
    constexpr int packets = 1000;
    PacketQueue queue;
    PacketDispatcher dispatcher;
    PacketPtr held;
    dispatcher.setDispatchEntryRaw(moduleId, [&](PacketPtr packet) { held = std::move(packet); });
    held = Keplin::getRawPacketBuffer(moduleId, HdrExtFmt::Command, PktFmt::Raw);
    std::mutex mutex;
    bench::sideBySide(
        state, packets,
        [&] {
            for (int i = 0; i < packets; ++i) {
                queue.enqueue(std::move(held));
                dispatcher.dispatch(std::move(*queue.dequeue()));
            }
        },
        [&] {
            for (int i = 0; i < 3 * packets; ++i) { // in, out, and the dispatcher's
                const std::lock_guard lock(mutex);
                benchmark::DoNotOptimize(held);
            }
        });
    state.counters["packets_per_second"] = 1e9 / state.counters["ns"];
    Keplin::putPacketBuffer(std::move(held));
}
BENCHMARK(BM_Dispatch)->UseManualTime();

/// A work of `threads` threads at a time.
template <class Work>
void onThreads(std::int64_t threads, const Work& work)
{
    std::vector<std::thread> others;
    for (std::int64_t i = 1; i < threads; ++i)
        others.emplace_back(work);
    work();
    for (std::thread& other : others)
        other.join();
}

void BM_Pool(benchmark::State& state)
{
    constexpr int rounds = 100'000;
    std::mutex mutex;
    bench::sideBySide(
        state, static_cast<double>(rounds * state.range(0)),
        [&] {
            onThreads(state.range(0), [] {
                for (int i = 0; i < rounds; ++i)
                    Keplin::putPacketBuffer(Keplin::getEmptyPacketBuffer());
            });
        },
        [&] {
            onThreads(state.range(0), [&] {
                for (int i = 0; i < 2 * rounds; ++i) {
                    const std::lock_guard lock(mutex);
                    benchmark::DoNotOptimize(i);
                }
            });
        });
}
BENCHMARK(BM_Pool)->Arg(1)->Arg(2)->UseManualTime();

} // namespace
