// Python classes of a ravik chip's model.

#include "graph/nodes/BasicSinkNode.h"
#include "graph/nodes/BasicSourceNode.h"
#include "python/VornaNode.h"
#include "ravik/MemoryChip.h"
#include "ravik/Model.h"
#include "tessel/family/Names.h"
#include "trovi/Dispatcher.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY ravik
#include "python/bindings/chip_model.inc"
#undef VORNA_FAMILY
