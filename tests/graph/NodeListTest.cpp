// The nodes as scripts and other processes see them: names, events, functions.

#include <functional>
#include <sstream>

#include "../Golden.h"
#include "NodeTesting.h"
#include "graph/EventFilterGraph.h"
#include "graph/EventFilterNodeFactory.h"
#include "graph/nodes/BasicSinkNode.h"
#include "graph/nodes/BufferSinkNode.h"
#include "graph/nodes/ChipNodes.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"
#include "graph/nodes/EventSourceNode.h"
#include "graph/nodes/SplittingNode.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using davis::event::DvsEvent;
using TesselOutput = tessel::event::OutputEvent;
using RavikOutput = ravik::event::OutputEvent;

/// Prints whether a node takes or gives batches of Event.
template <class Event>
void probe(ondra::NodeInterface& node, std::string& takes, std::string& gives)
{
    BasicSourceNode<Event> source;
    BatchSink<Event> sink;
    if (source.connectTo(node))
        takes += ' ' + trovi::registeredName<Event>();
    if (node.connectTo(sink))
        gives += ' ' + trovi::registeredName<Event>();
}

template <class... Alternatives>
void probeAlternatives(const std::variant<Alternatives...>&, ondra::NodeInterface& node, std::string& takes,
                       std::string& gives)
{
    (probe<Alternatives>(node, takes, gives), ...);
}

TEST(NodeList, NamesEveryNodeOfTheFactory)
{
    auto& factory = graph::EventFilterNodeFactory::getInstance();
    std::ostringstream text;
    for (const auto& name : factory.names()) {
        if (name == "TestNode")
            continue; // of another test
        const auto node = factory.buildEventFilterNode(name);
        std::string takes, gives;
        probe<DvsEvent>(*node, takes, gives);
        probe<tessel::event::InputEvent>(*node, takes, gives);
        probe<ravik::event::InputEvent>(*node, takes, gives);
        probe<TesselOutput>(*node, takes, gives);
        probeAlternatives(TesselOutput(), *node, takes, gives);
        probe<RavikOutput>(*node, takes, gives);
        probeAlternatives(RavikOutput(), *node, takes, gives);
        text << name << ":" << takes << " ->" << gives << '\n';
    }
    EXPECT_GOLDEN("node_names.txt", text.str());
}

template <class... Nodes>
std::string descriptions()
{
    std::ostringstream text;
    const auto print = [&](const std::string& name, const std::vector<std::string>& functions) {
        text << name << ':';
        for (const auto& function : functions)
            text << ' ' << function;
        text << '\n';
    };
    (print(trovi::registeredName<Nodes>(), functionNames<Nodes>()), ...);
    return text.str();
}

TEST(NodeList, DescribesEveryNode)
{
    static_assert(std::is_same_v<trovi::RegisterBase<EventCropNode<DvsEvent>>::type, ondra::NodeInterface>);
    static_assert(std::is_same_v<trovi::RegisterBase<ondra::NodeInterface>::type, void>);
    EXPECT_GOLDEN("node_descriptions.txt",
                  (descriptions<ondra::NodeInterface, graph::EventFilterGraph, EventCropNode<DvsEvent>,
                                EventDecimateNode<DvsEvent>, EventRescaleNode<DvsEvent>, LayerSelectNode<TesselOutput>,
                                LayerSelectNode<RavikOutput>, EventTypeFilterNode<TesselOutput>,
                                EventTypeFilterNode<RavikOutput>, BasicSourceNode<DvsEvent>, EventSourceNode<DvsEvent>,
                                BasicSinkNode<DvsEvent>, BufferSinkNode<DvsEvent>, BufferSinkNode<tessel::event::Spike>,
                                EventCounterSink<DvsEvent>, SplittingNode<ravik::event::InputEvent>>()));
    std::string types;
    for (const auto& name : EventTypeFilterNode<TesselOutput>().getAvailableTypes())
        types += name + '\n';
    for (const auto& name : EventTypeFilterNode<RavikOutput>().getAvailableTypes())
        types += name + '\n';
    EXPECT_GOLDEN("node_event_types.txt", types);
}

} // namespace
