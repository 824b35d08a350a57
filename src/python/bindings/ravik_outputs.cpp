// Python classes of what comes from a ravik chip.

#include "ravik/event/Events.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY ravik
#include "chip_outputs.inc"
#undef VORNA_FAMILY
