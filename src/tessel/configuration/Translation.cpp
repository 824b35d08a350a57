#include "tessel/configuration/Translation.h"

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>
#include <string>
#include <tuple>

#include "tessel/family/ChipLayout.h"
#include "tessel/registers/DvsCore.h"
#include "tessel/registers/InputInterface.h"
#include "tessel/registers/LayerCore.h"
#include "tessel/registers/ReadoutCore.h"

#define VORNA_FAMILY tessel
#define VORNA_FAMILY_TITLE Tessel
#include "tessel/family/TranslationFunctions.inc"
#undef VORNA_FAMILY_TITLE
#undef VORNA_FAMILY
