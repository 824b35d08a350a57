#pragma once
// The output size of a convolution.

#include <cstdint>
#include <stdexcept>

namespace tessel {

/// Size of the output along one axis, in pixels: (size - kernel + 2 * padding) / stride + 1, where the division drops
/// the fraction. A kernel that is larger than the padded input gives 1 or less.
/// @param size     of the input along the axis, in pixels
/// @param padding  pixels added at each end
/// @throws std::domain_error for a stride of 0
constexpr int getOutputSize(int size, int kernel, int padding, int stride)
{
    if (stride == 0)
        throw std::domain_error("a convolution can't have a stride of 0");
    return static_cast<int>((std::int64_t{size} - kernel + 2 * std::int64_t{padding}) / stride + 1);
}

} // namespace tessel
