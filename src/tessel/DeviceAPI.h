#pragma once
// What a tessel model needs to reach its chip. The driver of a board implements it, and so does a chip in memory.

#include <vector>

#include "device/Drivers.h"
#include "tessel/event/Events.h"
#include "tessel/family/Names.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY tessel
#include "tessel/family/DeviceAPI.inc"
#pragma pop_macro("VORNA_FAMILY")
