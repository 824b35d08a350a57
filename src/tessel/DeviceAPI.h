#pragma once
// The way from a tessel model to its chip, and back: implemented by what drives a board, and by what stands in for one.

#include <vector>

#include "device/Drivers.h"
#include "tessel/event/Events.h"
#include "tessel/family/Names.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY tessel
#include "tessel/family/DeviceAPI.inc"
#pragma pop_macro("VORNA_FAMILY")
