#pragma once
// Translates a ravik configuration to the events that write it to the chip. The text of both families is
// tessel/family/Translation.inc.

#include <cstdint>
#include <map>
#include <vector>

#include "ravik/configuration/Configuration.h"
#include "ravik/event/Events.h"
#include "tessel/family/Names.h"
#include "tessel/registers/RegisterContent.h"
#include "util/tensor/Array.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/Translation.inc"
#pragma pop_macro("VORNA_FAMILY")
