#include "graph/Filters.h"

#include <memory>

#include "davis/event/DvsEvent.h"
#include "graph/EventFilterNodeFactory.h"
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
    auto& factory = EventFilterNodeFactory::getInstance();
    factory.registerNodeBuilder("DvsEventCrop", defaultConstructibleFilter<EventCropNode<DvsEvent>>);
    factory.registerNodeBuilder("DvsEventDecimate", defaultConstructibleFilter<EventDecimateNode<DvsEvent>>);
    factory.registerNodeBuilder("DvsEventRescale", defaultConstructibleFilter<EventRescaleNode<DvsEvent>>);
}

} // namespace graph
