// The registers of a chip by name; the same for both families.

#include "tessel/registers/RegisterContent.h"
#include "trovi/python/Local.h"

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
