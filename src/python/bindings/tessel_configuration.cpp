// Python classes of a tessel chip's configuration, the way from one to events, and the registers
// of both chip families.

#include "tessel/configuration/Configuration.h"
#include "tessel/configuration/Translation.h"
#include "tessel/family/Names.h"
#include "tessel/registers/RegisterContent.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY tessel
#include "python/bindings/chip_configuration.inc"

VORNA_BIND_FREE_FUNCTION("tessel::event::tesselConfigToEvent",
                         static_cast<tessel::event::InputEvents (*)(const tessel::configuration::TesselConfiguration&)>(
                             &tessel::event::tesselConfigurationToEvent),
                         "The events that write the configuration into a chip, in their order: every register and "
                         "every memory word. Nothing is checked: see validate_configuration. Raises IndexError when "
                         "an array of kill bits ends before its values do.",
                         "configuration")
VORNA_BIND_FREE_FUNCTION("tessel::event::describeRegister", &tessel::event::describeRegister,
                         "What a register write says: the register's name and its fields. Raises IndexError when the "
                         "chip has no such register.",
                         "write")

VORNA_BIND_LOCAL(tessel::registers::FieldContent)
VORNA_BIND_LOCAL(tessel::registers::RegisterContent)
VORNA_BIND_FREE_FUNCTION("tessel::registers::describeRegister", &tessel::registers::describeRegister,
                         "The register of a block (core 0 to 8: a layer, 12: readout, 13: input interface, 14: camera "
                         "front end) with data cut into its fields; the same for both chip families. Raises "
                         "IndexError when there is no such register.",
                         "core, number, data")
VORNA_BIND_FREE_FUNCTION("tessel::registers::registersOfCore", &tessel::registers::registersOfCore,
                         "All registers of a block, ascending, with their reset values as data. Raises IndexError "
                         "when there is no such block.",
                         "core")
