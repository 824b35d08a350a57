// Checks of settings and their texts, which scripts see. The words of the two about regions say the opposite of the
// test, and one names a function by another name: people search for these texts, so they stay.

#include <stdexcept>
#include <string>

#include "graph/nodes/detail/Decimation.h"
#include "graph/nodes/detail/EventCrop.h"

namespace graph::nodes::detail {

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

std::uint64_t decimationRatio(std::uint64_t M, std::uint64_t L)
{
    if (M == 0 || L == 0)
        throw std::runtime_error("Neither values in setDecimationFunction can be zero!");
    if (L > M)
        throw std::runtime_error(
            "The number of points where the decimation is performed (M = " + std::to_string(M) +
            ") is smaller than the number of points that are being selected!(L = " + std::to_string(L) + ").\n");
    return M / L;
}

} // namespace graph::nodes::detail
