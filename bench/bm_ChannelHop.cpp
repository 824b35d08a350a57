// What it costs to pass a batch from one node to the next, compared with the bare queue.
//
// BM_Pointer: the same batch again and again. A node adds the lock of a weak pointer, since the destination may be
// gone: two changes of a count, as many as the queue itself needs. BM_Batch: a new batch each time, through the nodes
// that users have. Argument: events per batch.

#include <memory>
#include <thread>
#include <vector>

#include "SideBySide.h"
#include "davis/event/DvsEvent.h"
#include "graph/nodes/BasicSourceNode.h"
#include "graph/nodes/EventCounterSink.h"
#include "ondra/SinkInterface.h"
#include "ondra/SourceInterface.h"

namespace {

using davis::event::DvsEvent;
using Batch = std::shared_ptr<std::vector<DvsEvent>>;

constexpr int hops = 1000; // in a round

struct BareQueue {
    void hop()
    {
        queue.enqueue(batch);
        Batch arrived;
        queue.try_dequeue(arrived);
        benchmark::DoNotOptimize(arrived);
    }
    moodycamel::BlockingConcurrentQueue<Batch> queue;
    Batch batch = std::make_shared<std::vector<DvsEvent>>(1);
};

struct Source : ondra::SourceInterface<Batch> {
    using SourceInterface::forwardResult;
};
struct Sink : ondra::SinkInterface<Batch> {
    using SinkInterface::inputChannel;
};

void BM_Pointer(benchmark::State& state)
{
    std::thread([] {}).join(); // from here on reference counts are atomic, as wherever a graph has its thread
    BareQueue bare;
    Source source;
    Sink sink;
    source.connectTo(sink);
    bench::sideBySide(
        state, hops,
        [&] {
            for (int i = 0; i < hops; ++i) {
                source.forwardResult(Batch(bare.batch));
                Batch arrived;
                sink.inputChannel->try_dequeue(arrived);
                benchmark::DoNotOptimize(arrived);
            }
        },
        [&] {
            for (int i = 0; i < hops; ++i)
                bare.hop();
        });
}
BENCHMARK(BM_Pointer)->UseManualTime();

void BM_Batch(benchmark::State& state)
{
    std::thread([] {}).join();
    const std::vector<DvsEvent> events(static_cast<std::size_t>(state.range(0)));
    BareQueue bare;
    graph::nodes::BasicSourceNode<DvsEvent> source;
    graph::nodes::EventCounterSink<DvsEvent> sink;
    source.connectTo(sink);
    bench::sideBySide(
        state, hops,
        [&] {
            for (int i = 0; i < hops; ++i) {
                source.write(events);
                sink.apply();
            }
        },
        [&] {
            std::size_t count = 0;
            for (int i = 0; i < hops; ++i) {
                bare.queue.enqueue(std::make_shared<std::vector<DvsEvent>>(events));
                Batch arrived;
                bare.queue.try_dequeue(arrived);
                count += arrived->size();
            }
            benchmark::DoNotOptimize(count);
        });
}
BENCHMARK(BM_Batch)->Arg(10)->Arg(1'000)->UseManualTime();

} // namespace
