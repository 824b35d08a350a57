#include "util/tensor/Array.h"

#include <stdexcept>
#include <string>

namespace util::tensor {
namespace detail {
namespace {

// Lists of that many empty lists are what nobody means; they would take the memory that the elements don't.
constexpr std::uint64_t emptyRowsMost = 1U << 20U;

std::string textOf(std::span<const std::uint64_t> numbers)
{
    std::string text = "[";
    for (const std::uint64_t number : numbers)
        text += (text.size() > 1 ? ", " : "") + std::to_string(number);
    return text + "]";
}

} // namespace

void checkShape(std::span<const std::uint64_t> dimensions, std::uint64_t elements)
{
    const std::uint64_t expected = elementCount(dimensions);
    if (expected != elements)
        throw std::invalid_argument("An array of dimensions " + textOf(dimensions) + " has not " +
                                    std::to_string(elements) + " values.");
    const auto empty = static_cast<std::size_t>(std::ranges::find(dimensions, 0U) - dimensions.begin());
    if (expected == 0 && elementCount(dimensions.first(empty)) > emptyRowsMost)
        throw std::invalid_argument("An array of dimensions " + textOf(dimensions) + " has too many empty rows.");
}

void checkLoaded(std::span<const std::uint64_t> dimensions, std::span<const std::uint64_t> offsets,
                 std::span<const std::uint64_t> strides, std::uint64_t elements)
{
    checkShape(dimensions, elements);
    if (!std::ranges::equal(offsets, strides))
        throw std::invalid_argument("An array of dimensions " + textOf(dimensions) + " has the offsets " +
                                    textOf(strides) + ", and not " + textOf(offsets) + ".");
}

void throwInconsistent() { throw std::invalid_argument("Input vector dimensions are not consistent."); }

} // namespace detail

VORNA_ARRAY_INSTANCES(, signed char, 4)
VORNA_ARRAY_INSTANCES(, bool, 4)
VORNA_ARRAY_INSTANCES(, short, 3)
VORNA_ARRAY_INSTANCES(, bool, 3)
VORNA_ARRAY_INSTANCES(, short, 1)
VORNA_ARRAY_INSTANCES(, bool, 1)

} // namespace util::tensor
