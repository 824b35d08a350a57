// Proxies of a chip's configuration and of all its parts. They are in one file since the proxy of a class contains
// those of its members. Compiled once for each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Configuration)
#include "trovi/python/Remote.h"

// clang-format off
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::VORNA_FAMILY_NAME(Configuration))
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::CNNLayerConfig)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::CNNLayerDestination)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::CNNLayerDimensions)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::IOShape)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::DVSLayerConfig)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::DVSLayerDestination)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::ReadoutConfig)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::FactorySettings)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::CNNLayerFactorySettings)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::TimingControlSRAM)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::NeuronSetup)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::DebugConfig)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::CNNLayerDebugConfig)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::CNNLayerProbePoints)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::BIST)

VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::KernelSectionProbePoint)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::NeuronProbePoint)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::LeakProbePoint)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::DVSProbePoint)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::ReadoutProbePoint)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::ProbePointRouter0)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::ProbePointRouter1)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::ProbePointRouter2)
VORNA_BIND_REMOTE(VORNA_FAMILY::configuration::ProbePointRouter3)
// clang-format on
