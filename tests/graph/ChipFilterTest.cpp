// The filters over chip events, by their names in the table. Both families come from one text, so most tests take one.

#include <algorithm>
#include <array>
#include <thread>

#include "NodeTesting.h"
#include "davis/event/DvsEvent.h"
#include "graph/EventFilterNodeFactory.h"
#include "graph/nodes/ChipNodes.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using namespace tessel::event;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::unique_ptr<ondra::NodeInterface> built(const std::string& name)
{
    return graph::EventFilterNodeFactory::getInstance().buildEventFilterNode(name);
}

template <class Output>
void expectSelection(const std::string& name)
{
    constexpr std::array layersOfEvents = {3, 4, 255};
    std::vector<Output> all; // every kind, on these layers if it has any
    trovi::staticFor<std::variant_size_v<Output>>([&](auto kind) {
        for (const int layer : layersOfEvents) {
            std::variant_alternative_t<kind, Output> event{};
            if constexpr (requires { event.layer; })
                event.layer = static_cast<std::uint8_t>(layer);
            all.push_back(event);
        }
    });
    const auto node = built(name);
    auto& select = dynamic_cast<LayerSelectNode<Output>&>(*node);
    Bench<Output> bench(select);
    EXPECT_EQ(bench.applyOne({all}), all) << "until layers are set, also those without one";
    const std::vector<std::size_t> kinds = {0, 1, 6, 7, 8}; // Spike, Dvs, Register, Memory, Bist
    for (const auto& layers : std::vector<std::vector<std::uint8_t>>{{3}, {255, 4, 4}, {0}, {}}) {
        std::vector<Output> kept;
        for (std::size_t i = 0; i < all.size(); ++i)
            if (std::ranges::count(kinds, i / 3) > 0 && std::ranges::count(layers, layersOfEvents[i % 3]) > 0)
                kept.push_back(all[i]);
        select.setLayers(layers);
        EXPECT_EQ(bench.applyOne({all}), kept) << testing::PrintToString(layers);
        EXPECT_THAT(bench.applyOne({}), IsEmpty());
    }
    select.reset();
    EXPECT_EQ(bench.applyOne({all}), all);
}

TEST(LayerSelect, KeepsTheKindsThatHaveALayer)
{
    expectSelection<tessel::event::OutputEvent>("TesselLayerSelect");
    expectSelection<ravik::event::OutputEvent>("RavikLayerSelect");
}

TEST(EventTypeFilter, ServesTheVariantAndTheTypeItself)
{
    EventTypeFilterNode<OutputEvent> node;
    Bench<OutputEvent> whole(node);
    BatchSink<Spike> spikes;
    BatchSink<ReadoutValue> readouts;
    ASSERT_TRUE(node.connectTo(spikes));
    ASSERT_TRUE(node.addDestination(readouts.getInput()));

    const std::vector<OutputEvent> mixed = {Spike{1}, DvsEvent{}, Spike{2}, ReadoutValue{}};
    EXPECT_EQ(node.getDesiredType(), "");
    EXPECT_THAT(whole.apply({mixed}), IsEmpty()) << "without a type, events wait";
    node.setDesiredType("tessel::event::Spike");
    EXPECT_EQ(errorOf([&] { node.setDesiredType("ravik::event::Spike"); }),
              "The desired type: \"ravik::event::Spike\" is unknown!");
    EXPECT_EQ(node.getDesiredType(), "tessel::event::Spike");
    EXPECT_EQ(whole.applyOne({}), (std::vector<OutputEvent>{Spike{1}, Spike{2}}));
    const auto asSpikes = spikes.batches();
    ASSERT_THAT(asSpikes, SizeIs(1));
    EXPECT_THAT(*asSpikes[0], ElementsAre(Spike{1}, Spike{2}));

    EXPECT_THAT(whole.apply({}), IsEmpty()) << "no empty batch";
    EXPECT_THAT(whole.apply({{DvsEvent{}}}), IsEmpty());
    node.setDesiredType("tessel::event::OutputEvent");
    EXPECT_EQ(node.getDesiredType(), "") << "the first reads back as empty";
    EXPECT_EQ(whole.applyOne({mixed}), mixed);
    EXPECT_THAT(whole.apply({}), IsEmpty());
    EXPECT_THAT(spikes.batches(), IsEmpty());
    EXPECT_THAT(readouts.batches(), IsEmpty());
}

TEST(EventTypeFilter, ChecksABatchAgainstTheTypeThatWasSetBeforeItWasSent)
{
    EventTypeFilterNode<OutputEvent> node;
    Bench<OutputEvent> bench(node);
    const std::jthread graph([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            node.apply();
    });
    const OutputEvent kinds[] = {Spike{1}, ReadoutValue{}};
    for (std::size_t round = 0; round < 500; ++round) {
        node.setDesiredType(round % 2 ? "tessel::event::ReadoutValue" : "tessel::event::Spike");
        bench.source.write({kinds[0], kinds[1]});
        std::vector<Batch<OutputEvent>> batches;
        while (batches.empty()) {
            batches = bench.sink.batches();
            std::this_thread::yield();
        }
        ASSERT_THAT(*batches[0], ElementsAre(kinds[round % 2])) << round;
    }
}

TEST(EventTypeFilter, TakesADestinationOnce)
{
    EventTypeFilterNode<OutputEvent> node;
    BatchSink<Spike> spikes;
    BatchSink<int> others;
    EXPECT_FALSE(node.connectTo(others));
    EXPECT_FALSE(node.addDestination(nullptr));
    EXPECT_FALSE(node.disconnectFrom(spikes));
    EXPECT_TRUE(node.connectTo(spikes));
    EXPECT_FALSE(node.connectTo(spikes));
    EXPECT_TRUE(node.disconnectFrom(spikes));
    EXPECT_TRUE(node.connectTo(spikes));
    node.setDesiredType("tessel::event::Spike");
    { // a destination that dies leaves room for no other, and harms none
        BatchSink<Spike> dying;
        EXPECT_TRUE(node.connectTo(dying));
    }
    Bench<OutputEvent> bench(node);
    bench.apply({{Spike{}}});
    bench.apply({{Spike{}}});
    EXPECT_THAT(spikes.batches(), SizeIs(2));
}

template <class Input, class Router>
void expectConversion(const std::string& family)
{
    using Camera = davis::event::DvsEvent;
    const auto whole = built("DavisTo" + family + "Input"), middle = built("Davis346Center128To" + family + "Input");
    EXPECT_THAT((Bench<Camera, Input>(*whole).applyOne({{{300, 5, true, 1}, {255, 256}}})),
                ElementsAre(Input(Router{13, 1, 5, 44}), Input(Router{13, 0, 0, 255})));
    EXPECT_THAT((Bench<Camera, Input>(*middle).applyOne(
                    {{{109, 66}, {110, 66}, {237, 193, true, 0}, {238, 193}, {110, 194}, {110, 65}}})),
                ElementsAre(Input(Router{13, 0, 0, 0}), Input(Router{13, 1, 127, 127})));
}

TEST(CameraConverters, MakeRouterEvents)
{
    expectConversion<tessel::event::InputEvent, tessel::event::RouterEvent>("Tessel");
    expectConversion<ravik::event::InputEvent, ravik::event::RouterEvent>("Ravik");
}

} // namespace
