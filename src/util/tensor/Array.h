#pragma once
// Dense arrays of N dimensions: weights, biases and kill bits of the chips. Python shows them as nested lists, and
// takes nested lists and buffers (numpy arrays) of the fitting element type and rank.
//
//   struct Layer { util::tensor::Array4Int8 weights; };   // [output feature][input feature][kernel][kernel]
//
//   // in the description of Layer:
//   return members(util::tensor::member<&Layer::weights>("weights", "what it holds, and its shape"));
//
//   layer.weights = util::tensor::arrayFromVector(nested);
//
// In JSON an array is {"dimensions": [...], "offsets": [...], "values": [...]}, with the row-order strides as offsets.
// Its binary form is the same three in this order: N and N unsigned 64-bit numbers without a count, then a vector.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include "trovi/Reflect.h"

namespace util::tensor {

/// The number of elements of a shape; the largest number when it does not fit.
constexpr std::uint64_t elementCount(std::span<const std::uint64_t> dimensions)
{
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t count = 1;
    bool fits = true;
    for (const std::uint64_t size : dimensions) {
        if (size == 0)
            return 0;
        fits = fits && count <= most / size;
        count = fits ? count * size : most;
    }
    return count;
}

/// Elements lie in row order: the last index runs fastest. A new array has one element, which is zero.
template <class T, std::size_t N>
struct Array {
    using Dimensions = std::array<std::uint64_t, N>;
    static constexpr std::size_t rank = N;
    static_assert(N > 0);

    Dimensions dimensions = [] {
        Dimensions ones;
        ones.fill(1);
        return ones;
    }();
    std::vector<T> data = std::vector<T>(1); ///< as many elements as the product of the dimensions

    /// By how many elements the position in `data` grows with each index; the last stride is 1. Strides of a shape that
    /// is too large for memory are meaningless.
    constexpr Dimensions strides() const
    {
        Dimensions result{};
        std::uint64_t stride = 1;
        for (std::size_t i = N; i-- > 0;) {
            result[i] = stride;
            stride *= dimensions[i];
        }
        return result;
    }

    friend bool operator==(const Array&, const Array&) = default;
};

using Array4Int8 = Array<signed char, 4>;
using Array4Bool = Array<bool, 4>;
using Array3Int16 = Array<short, 3>;
using Array3Bool = Array<bool, 3>;
using Array1Int16 = Array<short, 1>;
using Array1Bool = Array<bool, 1>;

/// Vector of vector ... of T, N levels deep.
template <class T, std::size_t N>
struct RecursiveVector {
    using Internal = std::vector<typename RecursiveVector<T, N - 1>::Internal>;
};
template <class T>
struct RecursiveVector<T, 1> {
    using Internal = std::vector<T>;
};

namespace detail {

template <class Nested>
struct NestedParts {
    using Element = Nested;
    static constexpr std::size_t rank = 0;
};
template <class Nested>
struct NestedParts<std::vector<Nested>> {
    using Element = typename NestedParts<Nested>::Element;
    static constexpr std::size_t rank = 1 + NestedParts<Nested>::rank;
};

template <class Nested>
void firstSizes(std::span<std::uint64_t> dimensions, const std::vector<Nested>& nested)
{
    dimensions[0] = nested.size();
    if constexpr (NestedParts<Nested>::rank > 0)
        if (!nested.empty())
            firstSizes(dimensions.subspan(1), nested.front());
}

/// @throws std::invalid_argument when an array of this shape has another number of elements, or has none and yet too
///         many empty rows to be shown as lists
void checkShape(std::span<const std::uint64_t> dimensions, std::uint64_t elements);
/// For arrays from a file or a peer.
/// @throws std::runtime_error where checkShape throws, and for offsets that are not the row-order strides
void checkLoaded(std::span<const std::uint64_t> dimensions, std::span<const std::uint64_t> offsets,
                 std::span<const std::uint64_t> strides, std::uint64_t elements);
/// @throws std::invalid_argument "Input vector dimensions are not consistent."
[[noreturn]] void throwInconsistent();

} // namespace detail

/// The Array type with the elements of a nested vector.
template <class Nested>
using ArrayOf = Array<typename detail::NestedParts<Nested>::Element, detail::NestedParts<Nested>::rank>;

/// The sizes of the first element at each level; zero at the level of an empty vector and below.
template <class Nested>
typename ArrayOf<Nested>::Dimensions dimensionsOf(const Nested& nested)
{
    typename ArrayOf<Nested>::Dimensions dimensions{};
    detail::firstSizes(dimensions, nested);
    return dimensions;
}

/// True when `nested` has the sizes of `dimensions`, outermost first, at every place of each level.
template <class Nested>
bool checkArray(std::span<const std::uint64_t> dimensions, const std::vector<Nested>& nested)
{
    if (nested.size() != dimensions[0])
        return false;
    if constexpr (detail::NestedParts<Nested>::rank > 0)
        for (const Nested& inner : nested)
            if (!checkArray(dimensions.subspan(1), inner))
                return false;
    return true;
}

/// True when all vectors of a level have the same size. An empty vector is valid.
template <class Nested>
bool validVectorAsArray(const Nested& nested)
{
    return checkArray(dimensionsOf(nested), nested);
}

/// Copies the elements of `nested`, which must have the sizes of `dimensions` (checkArray), to `out` and on.
/// @return behind the last one
template <class Iterator, class Nested>
Iterator fillArray(Iterator out, std::span<const std::uint64_t> dimensions, const std::vector<Nested>& nested)
{
    if constexpr (detail::NestedParts<Nested>::rank == 0) {
        return std::copy(nested.begin(), nested.end(), out);
    } else {
        for (const Nested& inner : nested)
            out = fillArray(out, dimensions.subspan(1), inner);
        return out;
    }
}

/// Gives `nested` the sizes of `dimensions` and the elements from `in` on.
/// @return behind the last one
template <class Iterator, class Nested>
Iterator fillVector(Iterator in, std::span<const std::uint64_t> dimensions, std::vector<Nested>& nested)
{
    if constexpr (detail::NestedParts<Nested>::rank == 0) {
        const Iterator end = std::next(in, static_cast<std::ptrdiff_t>(dimensions[0]));
        nested.assign(in, end);
        return end;
    } else {
        nested.resize(static_cast<std::size_t>(dimensions[0]));
        for (Nested& inner : nested)
            in = fillVector(in, dimensions.subspan(1), inner);
        return in;
    }
}

/// The array with the elements of `nested`.
/// @throws std::invalid_argument "Input vector dimensions are not consistent." unless validVectorAsArray
template <class Nested>
ArrayOf<Nested> arrayFromVector(const Nested& nested)
{
    ArrayOf<Nested> array;
    array.dimensions = dimensionsOf(nested);
    if (!checkArray(array.dimensions, nested))
        detail::throwInconsistent();
    array.data.resize(static_cast<std::size_t>(elementCount(array.dimensions)));
    fillArray(array.data.begin(), array.dimensions, nested);
    return array;
}

/// The elements of `array` as nested vectors.
/// @throws std::invalid_argument when `dimensions` and `data` of the array disagree
template <class T, std::size_t N>
typename RecursiveVector<T, N>::Internal buildList(const Array<T, N>& array)
{
    detail::checkShape(array.dimensions, array.data.size());
    typename RecursiveVector<T, N>::Internal nested;
    fillVector(array.data.begin(), array.dimensions, nested);
    return nested;
}

// Instantiated in Array.cpp, so that including a description costs little compile time.
#define VORNA_ARRAY_INSTANCES(extern_, T, N)                                       \
    extern_ template Array<T, N> arrayFromVector<RecursiveVector<T, N>::Internal>( \
        const RecursiveVector<T, N>::Internal&);                                   \
    extern_ template RecursiveVector<T, N>::Internal buildList<T, N>(const Array<T, N>&);
VORNA_ARRAY_INSTANCES(extern, signed char, 4)
VORNA_ARRAY_INSTANCES(extern, bool, 4)
VORNA_ARRAY_INSTANCES(extern, short, 3)
VORNA_ARRAY_INSTANCES(extern, bool, 3)
VORNA_ARRAY_INSTANCES(extern, short, 1)
VORNA_ARRAY_INSTANCES(extern, bool, 1)

namespace detail {

template <auto Field, class Class, class T, std::size_t N>
constexpr auto memberOf(const char* name, const char* doc, Array<T, N> Class::*field)
{
    using Nested = typename RecursiveVector<T, N>::Internal;
    return trovi::convertedMember(
        name, field, +[](Class& object, Nested nested) { object.*Field = arrayFromVector(nested); },
        +[](const Class& object) { return buildList(object.*Field); }, doc);
}

} // namespace detail

/// A member of an array type, in a description: member<&Layer::weights>("weights", "what it holds, and its shape").
/// Its setter throws as arrayFromVector and leaves the member then.
template <auto Field>
constexpr auto member(const char* name, const char* doc)
{
    return detail::memberOf<Field>(name, doc, Field);
}

} // namespace util::tensor

template <class T, std::size_t N>
struct trovi::RegisterForm<util::tensor::Array<T, N>> {
    using Array = util::tensor::Array<T, N>;

    template <class Part>
    static void save(const Array& array, Part&& part)
    {
        part("dimensions", array.dimensions);
        part("offsets", array.strides());
        part("values", array.data);
    }
    template <class Part>
    static void load(Array& array, Part&& part)
    {
        Array loaded;
        typename Array::Dimensions offsets{};
        part("dimensions", loaded.dimensions);
        part("offsets", offsets);
        part("values", loaded.data);
        util::tensor::detail::checkLoaded(loaded.dimensions, offsets, loaded.strides(), loaded.data.size());
        array = std::move(loaded);
    }
};
