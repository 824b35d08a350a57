// The nodes over camera events, compiled once for all who use them.

#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"

namespace graph::nodes {

template class EventCropNode<davis::event::DvsEvent>;
template class EventDecimateNode<davis::event::DvsEvent>;
template class EventRescaleNode<davis::event::DvsEvent>;

} // namespace graph::nodes
