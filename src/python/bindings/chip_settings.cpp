// Python classes of the parts of a chip's configuration that most scripts leave alone: factory and debug
// settings. Compiled once for each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Configuration)
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

// clang-format off
#define VORNA_BIND_BOTH_(name)                            \
    VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::name)   \
    VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::name)
#define VORNA_BIND_BOTH_ENUM_(name)                       \
    VORNA_BIND_ENUM(VORNA_FAMILY::configuration::name)    \
    VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::name)

VORNA_BIND_BOTH_(FactorySettings)
VORNA_BIND_BOTH_(CNNLayerFactorySettings)
VORNA_BIND_BOTH_(TimingControlSRAM)
VORNA_BIND_BOTH_(NeuronSetup)
VORNA_BIND_BOTH_(DebugConfig)
VORNA_BIND_BOTH_(CNNLayerDebugConfig)
VORNA_BIND_BOTH_(CNNLayerProbePoints)
VORNA_BIND_BOTH_(BIST)

VORNA_BIND_BOTH_ENUM_(KernelSectionProbePoint)
VORNA_BIND_BOTH_ENUM_(NeuronProbePoint)
VORNA_BIND_BOTH_ENUM_(LeakProbePoint)
VORNA_BIND_BOTH_ENUM_(DVSProbePoint)
VORNA_BIND_BOTH_ENUM_(ReadoutProbePoint)
VORNA_BIND_BOTH_ENUM_(ProbePointRouter0)
VORNA_BIND_BOTH_ENUM_(ProbePointRouter1)
VORNA_BIND_BOTH_ENUM_(ProbePointRouter2)
VORNA_BIND_BOTH_ENUM_(ProbePointRouter3)

#undef VORNA_BIND_BOTH_ENUM_
#undef VORNA_BIND_BOTH_
// clang-format on
