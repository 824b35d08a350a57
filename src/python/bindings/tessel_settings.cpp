// Python classes of a tessel chip's factory and debug settings.

#include "tessel/configuration/Configuration.h"
#include "tessel/family/Names.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY tessel
#include "python/bindings/chip_settings.inc"
