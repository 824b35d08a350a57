#pragma once
// What is sent to a tessel chip (InputEvent) and what comes from it (OutputEvent), as plain values.

#include <cstdint>
#include <string>
#include <type_traits>
#include <variant>

#include "tessel/family/Names.h"
#include "trovi/Reflect.h"

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/Events.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
