#include "tessel/MemoryChip.h"

#include <stdexcept>
#include <utility>
#include <variant>

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/MemoryChipFunctions.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
