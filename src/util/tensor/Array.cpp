#include "util/tensor/Array.h"

#include <stdexcept>
#include <string>

namespace util::tensor {
namespace detail {
namespace {

// More empty rows than this are no sensible array; as lists they would take memory that no element does.
constexpr std::uint64_t emptyRowsMost = 1U << 20U;

std::string textOf(std::span<const std::uint64_t> numbers)
{
    std::string text = "[";
    for (const std::uint64_t number : numbers)
        text += (text.size() > 1 ? ", " : "") + std::to_string(number);
    return text + "]";
}

// Empty if an array of this shape has so many elements.
std::string faultOf(std::span<const std::uint64_t> dimensions, std::uint64_t elements)
{
    const std::uint64_t expected = elementCount(dimensions);
    const auto empty = static_cast<std::size_t>(std::ranges::find(dimensions, 0U) - dimensions.begin());
    if (expected != elements)
        return " has not " + std::to_string(elements) + " values.";
    if (expected == 0 && elementCount(dimensions.first(empty)) > emptyRowsMost)
        return " has too many empty rows.";
    return "";
}

} // namespace

void checkShape(std::span<const std::uint64_t> dimensions, std::uint64_t elements)
{
    if (const std::string fault = faultOf(dimensions, elements); !fault.empty())
        throw std::invalid_argument("An array of dimensions " + textOf(dimensions) + fault);
}

void checkLoaded(std::span<const std::uint64_t> dimensions, std::span<const std::uint64_t> offsets,
                 std::span<const std::uint64_t> strides, std::uint64_t elements)
{
    std::string fault = faultOf(dimensions, elements);
    if (fault.empty() && !std::ranges::equal(offsets, strides))
        fault = " has the offsets " + textOf(strides) + ", and not " + textOf(offsets) + ".";
    if (!fault.empty())
        throw std::runtime_error("An array of dimensions " + textOf(dimensions) + fault);
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
