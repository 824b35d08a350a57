#pragma once
// The words of the events of a ravik chip, and the events of words. Pure functions: none of them fails,
// takes a lock or allocates; every word is some event and every event has a word.

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "ravik/event/Events.h"
#include "tessel/family/EventWord.h"
#include "tessel/family/detail/EventImage.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/Codec.inc"
#pragma pop_macro("VORNA_FAMILY")
