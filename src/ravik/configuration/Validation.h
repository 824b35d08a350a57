#pragma once
// Checks whether a ravik chip can take a configuration, and lists all faults.
//
//   std::ostringstream findings;
//   if (!ravik::configuration::validate(configuration, findings))
//       throw std::runtime_error(findings.str());

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "ravik/configuration/Configuration.h"
#include "tessel/family/Limits.h"
#include "tessel/family/Names.h"
#include "tessel/family/OutputSize.h"

namespace ravik {
using tessel::getOutputSize;
} // namespace ravik

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/Validation.inc"
#pragma pop_macro("VORNA_FAMILY")
