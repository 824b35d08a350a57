#pragma once
// From a tessel configuration to the events that write it into the chip. The text of both families is
// tessel/family/Translation.inc.

#include <cstdint>
#include <map>
#include <vector>

#include "tessel/configuration/Configuration.h"
#include "tessel/event/Events.h"
#include "tessel/family/Names.h"
#include "tessel/registers/RegisterContent.h"
#include "util/tensor/Array.h"

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/Translation.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
