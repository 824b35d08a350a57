#include "graph/nodes/detail/RegionOfInterest.h"

#include <stdexcept>
#include <string>

namespace graph::nodes::detail {

// The words say the opposite of the test. People search for these texts, so they stay.
void validateROIVertices(std::int32_t xtl, std::int32_t ytl, std::int32_t xbr, std::int32_t ybr)
{
    using std::to_string;
    if (xbr <= xtl)
        throw std::runtime_error("Left column (xtl = " + to_string(xtl) +
                                 ") is smaller (or equal) than right column (xbr = " + to_string(xbr) + ")\n");
    if (ybr <= ytl)
        throw std::runtime_error("First row (ytl = " + to_string(ytl) +
                                 ") is greater (or equal) than last row (ybr = " + to_string(ybr) + ")\n");
}

} // namespace graph::nodes::detail
