#pragma once
// The object through which a user drives a tessel chip.

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "device/Drivers.h"
#include "graph/nodes/BasicSourceNode.h"
#include "tessel/DeviceAPI.h"
#include "tessel/ModelSink.h"
#include "tessel/configuration/Configuration.h"
#include "tessel/event/Events.h"
#include "tessel/family/Names.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace tessel {

using TesselModelSinkNode = TesselModelSink;
using TesselModelSource = graph::nodes::BasicSourceNode<event::OutputEvent>;

} // namespace tessel

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY tessel
#include "tessel/family/Model.inc"
#pragma pop_macro("VORNA_FAMILY")
