#pragma once
// What is sent to a ravik chip (InputEvent) and what comes from it (OutputEvent), as plain values.

#include <cstdint>
#include <string>
#include <type_traits>
#include <variant>

#include "tessel/family/Names.h"
#include "trovi/Reflect.h"

#define VORNA_FAMILY ravik
#define VORNA_FAMILY_TITLE Ravik
#include "tessel/family/Events.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
