#include "graph/nodes/ChipNodes.h"

namespace graph::nodes {

template class LayerSelectNode<tessel::event::OutputEvent>;
template class LayerSelectNode<ravik::event::OutputEvent>;
template class EventTypeFilterNode<tessel::event::OutputEvent>;
template class EventTypeFilterNode<ravik::event::OutputEvent>;

} // namespace graph::nodes
