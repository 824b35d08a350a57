#include "graph/nodes/detail/Decimation.h"

#include <stdexcept>
#include <string>

namespace graph::nodes::detail {

// The first text names a function that does not exist. People search for these texts, so they stay.
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
