// A graph that crops, decimates, rescales and counts, next to one loop written by hand for just that. Half of the
// events lie in the region, at random, so that a branch on it would be mispredicted every other time.
//
// BM_Pipeline: one batch per pass. BM_SourceRunsAhead: 16 batches wait at each pass; its floor is the graph itself with
// one batch per pass. Argument: events per batch. BM_Node: each filter alone, its floor a copy of what it keeps.

#include <any>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "SideBySide.h"
#include "davis/event/DvsEvent.h"
#include "graph/EventFilterGraph.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"

namespace {

using davis::event::DvsEvent;
using namespace graph::nodes;
using Events = std::vector<DvsEvent>;

constexpr int xtl = 53, ytl = 40, xbr = 292, ybr = 219; // 240 by 180 of 346 by 260
constexpr std::uint64_t ratio = 2;
constexpr double divideX = 1.875, divideY = 1.40625; // to 128 by 128

Batch<DvsEvent> randomBatch(std::int64_t size)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<int> column(0, 345), row(0, 259), coin(0, 1);
    auto batch = std::make_shared<Events>(static_cast<std::size_t>(size));
    std::int64_t time = 0;
    for (auto& event : *batch)
        event = {static_cast<std::uint16_t>(column(random)), static_cast<std::uint16_t>(row(random)), coin(random) == 1,
                 time++};
    return batch;
}

auto channelOf(const ondra::NodeInterface& node)
{
    return std::any_cast<const std::weak_ptr<ondra::Channel<Batch<DvsEvent>>>&>(*node.getInputChannel()).lock();
}

struct Pipeline {
    Pipeline()
    {
        auto crop = std::make_shared<EventCropNode<DvsEvent>>();
        auto decimate = std::make_shared<EventDecimateNode<DvsEvent>>();
        auto rescale = std::make_shared<EventRescaleNode<DvsEvent>>();
        crop->setROI(xtl, ytl, xbr, ybr);
        decimate->setDecimationFraction(ratio, 1);
        rescale->setRescalingCoefficients(divideY, divideX);
        input = channelOf(*crop);
        graph.add(0, crop);
        graph.add(1, decimate);
        graph.add(2, rescale);
        graph.add(3, sink);
        for (std::uint64_t id = 0; id < 3; ++id)
            graph.connect(id, id + 1);
    }

    std::uint64_t run(const Batch<DvsEvent>& batch, int batches = 1)
    {
        for (int i = 0; i < batches; ++i)
            input->enqueue(batch);
        graph.compute();
        return sink->getCount();
    }

    ondra::Graph graph;
    std::shared_ptr<ondra::Channel<Batch<DvsEvent>>> input;
    std::shared_ptr<EventCounterSink<DvsEvent>> sink = std::make_shared<EventCounterSink<DvsEvent>>();
};

// The same by hand, into a vector that is there already. The coordinates are divided in a second loop over what is
// kept: dividing those of every event in the first takes longer.
struct Fused {
    std::uint64_t run(const Events& events)
    {
        out.resize(std::max(out.size(), events.size()));
        std::size_t kept = 0;
        for (const DvsEvent& event : events) {
            const unsigned x = event.x - static_cast<unsigned>(xtl), y = event.y - static_cast<unsigned>(ytl);
            const bool inside = (x <= xbr - xtl) & (y <= ybr - ytl);
            out[kept] = {static_cast<std::uint16_t>(x), static_cast<std::uint16_t>(y), event.polarity, event.timestamp};
            kept += inside & (phase == 0);
            phase += inside;
            phase &= -static_cast<std::uint64_t>(phase != ratio); // a conditional becomes a branch
        }
        for (std::size_t i = 0; i < kept; ++i) {
            out[i].x = static_cast<std::uint16_t>(static_cast<int>(out[i].x / divideX));
            out[i].y = static_cast<std::uint16_t>(static_cast<int>(out[i].y / divideY));
        }
        benchmark::ClobberMemory();
        return kept;
    }

    Events out;
    std::uint64_t phase = 0;
};

void BM_Pipeline(benchmark::State& state)
{
    const auto batch = randomBatch(state.range(0));
    Pipeline pipeline;
    Fused fused;
    if (pipeline.run(batch) != fused.run(*batch))
        state.SkipWithError("the two do not keep the same events");
    bench::sideBySide(
        state, static_cast<double>(state.range(0)), [&] { benchmark::DoNotOptimize(pipeline.run(batch)); },
        [&] { benchmark::DoNotOptimize(fused.run(*batch)); });
}

void BM_SourceRunsAhead(benchmark::State& state)
{
    constexpr int batches = 16;
    const auto batch = randomBatch(state.range(0));
    Pipeline ahead, steady;
    bench::sideBySide(
        state, static_cast<double>(batches * state.range(0)),
        [&] { benchmark::DoNotOptimize(ahead.run(batch, batches)); },
        [&] {
            for (int i = 0; i < batches; ++i)
                benchmark::DoNotOptimize(steady.run(batch));
        });
}

template <class Node>
void BM_Node(benchmark::State& state)
{
    const auto batch = randomBatch(state.range(0));
    Node node;
    EventCounterSink<DvsEvent> sink;
    if constexpr (std::is_same_v<Node, EventCropNode<DvsEvent>>)
        node.setROI(xtl, ytl, xbr, ybr);
    else if constexpr (std::is_same_v<Node, EventDecimateNode<DvsEvent>>)
        node.setDecimationFraction(ratio, 1);
    else
        node.setRescalingCoefficients(divideY, divideX);
    node.connectTo(sink);
    const auto input = channelOf(node);
    input->enqueue(batch);
    node.apply();
    const auto kept = static_cast<std::ptrdiff_t>(sink.getCount());
    bench::sideBySide(
        state, static_cast<double>(state.range(0)),
        [&] {
            input->enqueue(batch);
            node.apply();
            benchmark::DoNotOptimize(sink.getCount());
        },
        [&] { benchmark::DoNotOptimize(Events(batch->begin(), batch->begin() + kept)); });
}

#define SIZES ->Arg(1'000)->Arg(10'000)->Arg(100'000)->UseManualTime()
BENCHMARK(BM_Pipeline) SIZES;
BENCHMARK(BM_SourceRunsAhead) SIZES;
BENCHMARK(BM_Node<EventCropNode<DvsEvent>>) SIZES;
BENCHMARK(BM_Node<EventDecimateNode<DvsEvent>>) SIZES;
BENCHMARK(BM_Node<EventRescaleNode<DvsEvent>>) SIZES;

} // namespace
