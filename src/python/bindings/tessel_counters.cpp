// Python classes of the nodes that count and split the single kinds of a tessel chip's events.

#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/SplittingNode.h"
#include "tessel/event/Events.h"
#include "trovi/python/Local.h"

#define VORNA_FAMILY tessel
#include "chip_counters.inc"
#undef VORNA_FAMILY
