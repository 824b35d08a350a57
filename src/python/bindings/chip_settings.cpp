// Python classes of the parts of a chip's configuration that most scripts leave alone: factory and debug
// settings. Compiled once for each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Configuration)
#include "trovi/python/Local.h"

// clang-format off
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::FactorySettings)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::CNNLayerFactorySettings)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::TimingControlSRAM)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::NeuronSetup)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::DebugConfig)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::CNNLayerDebugConfig)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::CNNLayerProbePoints)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::BIST)

VORNA_BIND_ENUM(VORNA_FAMILY::configuration::KernelSectionProbePoint)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::NeuronProbePoint)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::LeakProbePoint)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::DVSProbePoint)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::ReadoutProbePoint)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::ProbePointRouter0)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::ProbePointRouter1)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::ProbePointRouter2)
VORNA_BIND_ENUM(VORNA_FAMILY::configuration::ProbePointRouter3)
// clang-format on
