#pragma once
// The configuration of a ravik chip; root: RavikConfiguration. The text of both families is
// tessel/family/Configuration.inc.

#include <array>
#include <cstdint>
#include <tuple>

#include "tessel/family/ChipLayout.h"
#include "tessel/family/Limits.h"
#include "tessel/family/Names.h"
#include "trovi/Reflect.h"
#include "util/Vec2.h"
#include "util/tensor/Array.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/Configuration.inc"
#pragma pop_macro("VORNA_FAMILY")
