// Python classes of a ravik chip's factory and debug settings.

#include "ravik/configuration/Configuration.h"
#include "tessel/family/Names.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY ravik
#include "python/bindings/chip_settings.inc"
