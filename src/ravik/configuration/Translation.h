#pragma once
// From a ravik configuration to the events that write it into the chip. The text of both families is
// tessel/family/Translation.inc.

#include <cstdint>
#include <map>
#include <vector>

#include "ravik/configuration/Configuration.h"
#include "ravik/event/Events.h"
#include "tessel/family/Names.h"
#include "tessel/registers/RegisterContent.h"
#include "util/tensor/Array.h"

#define VORNA_FAMILY ravik
#define VORNA_FAMILY_TITLE Ravik
#include "tessel/family/Translation.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
