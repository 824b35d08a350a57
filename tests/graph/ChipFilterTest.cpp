// The nodes over chip events, by their names in the table; typed over both families.

#include "graph/nodes/ChipNodes.h"

#include <gmock/gmock.h>

#include "NodeTesting.h"
#include "graph/EventFilterGraph.h"
#include "graph/EventFilterNodeFactory.h"
#include "graph/nodes/BufferSinkNode.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/SplittingNode.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using graph::EventFilterGraph;
using graph::EventFilterNodeFactory;
using testing::ElementsAre;

#define FAMILY_OF(Title, family)                                    \
    struct Title {                                                  \
        using Input = family::event::InputEvent;                    \
        using Output = family::event::OutputEvent;                  \
        using Spike = family::event::Spike;                         \
        using Dvs = family::event::DvsEvent;                        \
        using Interface = family::event::InputInterfaceEvent;       \
        using Neuron = family::event::NeuronValue;                  \
        using Register = family::event::RegisterValue;              \
        using Memory = family::event::MemoryValue;                  \
        using Bist = family::event::BistValue;                      \
        using Probe = family::event::ProbeValue;                    \
        using Router = family::event::RouterEvent;                  \
        static std::string title() { return #Title; }               \
        static std::string prefix() { return #family "::event::"; } \
        static std::string snake() { return #family "_event_"; }    \
    };
FAMILY_OF(Tessel, tessel)
FAMILY_OF(Ravik, ravik)
#undef FAMILY_OF

template <class Family>
class ChipNodes : public testing::Test {};
using Families = testing::Types<Tessel, Ravik>;
TYPED_TEST_SUITE(ChipNodes, Families);

std::unique_ptr<ondra::NodeInterface> built(const std::string& name)
{
    const EventFilterGraph registers; // the table, if nobody did yet
    auto node = EventFilterNodeFactory::getInstance().buildEventFilterNode(name);
    if (!node)
        throw std::runtime_error(name);
    return node;
}

TYPED_TEST(ChipNodes, SelectTheKindsThatHaveALayer)
{
    using F = TypeParam;
    using Output = typename F::Output;
    const auto node = built(F::title() + "LayerSelect");
    auto& select = dynamic_cast<LayerSelectNode<Output>&>(*node);
    typename F::Register ofRegister{};
    ofRegister.layer = 3;
    typename F::Memory ofMemory{};
    ofMemory.layer = 3;
    typename F::Bist ofBist{};
    ofBist.layer = 3;
    typename F::Dvs dvs{};
    dvs.layer = 9;
    const typename F::Spike on3{3, 1, 2, 4, 5}, on4{4, 1, 2, 4, 5};
    const std::vector<Output> all = {on3,
                                     on4,
                                     dvs,
                                     ofRegister,
                                     ofMemory,
                                     ofBist,
                                     typename F::Neuron{},
                                     typename F::Probe{},
                                     typename F::Interface{}};
    Bench<Output> bench(select);
    EXPECT_EQ(bench.applyOne({all}), all) << "until layers are set, also those without one";
    const struct {
        std::vector<std::uint8_t> layers;
        std::vector<Output> kept;
    } rows[] = {
        {{3}, {on3, ofRegister, ofMemory, ofBist}},
        {{9, 4}, {on4, dvs}},
        {{0}, {}},
        {{}, {}},
    };
    for (const auto& row : rows) {
        select.setLayers(row.layers);
        EXPECT_EQ(bench.applyOne({all}), row.kept) << testing::PrintToString(row.layers);
    }
    select.reset();
    EXPECT_EQ(bench.applyOne({all}), all);
}

TYPED_TEST(ChipNodes, FilterTypesByTheTwelveNames)
{
    using F = TypeParam;
    const auto node = built(F::title() + "EventTypeFilter_OutputEvents");
    auto& filter = dynamic_cast<EventTypeFilterNode<typename F::Output>&>(*node);
    const std::string p = F::prefix();
    EXPECT_THAT(filter.getAvailableTypes(),
                ElementsAre(p + "OutputEvent", p + "Spike", p + "DvsEvent", p + "InputInterfaceEvent",
                            p + "NeuronValue", p + "BiasValue", p + "WeightValue", p + "RegisterValue",
                            p + "MemoryValue", p + "BistValue", p + "ProbeValue", p + "ReadoutValue"));
    const std::string other = p == "tessel::event::" ? "ravik::event::Spike" : "tessel::event::Spike";
    EXPECT_EQ(errorOf([&] { filter.setDesiredType(other); }), "The desired type: \"" + other + "\" is unknown!");

    Bench<typename F::Output> whole(filter);
    BatchSink<typename F::Dvs> sink;
    ASSERT_TRUE(filter.connectTo(sink));
    filter.setDesiredType(p + "DvsEvent");
    const typename F::Dvs dvs{true, 1, 2, 9, 3};
    EXPECT_THAT(whole.applyOne({{typename F::Spike{}, dvs}}), ElementsAre(typename F::Output(dvs)));
    const auto batches = sink.batches();
    ASSERT_THAT(batches, testing::SizeIs(1));
    EXPECT_THAT(*batches[0], ElementsAre(dvs));
}

TYPED_TEST(ChipNodes, ForwardAndConvert)
{
    using F = TypeParam;
    const auto forward = built(F::title() + "Forward");
    Bench<typename F::Output> forwarding(*forward);
    EXPECT_THAT(forwarding.applyOne({{typename F::Spike{1}}}), ElementsAre(typename F::Output(typename F::Spike{1})));

    using davis::event::DvsEvent;
    using Input = typename F::Input;
    using Router = typename F::Router;
    const auto convert = built("DavisTo" + F::title() + "Input");
    Bench<DvsEvent, Input> converting(*convert);
    EXPECT_THAT(converting.applyOne({{{300, 5, true, 1}}}), ElementsAre(Input(Router{13, 1, 5, 44})));
    const auto middle = built("Davis346Center128To" + F::title() + "Input");
    Bench<DvsEvent, Input> cutting(*middle);
    EXPECT_THAT(cutting.applyOne({{{109, 66}, {110, 66}, {237, 193, true, 0}, {238, 193}, {110, 194}}}),
                ElementsAre(Input(Router{13, 0, 0, 0}), Input(Router{13, 1, 127, 127})));
}

TYPED_TEST(ChipNodes, JoinOnlyWithTheirOwnFamily)
{
    using F = TypeParam;
    const std::string other = F::title() == "Tessel" ? "Ravik" : "Tessel";
    EventFilterGraph graph;
    const auto crop = graph.addFilterNodeOrThrow("DvsEventCrop");
    const auto input = graph.addFilterNodeOrThrow("DavisTo" + F::title() + "Input");
    const auto select = graph.addFilterNodeOrThrow(F::title() + "LayerSelect");
    const auto foreign = graph.addFilterNodeOrThrow(other + "LayerSelect");
    EXPECT_TRUE(graph.connect(crop, input));
    for (const auto& [a, b] : std::initializer_list<std::pair<std::uint64_t, std::uint64_t>>{
             {select, foreign}, {crop, select}, {input, select}})
        EXPECT_EQ(errorOf<std::invalid_argument>([&, a = a, b = b] { graph.connectOrThrow(a, b); }),
                  "Cannot create connection " + std::to_string(a) + " -> " + std::to_string(b));
}

TYPED_TEST(ChipNodes, HaveTheirNames)
{
    using F = TypeParam;
    using trovi::registeredName;
    EXPECT_EQ(registeredName<LayerSelectNode<typename F::Output>>(),
              "graph::nodes::LayerSelect_" + F::snake() + "output_event");
    EXPECT_EQ(registeredName<EventTypeFilterNode<typename F::Output>>(),
              "graph::nodes::EventTypeFilter_" + F::snake() + "output_event");
    EXPECT_EQ(registeredName<BufferSinkNode<typename F::Output>>(), "BufferSinkNode_" + F::snake() + "output_event");
    EXPECT_EQ(registeredName<BufferSinkNode<typename F::Spike>>(), "BufferSinkNode_" + F::snake() + "spike");
    EXPECT_EQ(registeredName<SplittingNode<typename F::Input>>(), "SplittingNode_" + F::snake() + "input_event");
}

} // namespace
