#pragma once
// Checks whether a tessel chip can take a configuration, and lists all faults.
//
//   std::ostringstream findings;
//   if (!tessel::configuration::validate(configuration, findings))
//       throw std::runtime_error(findings.str());

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "tessel/configuration/Configuration.h"
#include "tessel/family/Limits.h"
#include "tessel/family/Names.h"
#include "tessel/family/OutputSize.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY tessel
#include "tessel/family/Validation.inc"
#pragma pop_macro("VORNA_FAMILY")
