#include <thread>
#include <variant>

#include "NodeTesting.h"
#include "graph/nodes/EventTypeFilterNode.h"
#include "graph/nodes/LayerSelectNode.h"
#include "graph/nodes/SplittingNode.h"

namespace sample {

struct Spike {
    std::uint8_t layer = 0;
    friend bool operator==(const Spike&, const Spike&) = default;
};
struct Weight { // has a layer too, but is not selected by it
    std::uint8_t layer = 0;
    int value = 0;
    friend bool operator==(const Weight&, const Weight&) = default;
};
struct Readout {
    int value = 0;
    friend bool operator==(const Readout&, const Readout&) = default;
};
using Output = std::variant<Spike, Weight, Readout>;

} // namespace sample

template <>
struct trovi::RegisterImplementation<sample::Output> {
    static std::string registerName() { return "sample::Output"; }
};
template <>
inline constexpr bool graph::nodes::isSelectedByLayer<sample::Spike> = true;

namespace {

using namespace graph::nodes;
using namespace node_testing;
using namespace sample;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<Output> mixed = {Spike{1}, Weight{1, 5}, Spike{2}, Readout{3}, Spike{255}};

TEST(LayerSelect, KeepsEventsOfItsLayersOnly)
{
    const struct {
        std::vector<std::uint8_t> layers;
        std::vector<Output> kept;
    } rows[] = {
        {{}, {}},
        {{1}, {Spike{1}}},
        {{255, 1, 1}, {Spike{1}, Spike{255}}},
        {{0}, {}},
    };
    LayerSelectNode<Output> node;
    Bench<Output> bench(node);
    EXPECT_EQ(bench.applyOne({mixed}), mixed);
    for (const auto& row : rows) {
        node.setLayers(row.layers);
        EXPECT_EQ(bench.applyOne({mixed}), row.kept) << testing::PrintToString(row.layers);
        EXPECT_THAT(bench.applyOne({}), IsEmpty());
    }
    node.reset();
    EXPECT_EQ(bench.applyOne({mixed}), mixed) << "types without a layer too";
}

TEST(EventTypeFilter, KnowsItsTypes)
{
    EventTypeFilterNode<Output> node;
    EXPECT_THAT(node.getAvailableTypes(),
                ElementsAre("sample::Output", "sample::Spike", "sample::Weight", "sample::Readout"));
    EXPECT_EQ(node.getDesiredType(), "");
    node.setDesiredType("sample::Weight");
    EXPECT_EQ(errorOf([&] { node.setDesiredType("Weight"); }), "The desired type: \"Weight\" is unknown!");
    EXPECT_EQ(node.getDesiredType(), "sample::Weight");
    node.setDesiredType("sample::Output");
    EXPECT_EQ(node.getDesiredType(), "") << "the first reads back as empty";
}

TEST(EventTypeFilter, ServesTheVariantAndTheTypeItself)
{
    EventTypeFilterNode<Output> node;
    Bench<Output> whole(node);
    BatchSink<Spike> spikes;
    BatchSink<Readout> readouts;
    ASSERT_TRUE(node.connectTo(spikes));
    ASSERT_TRUE(node.addDestination(readouts.getInput()));

    EXPECT_THAT(whole.apply({mixed}), IsEmpty()) << "without a type, events wait";
    node.setDesiredType("sample::Spike");
    const std::vector<Output> asOutput = {Spike{1}, Spike{2}, Spike{255}};
    EXPECT_EQ(whole.applyOne({}), asOutput);
    const auto asSpikes = spikes.batches();
    ASSERT_THAT(asSpikes, testing::SizeIs(1));
    EXPECT_THAT(*asSpikes[0], ElementsAre(Spike{1}, Spike{2}, Spike{255}));
    EXPECT_THAT(readouts.batches(), IsEmpty());

    EXPECT_THAT(whole.apply({}), IsEmpty()) << "no empty batch";
    EXPECT_THAT(whole.apply({{Weight{}}}), IsEmpty());
    node.setDesiredType("sample::Output");
    EXPECT_EQ(whole.applyOne({mixed}), mixed);
    EXPECT_THAT(whole.apply({}), IsEmpty());
    EXPECT_THAT(spikes.batches(), IsEmpty());
}

TEST(EventTypeFilter, JudgesABatchByTheTypeThatWasSetBeforeItWasSent)
{
    EventTypeFilterNode<Output> node;
    Bench<Output> bench(node);
    node.setDesiredType("sample::Spike");
    const std::jthread graph([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            node.apply();
    });
    const struct {
        const char* type;
        Output kept;
    } rows[] = {{"sample::Spike", Spike{1}}, {"sample::Readout", Readout{3}}};
    for (int round = 0; round < 2'000; ++round) {
        const auto& row = rows[round % 2];
        node.setDesiredType(row.type);
        bench.source.write({Spike{1}, Readout{3}});
        std::vector<Batch<Output>> batches;
        while (batches.empty()) {
            batches = bench.sink.batches();
            std::this_thread::yield();
        }
        ASSERT_THAT(*batches[0], ElementsAre(row.kept)) << round;
    }
}

TEST(EventTypeFilter, TakesADestinationOnce)
{
    EventTypeFilterNode<Output> node;
    BatchSink<Spike> spikes;
    BatchSink<int> others;
    EXPECT_FALSE(node.connectTo(others));
    EXPECT_FALSE(node.addDestination(nullptr));
    EXPECT_TRUE(node.connectTo(spikes));
    EXPECT_FALSE(node.connectTo(spikes));
    EXPECT_TRUE(node.disconnectFrom(spikes));
    EXPECT_FALSE(node.disconnectFrom(spikes));
    EXPECT_TRUE(node.connectTo(spikes));
    node.setDesiredType("sample::Spike");
    { // a destination that dies leaves room for no other, and harms none
        BatchSink<Spike> dying;
        EXPECT_TRUE(node.connectTo(dying));
    }
    Bench<Output> bench(node);
    bench.apply({mixed});
    bench.apply({mixed});
    EXPECT_THAT(spikes.batches(), testing::SizeIs(2));
}

TEST(Splitting, GivesEachDestinationWhatItsFunctionYields)
{
    struct Splitter : SplittingNode<int> {
        Splitter()
        {
            callables["all"] = [](const auto& batch) { return batch; };
            callables["count"] = [](const auto& batch) {
                return std::make_shared<std::vector<int>>(1, static_cast<int>(batch->size()));
            };
        }
    } node;
    BasicSourceNode<int> source;
    BatchSink<int> all, count, nameless;
    BatchSink<char> otherType;
    ASSERT_TRUE(source.connectTo(node));
    EXPECT_TRUE(node.addDestination("all", all.getInput()));
    EXPECT_TRUE(node.addDestination("count", count.getInput()));
    EXPECT_FALSE(node.addDestination("none", count.getInput()));
    EXPECT_FALSE(node.addDestination("all", otherType.getInput()));
    EXPECT_FALSE(node.addDestination("all", inputOfDeadNode<BatchSink<int>>()));
    EXPECT_THAT(errorOf([&] { node.addDestination("none", trovi::BoxedPtr()); }), testing::HasSubstr("BoxedPtr"));
    EXPECT_TRUE(node.connectTo(nameless));

    source.write({1, 2});
    source.write({3});
    node.apply();
    const auto seen = all.batches(), counted = count.batches();
    ASSERT_THAT(seen, testing::SizeIs(1));
    EXPECT_THAT(*seen[0], ElementsAre(1, 2, 3));
    ASSERT_THAT(counted, testing::SizeIs(1));
    EXPECT_THAT(*counted[0], ElementsAre(3));
    EXPECT_THAT(nameless.batches(), IsEmpty());

    EXPECT_TRUE(node.removeDestination(all.getInput()));
    EXPECT_FALSE(node.removeDestination(all.getInput()));
    node.apply();
    EXPECT_THAT(all.batches(), IsEmpty());
    EXPECT_THAT(count.batches(), testing::SizeIs(1)) << "what its function makes of no events";
}

TEST(Splitting, HasNoFunctionsOfItsOwn)
{
    SplittingNode<int> node;
    BatchSink<int> sink;
    EXPECT_FALSE(node.addDestination("", sink.getInput()));
}

TEST(VariantFilters, AreDescribed)
{
    EXPECT_EQ(trovi::registeredName<LayerSelectNode<Output>>(), "graph::nodes::LayerSelect_sample_output");
    EXPECT_EQ(trovi::registeredName<EventTypeFilterNode<Output>>(), "graph::nodes::EventTypeFilter_sample_output");
    EXPECT_EQ(trovi::registeredName<SplittingNode<Output>>(), "SplittingNode_sample_output");
    EXPECT_THAT(functionNames<LayerSelectNode<Output>>(),
                ElementsAre("setLayers", "reset", "getInputChannel", "addDestination", "removeDestination"));
    EXPECT_THAT(functionNames<EventTypeFilterNode<Output>>(),
                ElementsAre("setDesiredType", "getDesiredType", "getAvailableTypes", "getInputChannel",
                            "addDestination", "removeDestination"));
    EXPECT_THAT(functionNames<SplittingNode<Output>>(),
                ElementsAre("addDestination", "removeDestination", "getInputChannel"));
}

} // namespace
