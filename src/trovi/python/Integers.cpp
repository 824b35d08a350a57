#include "trovi/python/Integers.h"

#include "trovi/python/GilRelease.h"

namespace trovi::python {
namespace {

namespace py = pybind11;

// Null for what isn't an integer.
py::object indexOf(py::handle source)
{
    if (PyLong_Check(source.ptr()))
        return py::reinterpret_borrow<py::object>(source);
    auto index = py::reinterpret_steal<py::object>(
        source ? withoutUnwinding([source] { return PyNumber_Index(source.ptr()); }) : nullptr);
    if (!index)
        PyErr_Clear();
    return index;
}

} // namespace

bool loadSigned(py::handle source, long long lowest, long long highest, long long& value)
{
    const py::object index = indexOf(source);
    if (!index)
        return false;
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
    if (overflow != 0 || number < lowest || number > highest)
        return false;
    value = number;
    return true;
}

bool loadUnsigned(py::handle source, unsigned long long highest, unsigned long long& value)
{
    const py::object index = indexOf(source);
    if (!index)
        return false;
    const unsigned long long number = PyLong_AsUnsignedLongLong(index.ptr());
    if (PyErr_Occurred() != nullptr) { // negative or too large
        PyErr_Clear();
        return false;
    }
    if (number > highest)
        return false;
    value = number;
    return true;
}

} // namespace trovi::python
