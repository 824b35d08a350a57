// Python classes of the nodes over all of a chip's events. Compiled once for each family.

#include "graph/nodes/BufferSinkNode.h"
#include "graph/nodes/ChipNodes.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventSourceNode.h"
#include "graph/nodes/SplittingNode.h"
#include "tessel/family/Family.h"
#include "trovi/python/Local.h"

VORNA_BIND_LOCAL(graph::nodes::LayerSelectNode<VORNA_FAMILY::event::OutputEvent>)
VORNA_BIND_LOCAL(graph::nodes::EventTypeFilterNode<VORNA_FAMILY::event::OutputEvent>)

// clang-format off
#define VORNA_BIND_NODES_(events)                                                     \
    VORNA_BIND_LOCAL(graph::nodes::EventSourceNode<events>)                           \
    VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::SplittingNode<events>)     \
    VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::EventCounterSink<events>)  \
    VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::BufferSinkNode<events>)
// clang-format on

VORNA_BIND_NODES_(VORNA_FAMILY::event::OutputEvent)
VORNA_BIND_NODES_(VORNA_FAMILY::event::InputEvent)
#undef VORNA_BIND_NODES_
