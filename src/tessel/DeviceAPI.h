#pragma once
// The way from a tessel model to its chip, and back: implemented by what drives a board, and by what stands in for one.

#include <vector>

#include "device/Drivers.h"
#include "tessel/event/Events.h"
#include "tessel/family/Names.h"

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/DeviceAPI.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
