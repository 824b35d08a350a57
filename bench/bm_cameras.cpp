// What an event costs on its way in: from a camera's words, from an EVT 3.0 stream, from a file, from the synthetic
// scene, and through a virtual camera into a channel that is read at once. The floor is a copy of the same events in
// memory, into a new vector as those are.

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <span>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "SideBySide.h"
#include "davis/Davis240.h"
#include "davis/event/PolarityWord.h"
#include "davis/recording/Evt3Decoder.h"
#include "davis/recording/Writer.h"
#include "emulation/cameras/Scene.h"
#include "emulation/cameras/VirtualCamera.h"
#include "graph/nodes/Batch.h"
#include "ondra/SinkInterface.h"

namespace {

using davis::event::DvsEvent;

std::vector<DvsEvent> sceneEvents(std::size_t count)
{
    emulation::SceneOptions options;
    options.width = 640;
    options.height = 480;
    options.eventsPerSecond = 1e6;
    emulation::Scene scene(options);
    std::vector<DvsEvent> events;
    std::vector<DvsEvent> batch;
    while (events.size() < count) {
        scene.next(batch);
        events.insert(events.end(), batch.begin(), batch.end());
    }
    events.resize(count);
    return events;
}

template <class Word>
void put(std::vector<std::byte>& bytes, Word word)
{
    bytes.resize(bytes.size() + sizeof word);
    std::memcpy(bytes.data() + bytes.size() - sizeof word, &word, sizeof word);
}

std::vector<std::byte> polarityWords(const std::vector<DvsEvent>& events)
{
    std::vector<std::byte> bytes;
    for (const DvsEvent& event : events) {
        put(bytes, davis::event::dataWord(event));
        put(bytes, static_cast<std::uint32_t>(event.timestamp));
    }
    return bytes;
}

/// As a camera sends it: a word for each part that changed.
std::vector<std::byte> evt3Words(const std::vector<DvsEvent>& events)
{
    std::vector<std::byte> bytes;
    std::int64_t time = -1;
    int row = -1;
    for (const DvsEvent& event : events) {
        if (event.timestamp >> 12 != time >> 12)
            put(bytes, static_cast<std::uint16_t>(0x8000 | event.timestamp >> 12));
        if (event.timestamp != time)
            put(bytes, static_cast<std::uint16_t>(0x6000 | (event.timestamp & 0xFFF)));
        if (event.y != row)
            put(bytes, event.y);
        put(bytes, static_cast<std::uint16_t>(0x2000 | (event.polarity ? 0x800 : 0) | event.x));
        time = event.timestamp;
        row = event.y;
    }
    return bytes;
}

/// Subject and floor in turn; both fill a new vector, as each read of a camera does.
template <class Work>
void againstCopy(benchmark::State& state, const std::vector<DvsEvent>& events, Work work)
{
    bench::sideBySide(
        state, static_cast<double>(events.size()),
        [&] {
            std::vector<DvsEvent> made;
            work(made);
            benchmark::DoNotOptimize(made.data());
        },
        [&] {
            std::vector<DvsEvent> made(events);
            benchmark::DoNotOptimize(made.data());
        });
}

void conversion(benchmark::State& state)
{
    const auto events = sceneEvents(static_cast<std::size_t>(state.range(0)));
    const auto words = polarityWords(events);
    againstCopy(state, events, [&](std::vector<DvsEvent>& made) { davis::event::appendEvents(words, made); });
}
BENCHMARK(conversion)->Arg(1'000)->Arg(10'000)->Arg(100'000)->UseManualTime();

void evt3Decoding(benchmark::State& state)
{
    const auto events = sceneEvents(static_cast<std::size_t>(state.range(0)));
    const auto words = evt3Words(events);
    againstCopy(state, events, [&, decoder = davis::recording::Evt3Decoder()](std::vector<DvsEvent>& made) mutable {
        made.reserve(events.size());
        decoder.decode(words, made);
    });
    state.counters["words"] = static_cast<double>(words.size() / 2) / static_cast<double>(events.size());
}
BENCHMARK(evt3Decoding)->Arg(10'000)->Arg(100'000)->UseManualTime();

void readingAFile(benchmark::State& state, davis::recording::Format format, const char* name)
{
    const auto path = std::filesystem::temp_directory_path() / (std::to_string(getpid()) + name);
    const auto events = sceneEvents(1'000'000);
    davis::recording::writeAll(path, format, events);
    againstCopy(state, events, [&](std::vector<DvsEvent>& made) { made = davis::recording::readAll(path).events; });
    std::filesystem::remove(path);
}
BENCHMARK_CAPTURE(readingAFile, polarity, davis::recording::Format::polarity, ".polarity")->UseManualTime();
BENCHMARK_CAPTURE(readingAFile, aedat31, davis::recording::Format::aedat31, ".aedat")->UseManualTime();

void scene(benchmark::State& state)
{
    const auto events = sceneEvents(100'000);
    againstCopy(state, events, [&](std::vector<DvsEvent>& made) { made = sceneEvents(100'000); });
}
BENCHMARK(scene)->UseManualTime();

class Sink : public ondra::SinkInterface<graph::nodes::Batch<DvsEvent>> {
public:
    void take(std::vector<DvsEvent>& events)
    {
        graph::nodes::Batch<DvsEvent> batch;
        constexpr std::int64_t waitUs = 10'000;
        if (inputChannel->wait_dequeue_timed(batch, waitUs))
            events.insert(events.end(), batch->begin(), batch->end());
    }
};

void throughACamera(benchmark::State& state)
{
    const auto path = std::filesystem::temp_directory_path() / (std::to_string(getpid()) + ".polarity");
    const auto events = sceneEvents(1'000'000);
    davis::recording::writeAll(path, davis::recording::Format::polarity, events);
    emulation::ReplayOptions options;
    options.realtime = false;
    options.loop = true;
    const auto plugged = emulation::plugVirtualDavisRecording(path.string(), options);
    davis::Davis240 camera;
    Sink sink;
    camera.getSourceNode().connectTo(sink);
    againstCopy(state, events, [&](std::vector<DvsEvent>& made) {
        made.reserve(events.size() + 100'000);
        camera.start();
        while (made.size() < events.size())
            sink.take(made);
        camera.stop();
    });
    plugged->unplug();
    std::filesystem::remove(path);
}
BENCHMARK(throughACamera)->UseManualTime();

} // namespace
