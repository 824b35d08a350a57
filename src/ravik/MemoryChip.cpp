#include "ravik/MemoryChip.h"

#include <stdexcept>
#include <utility>
#include <variant>

#define VORNA_FAMILY ravik
#define VORNA_FAMILY_TITLE Ravik
#include "tessel/family/MemoryChipFunctions.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
