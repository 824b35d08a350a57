#pragma once
// The object through which a user drives a tessel chip.

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
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

namespace tessel {

using TesselModelSinkNode = TesselModelSink;
using TesselModelSource = graph::nodes::BasicSourceNode<event::OutputEvent>;

} // namespace tessel

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/Model.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
