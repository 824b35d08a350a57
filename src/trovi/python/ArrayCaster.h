#pragma once
// util::tensor::Array to Python and back, for members, arguments and results. Python gets nested lists, and may give
// nested sequences, or a buffer (a numpy array) whose element type and rank are the array's, with any strides.
//
// Elements go straight between Python's objects and the flat data; a contiguous buffer is copied as a block.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "util/tensor/Array.h"

namespace trovi::python {

namespace py = pybind11;

template <class V>
inline constexpr bool isTensor = false;
template <class T, std::size_t N>
inline constexpr bool isTensor<util::tensor::Array<T, N>> = true;

// ArrayCaster.cpp has these for signed char, short and bool.

/// Replaces an array's shape and data by those of `source`. As many dimensions as the array has are expected.
/// @return false when `source` or an element of it is of the wrong kind or out of range; the array is as it was then
/// @throws std::invalid_argument "Input vector dimensions are not consistent."; the array is as it was then
template <class T>
bool loadArray(py::handle source, std::span<std::uint64_t> dimensions, std::vector<T>& data);

/// @throws std::invalid_argument when shape and data disagree
template <class T>
py::object nestedLists(std::span<const std::uint64_t> dimensions, const std::vector<T>& data);

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
