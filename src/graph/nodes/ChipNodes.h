#pragma once
// The filters over chip events, compiled once. To make one, include this header and not the filter's own.

#include "graph/nodes/EventTypeFilterNode.h"
#include "graph/nodes/LayerSelectNode.h"
#include "ravik/event/Events.h"
#include "tessel/event/Events.h"

namespace graph::nodes {

extern template class LayerSelectNode<tessel::event::OutputEvent>;
extern template class LayerSelectNode<ravik::event::OutputEvent>;
extern template class EventTypeFilterNode<tessel::event::OutputEvent>;
extern template class EventTypeFilterNode<ravik::event::OutputEvent>;

} // namespace graph::nodes
