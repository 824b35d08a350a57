#pragma once
// The object through which a user drives a ravik chip.

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "device/Drivers.h"
#include "graph/nodes/BasicSinkNode.h"
#include "graph/nodes/BasicSourceNode.h"
#include "ravik/DeviceAPI.h"
#include "ravik/configuration/Configuration.h"
#include "ravik/event/Events.h"
#include "tessel/family/Names.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace ravik {

using RavikModelSinkNode = graph::nodes::BasicSinkNode<event::InputEvent>;
using RavikModelSource = graph::nodes::BasicSourceNode<event::OutputEvent>;

} // namespace ravik

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#define VORNA_FAMILY_MODEL_INITIALISES
#include "tessel/family/Model.inc"
#undef VORNA_FAMILY_MODEL_INITIALISES
#pragma pop_macro("VORNA_FAMILY")
