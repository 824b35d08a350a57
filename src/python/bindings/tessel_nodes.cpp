// Python classes of the nodes over the events of a tessel chip.

#include "graph/nodes/ChipNodes.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventSourceNode.h"
#include "graph/nodes/SplittingNode.h"
#include "python/EventSinks.h"
#include "trovi/python/Local.h"

#define VORNA_FAMILY tessel
#include "chip_nodes.inc"
#undef VORNA_FAMILY
