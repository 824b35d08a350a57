#pragma once
// The configuration of a tessel chip; root: TesselConfiguration. The text of both families is
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

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/Configuration.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
