#pragma once
// The events to a ravik chip (InputEvent) and from it (OutputEvent), as plain values.

#include <cstdint>
#include <string>
#include <type_traits>
#include <variant>

#include "tessel/family/Names.h"
#include "trovi/Reflect.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/Events.inc"
#pragma pop_macro("VORNA_FAMILY")
