#pragma once
// util::tensor::Array to Python and back, for members, arguments and results. Python gets nested lists, and may give
// nested sequences, or a buffer (a numpy array) whose element type and rank are the array's, with any strides.
//
// A member of array type is also shown as a numpy array. It refers to the elements in place, where they have addresses.
//
// Elements go straight between Python's objects and the flat data; a contiguous buffer is copied as a block.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "trovi/python/ElementOwner.h"
#include "trovi/python/Integers.h"
#include "trovi/python/MemberList.h"
#include "util/tensor/Array.h"

namespace trovi::python {

namespace py = pybind11;

template <class V>
inline constexpr bool isTensor = false;
template <class T, std::size_t N>
inline constexpr bool isTensor<util::tensor::Array<T, N>> = true;

// ArrayCaster.cpp has these for signed char, short and bool.

/// Replaces an array's shape and data by those of `source`. As many dimensions as the array has are expected.
/// @return false when `source` or an element of it is of the wrong kind or out of range; the array is then unchanged
/// @throws std::invalid_argument "Input vector dimensions are not consistent."; the array is then unchanged
template <class T>
bool loadArray(py::handle source, std::span<std::uint64_t> dimensions, std::vector<T>& data);

/// Plain lists; with a `place`, the lists of a member that write through (MemberList.h).
/// @throws std::invalid_argument when shape and data disagree
template <class T>
py::object nestedLists(std::span<const std::uint64_t> dimensions, const std::vector<T>& data,
                       const ListPlace* place = nullptr);

/// Replaces a part of the elements, from `offset` on, by a source of exactly these dimensions.
/// @return false for any other source; `data` is then unchanged
/// @throws std::invalid_argument "Input vector dimensions are not consistent."; `data` is then unchanged
/// @throws std::out_of_range when there is no such part any more
template <class T>
bool loadArrayPart(std::vector<T>& data, std::size_t offset, std::vector<std::uint64_t> dimensions, py::handle source);

/// @return false for what can't be an element; `data` is then unchanged
/// @throws std::out_of_range when there is no element at the offset
template <class T>
bool loadArrayElement(std::vector<T>& data, std::size_t offset, py::handle source);

/// "int in [-128, 127]"
template <class T>
std::string arrayElementExpectation();

/// A numpy array of the member `array` of `owner`, which it keeps alive. Writing to it writes to the member, for as
/// long as the member keeps its shape; when it gets another shape, or is replaced with the object around it, the numpy
/// array keeps the old elements and no longer belongs to the object. Elements of type bool are packed and have no
/// addresses, so theirs is a read-only copy.
/// @throws std::invalid_argument when shape and data disagree
template <class T>
py::object numpyArray(std::span<const std::uint64_t> dimensions, std::vector<T>& data, void* array, py::handle owner,
                      TakeContent take);

/// What the binder needs of one array type.
struct TensorOps {
    std::span<const std::uint64_t> (*dimensions)(const void* array);
    py::object (*lists)(const void* array, const ListPlace& place);
    py::object (*element)(const void* array, std::size_t offset);
    bool (*loadElement)(void* array, std::size_t offset, py::handle source);
    bool (*loadPart)(void* array, std::size_t offset, std::vector<std::uint64_t> dimensions, py::handle source);
    std::string (*elementExpectation)();
    py::object (*numpy)(void* array, py::handle owner);
    bool inPlace; ///< numpy() refers to the elements
};

template <class Array>
inline constexpr TensorOps tensorOps = [] {
    using T = typename decltype(Array::data)::value_type;
    const TensorOps ops{
        [](const void* array) { return std::span<const std::uint64_t>(static_cast<const Array*>(array)->dimensions); },
        [](const void* array, const ListPlace& place) {
            const auto& a = *static_cast<const Array*>(array);
            return nestedLists(a.dimensions, a.data, &place);
        },
        [](const void* array, std::size_t offset) -> py::object {
            const T element = static_cast<const Array*>(array)->data[offset];
            return py::cast(element);
        },
        [](void* array, std::size_t offset, py::handle source) {
            return loadArrayElement(static_cast<Array*>(array)->data, offset, source);
        },
        [](void* array, std::size_t offset, std::vector<std::uint64_t> dimensions, py::handle source) {
            return loadArrayPart(static_cast<Array*>(array)->data, offset, std::move(dimensions), source);
        },
        &arrayElementExpectation<T>,
        [](void* array, py::handle owner) {
            auto& a = *static_cast<Array*>(array);
            return numpyArray(a.dimensions, a.data, array, owner, &takeContent<Array>);
        },
        !std::is_same_v<T, bool>};
    return ops;
}();

/// "list of list of int in [-128, 127], or an int8 array of 2 dimensions"
template <class T>
std::string arrayExpectation(std::size_t rank);

/// " of format 'l' and shape (2, 3)" for an object with the buffer protocol; nothing for bytes and any other object.
std::string bufferText(py::handle value);

} // namespace trovi::python

template <class T, std::size_t N>
struct pybind11::detail::type_caster<util::tensor::Array<T, N>> {
    using Array = util::tensor::Array<T, N>;
    PYBIND11_TYPE_CASTER(Array, (make_caster<typename util::tensor::RecursiveVector<T, N>::Internal>::name));

    bool load(handle source, bool) { return trovi::python::loadArray(source, value.dimensions, value.data); }
    static handle cast(const Array& array, return_value_policy, handle)
    {
        return trovi::python::nestedLists(array.dimensions, array.data).release();
    }
};
