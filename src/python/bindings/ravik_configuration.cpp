// Python classes of a ravik chip's configuration, and the way from one to events.

#include "ravik/configuration/Configuration.h"
#include "ravik/configuration/Translation.h"
#include "tessel/family/Names.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY ravik
#include "python/bindings/chip_configuration.inc"

VORNA_BIND_FREE_FUNCTION("ravik::event::ravikConfigToEvent",
                         static_cast<ravik::event::InputEvents (*)(const ravik::configuration::RavikConfiguration&)>(
                             &ravik::event::ravikConfigurationToEvent),
                         "The events that write the configuration into a chip, in their order: every register and "
                         "every memory word. Nothing is checked: see validate_configuration. Raises IndexError when "
                         "an array of kill bits ends before its values do.",
                         "configuration")
VORNA_BIND_FREE_FUNCTION("ravik::event::describeRegister", &ravik::event::describeRegister,
                         "What a register write says: the register's name and its fields. Raises IndexError when the "
                         "chip has no such register.",
                         "write")
