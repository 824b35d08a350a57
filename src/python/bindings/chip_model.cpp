// Proxies of a chip's model in a store. Compiled once for each family.

#include "graph/nodes/BasicSinkNode.h"
#include "graph/nodes/BasicSourceNode.h"
#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER(Model)
#include "trovi/Dispatcher.h"
#include "trovi/python/Remote.h"

// clang-format off
VORNA_BIND_REMOTE(VORNA_FAMILY::VORNA_FAMILY_NAME(Model))
VORNA_BIND_REMOTE(VORNA_FAMILY::VORNA_FAMILY_NAME(ModelSource))
VORNA_BIND_REMOTE(graph::nodes::BasicSinkNode<VORNA_FAMILY::event::InputEvent>)
// clang-format on
