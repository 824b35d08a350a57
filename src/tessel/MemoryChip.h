#pragma once
// A tessel chip in memory and a model over it, for users and tests without hardware.

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "tessel/DeviceAPI.h"
#include "tessel/Model.h"
#include "tessel/event/Events.h"
#include "tessel/family/Names.h"
#include "trovi/BoxedPtr.h"
#include "trovi/Reflect.h"

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/MemoryChip.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
