// Python classes of a tessel chip's model.

#include "graph/nodes/BasicSinkNode.h"
#include "graph/nodes/BasicSourceNode.h"
#include "python/VornaNode.h"
#include "tessel/MemoryChip.h"
#include "tessel/Model.h"
#include "tessel/family/Names.h"
#include "trovi/Dispatcher.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY tessel
#include "python/bindings/chip_model.inc"
#undef VORNA_FAMILY

VORNA_BIND_REMOTE(tessel::TesselModelSink)
