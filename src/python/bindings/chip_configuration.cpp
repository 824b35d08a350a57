// Python classes of what a user fills in to describe a chip: layers, front end of the camera, readout. With them the
// functions that check a configuration and turn it into events. Compiled once for each chip family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Configuration)
#include VORNA_FAMILY_HEADER_IN(configuration, Translation)
#include VORNA_FAMILY_HEADER_IN(configuration, Validation)
#include "trovi/python/Local.h"

// clang-format off
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::VORNA_FAMILY_NAME(Configuration))
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::CNNLayerConfig)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::CNNLayerDestination)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::CNNLayerDimensions)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::IOShape)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::DVSLayerConfig)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::DVSLayerDestination)
VORNA_BIND_LOCAL(VORNA_FAMILY::configuration::ReadoutConfig)
// clang-format on

VORNA_BIND_FREE_FUNCTION(VORNA_FAMILY_TEXT "::validateConfiguration", &VORNA_FAMILY::validateConfiguration,
                         "Checks whether a chip can take the configuration: (valid, text). The text lists all faults "
                         "and is empty when there is none.",
                         "configuration")
VORNA_BIND_FREE_FUNCTION(
    VORNA_FAMILY_TEXT "::event::" VORNA_FAMILY_TEXT_OF(VORNA_FAMILY_FUNCTION(ConfigToEvent)),
    static_cast<VORNA_FAMILY::event::InputEvents (*)(const VORNA_FAMILY::configuration::VORNA_FAMILY_NAME(
        Configuration) &)>(&VORNA_FAMILY::event::VORNA_FAMILY_FUNCTION(ConfigurationToEvent)),
    "The events that write the configuration into a chip, in their order: every register and every memory word. "
    "Nothing is checked: see validate_configuration. Raises IndexError when an array of kill bits ends before its "
    "values do.",
    "configuration")
VORNA_BIND_FREE_FUNCTION(VORNA_FAMILY_TEXT "::event::describeRegister", &VORNA_FAMILY::event::describeRegister,
                         "What a register write says: the register's name and its fields. Raises IndexError when the "
                         "chip has no such register.",
                         "write")
