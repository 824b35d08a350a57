// Python classes of what comes from a tessel chip.

#include "tessel/event/Events.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY tessel
#include "chip_outputs.inc"
#undef VORNA_FAMILY
