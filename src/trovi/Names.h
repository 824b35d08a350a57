#pragma once
// Python names from C++ names, by plain functions of strings.

#include <string>
#include <string_view>
#include <vector>

namespace trovi {

/// Cuts `name` into words and joins them by "_", in lower case: "getROIValue" gives "get_roi_value",
/// "tessel::event::OutputEvent" gives "tessel_event_output_event". The words are the successive matches of
///
///   ((^[a-z0-9]+)|([0-9]+)|([A-Z]{1}[a-z0-9]+)|([A-Z0-9]+(?=([A-Z0-9][a-z0-9])|($)|([0-9])))|([a-z0-9]+)|(_+))
///
/// (ECMAScript). Text between matches is dropped. An underscore is a word: "a_b" gives "a___b". The matching is written
/// by hand, since std::regex would take most of the module's import time.
std::string snakeCase(std::string_view name);

/// The name of a member, method or function in Python: snakeCase() with each run of underscores reduced to one.
std::string pythonName(std::string_view name);

/// The pieces of `name` between "::", in order; a name without "::" is one piece.
std::vector<std::string> splitNamespaceString(std::string_view name);

} // namespace trovi
