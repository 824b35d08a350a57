// What a model's thread costs: while nothing happens, and for each batch of 1,000 events on its way to the device and
// from it. The floor is a bare channel between two threads that carries the same batches.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "../SideBySide.h"
#include "graph/nodes/BasicSourceNode.h"
#include "graph/nodes/SinkNode.h"
#include "tessel/Model.h"

namespace {

using tessel::event::InputEvent;
using tessel::event::OutputEvent;

constexpr std::size_t eventsInABatch = 1000, batchCount = 2000;

/// What the model's thread has used of a processor, in seconds.
double threadSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Counts what is written, and says what it was given.
class Device : public tessel::TesselDeviceAPIInterface {
public:
    struct Counters {
        std::atomic<std::size_t> written = 0; // events
        std::atomic<bool> measures = false;
        std::atomic<double> cpuSeconds = 0; // of the model's thread, at its last read
        std::atomic<std::uint64_t> turns = 0;
        std::vector<std::vector<OutputEvent>> toSay; // in reverse; given before `mayRead` is set
        std::atomic<bool> mayRead = false;
    };
    explicit Device(std::shared_ptr<Counters> shared) : counters(std::move(shared)) {}

    std::vector<OutputEvent> read() override
    {
        if (counters->measures) // a system call
            counters->cpuSeconds = threadSeconds();
        ++counters->turns;
        if (!counters->mayRead || counters->toSay.empty())
            return {};
        std::vector<OutputEvent> events = std::move(counters->toSay.back());
        counters->toSay.pop_back();
        return events;
    }
    void write(const std::vector<InputEvent>& events) override { counters->written += events.size(); }

private:
    const std::shared_ptr<Counters> counters;
};

struct Rig {
    std::shared_ptr<Device::Counters> counters = std::make_shared<Device::Counters>();
    tessel::TesselModel model{std::make_unique<Device>(counters)};
};

template <class Event>
std::vector<std::vector<Event>> batchesOf(std::size_t count)
{
    std::vector<std::vector<Event>> batches(count);
    for (auto& batch : batches)
        batch.assign(eventsInABatch, Event(tessel::event::Spike{1, 2, 3, 4, 5}));
    return batches;
}

template <class Event>
struct Sink : graph::nodes::SinkNode<graph::nodes::Batch<Event>> {
    std::size_t receive(std::size_t batches)
    {
        std::size_t events = 0;
        graph::nodes::Batch<Event> batch;
        for (; batches > 0; --batches) {
            this->inputChannel->wait_dequeue(batch);
            events += batch->size();
        }
        return events;
    }
};

/// Sends the batches from this thread to another one's channel.
template <class Event>
void sendOverBareChannel(std::vector<std::vector<Event>>& batches)
{
    Sink<Event> sink;
    graph::nodes::BasicSourceNode<Event> source;
    source.connectTo(sink);
    std::thread reader([&] { benchmark::DoNotOptimize(sink.receive(batches.size())); });
    for (auto& batch : batches)
        source.write(std::move(batch));
    reader.join();
}

void toTheDevice(benchmark::State& state)
{
    Rig rig;
    graph::nodes::BasicSourceNode<InputEvent> source;
    source.connectTo(rig.model.getSinkNode());
    double best = 1e9, bestFloor = 1e9;
    for (auto _ : state) {
        auto floorBatches = batchesOf<InputEvent>(batchCount);
        bestFloor = std::min(bestFloor, bench::secondsOf([&] { sendOverBareChannel(floorBatches); }));
        auto batches = batchesOf<InputEvent>(batchCount);
        const std::size_t until = rig.counters->written + batchCount * eventsInABatch;
        const double seconds = bench::secondsOf([&] {
            for (auto& batch : batches)
                source.write(std::move(batch));
            while (rig.counters->written < until)
                std::this_thread::yield();
        });
        best = std::min(best, seconds);
        state.SetIterationTime(seconds);
    }
    state.counters["us_a_batch"] = best / batchCount * 1e6;
    state.counters["floor_us"] = bestFloor / batchCount * 1e6;
    state.counters["ratio"] = best / bestFloor;
}
BENCHMARK(toTheDevice)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// A turn that reads waits for the sink first: here the sink always has something, as when a chip runs loaded both ways.
void bothWays(benchmark::State& state)
{
    double best = 1e9, bestFloor = 1e9;
    for (auto _ : state) {
        Rig rig;
        graph::nodes::BasicSourceNode<InputEvent> source;
        source.connectTo(rig.model.getSinkNode());
        Sink<OutputEvent> sink;
        rig.model.getSourceNode().connectTo(sink);
        rig.counters->toSay = batchesOf<OutputEvent>(batchCount);
        auto batches = batchesOf<InputEvent>(batchCount);
        const double seconds = bench::secondsOf([&] {
            rig.counters->mayRead = true;
            for (auto& batch : batches)
                source.write(std::move(batch));
            benchmark::DoNotOptimize(sink.receive(batchCount));
        });
        auto in = batchesOf<InputEvent>(batchCount);
        auto out = batchesOf<OutputEvent>(batchCount);
        bestFloor = std::min(bestFloor, bench::secondsOf([&] {
                                 sendOverBareChannel(in);
                                 sendOverBareChannel(out);
                             }));
        best = std::min(best, seconds);
        state.SetIterationTime(seconds);
    }
    state.counters["us_a_batch"] = best / batchCount * 1e6;
    state.counters["floor_us"] = bestFloor / batchCount * 1e6;
    state.counters["ratio"] = best / bestFloor;
}
BENCHMARK(bothWays)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// "percent_of_core": what a model with nothing to do uses of one processor.
void idle(benchmark::State& state)
{
    Rig rig;
    rig.counters->measures = true;
    const auto awaitTurn = [&] {
        for (const auto turns = rig.counters->turns.load(); rig.counters->turns == turns;)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    awaitTurn();
    awaitTurn();
    const double cpuAtStart = rig.counters->cpuSeconds;
    const auto turnsAtStart = rig.counters->turns.load();
    double seconds = 0;
    for (auto _ : state)
        seconds += bench::secondsOf([&] {
            std::this_thread::sleep_for(std::chrono::seconds(2));
            awaitTurn();
        });
    state.counters["percent_of_core"] = 100 * (rig.counters->cpuSeconds - cpuAtStart) / seconds;
    state.counters["turns_a_second"] = static_cast<double>(rig.counters->turns - turnsAtStart) / seconds;
}
BENCHMARK(idle)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
