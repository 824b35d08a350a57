#pragma once
// A ravik chip in memory and a model over it, for users and tests without hardware.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ravik/DeviceAPI.h"
#include "ravik/Model.h"
#include "ravik/event/Events.h"
#include "tessel/family/Names.h"
#include "trovi/BoxedPtr.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/MemoryChip.inc"
#pragma pop_macro("VORNA_FAMILY")
