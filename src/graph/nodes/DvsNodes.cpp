// The nodes over camera events, compiled once for all who use them.

#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"

namespace graph::nodes {

static_assert(detail::isTwoWords<davis::event::DvsEvent>(), "else the filters copy camera events field by field");

template class EventCropNode<davis::event::DvsEvent>;
template class EventDecimateNode<davis::event::DvsEvent>;
template class EventRescaleNode<davis::event::DvsEvent>;

} // namespace graph::nodes
