#pragma once
// numpy arrays over memory of ours. numpy's own functions make them, not <pybind11/numpy.h>: that one gives up the
// interpreter lock on its first use, by the class that GilRelease.h warns of, and ends a process that exits meanwhile.

#include <cstddef>

#include <pybind11/pybind11.h>

namespace trovi::python {

namespace py = pybind11;

class NumpyArray : public py::object {
public:
    /// The `size` bytes at `data` as elements of `dtype` (anything that numpy.dtype() takes) in this shape. Imports
    /// numpy. The array keeps `owner` alive.
    NumpyArray(const void* data, std::size_t size, const py::object& dtype, const py::tuple& shape,
               const py::object& owner, bool writable);
};

} // namespace trovi::python

template <>
struct pybind11::detail::handle_type_name<trovi::python::NumpyArray> {
    static constexpr auto name = const_name("numpy.ndarray");
};
