#pragma once
// A ravik chip in memory and a model over it, for users and tests without hardware.

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "ravik/DeviceAPI.h"
#include "ravik/Model.h"
#include "ravik/event/Events.h"
#include "tessel/family/Names.h"
#include "trovi/BoxedPtr.h"
#include "trovi/Reflect.h"

#define VORNA_FAMILY ravik
#define VORNA_FAMILY_TITLE Ravik
#include "tessel/family/MemoryChip.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
