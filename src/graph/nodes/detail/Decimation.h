#pragma once
// Which events of a stream a decimation keeps.

#include <cstddef>
#include <cstdint>

namespace graph::nodes::detail {

/// M divided by L, cut to an integer.
/// @throws std::runtime_error when either is zero or L is greater than M
std::uint64_t decimationRatio(std::uint64_t M, std::uint64_t L);

/// The index, in a batch whose first event has the number `counter`, of the first event whose number `ratio` divides.
/// It may lie beyond the batch.
constexpr std::uint64_t firstKept(std::uint64_t counter, std::uint64_t ratio)
{
    const std::uint64_t past = counter % ratio;
    return past == 0 ? 0 : ratio - past;
}

} // namespace graph::nodes::detail
