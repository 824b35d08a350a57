#include "tessel/Model.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "device/Log.h"
#include "tessel/configuration/Translation.h"
#include "tessel/configuration/Validation.h"

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/ModelFunctions.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
