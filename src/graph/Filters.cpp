#include "graph/Filters.h"

#include <memory>

#include "davis/event/DvsEvent.h"
#include "graph/EventFilterNodeFactory.h"
#include "graph/nodes/ChipNodes.h"
#include "graph/nodes/Converters.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"

namespace graph {
namespace {

template <class Node>
std::unique_ptr<ondra::NodeInterface> defaultConstructibleFilter()
{
    return std::make_unique<Node>();
}

} // namespace

Filters::Filters()
{
    using namespace graph::nodes;
    using davis::event::DvsEvent;
    using TesselOutput = tessel::event::OutputEvent;
    using RavikOutput = ravik::event::OutputEvent;
    auto& factory = EventFilterNodeFactory::getInstance();
    factory.registerNodeBuilder("TesselLayerSelect", defaultConstructibleFilter<LayerSelectNode<TesselOutput>>);
    factory.registerNodeBuilder("RavikLayerSelect", defaultConstructibleFilter<LayerSelectNode<RavikOutput>>);
    factory.registerNodeBuilder("TesselForward", forward<TesselOutput>);
    factory.registerNodeBuilder("RavikForward", forward<RavikOutput>);
    factory.registerNodeBuilder("DavisToTesselInput",
                                davisToChipInputConverter<tessel::event::InputEvent, tessel::event::RouterEvent>);
    factory.registerNodeBuilder("DavisToRavikInput",
                                davisToChipInputConverter<ravik::event::InputEvent, ravik::event::RouterEvent>);
    factory.registerNodeBuilder(
        "Davis346Center128ToTesselInput",
        davis346Center128ToChipInputConverter<tessel::event::InputEvent, tessel::event::RouterEvent>);
    factory.registerNodeBuilder(
        "Davis346Center128ToRavikInput",
        davis346Center128ToChipInputConverter<ravik::event::InputEvent, ravik::event::RouterEvent>);
    factory.registerNodeBuilder("TesselEventTypeFilter_OutputEvents",
                                defaultConstructibleFilter<EventTypeFilterNode<TesselOutput>>);
    factory.registerNodeBuilder("RavikEventTypeFilter_OutputEvents",
                                defaultConstructibleFilter<EventTypeFilterNode<RavikOutput>>);
    factory.registerNodeBuilder("DvsEventCrop", defaultConstructibleFilter<EventCropNode<DvsEvent>>);
    factory.registerNodeBuilder("DvsEventDecimate", defaultConstructibleFilter<EventDecimateNode<DvsEvent>>);
    factory.registerNodeBuilder("DvsEventRescale", defaultConstructibleFilter<EventRescaleNode<DvsEvent>>);
}

} // namespace graph
