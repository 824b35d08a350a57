// The judgement of configurations, for both chip families.

#include "ravik/configuration/Validation.h"
#include "tessel/configuration/Validation.h"
#include "trovi/python/Local.h"

VORNA_BIND_FREE_FUNCTION("tessel::validateConfiguration", &tessel::validateConfiguration,
                         "Whether a chip can take the configuration, and all that is wrong with it as lines of text, "
                         "empty when it can: (verdict, text).",
                         "configuration")
VORNA_BIND_FREE_FUNCTION("ravik::validateConfiguration", &ravik::validateConfiguration,
                         "Whether a chip can take the configuration, and all that is wrong with it as lines of text, "
                         "empty when it can: (verdict, text).",
                         "configuration")
