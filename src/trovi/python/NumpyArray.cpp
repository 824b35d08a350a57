#include "trovi/python/NumpyArray.h"

#include <cstdint>

#include "trovi/python/GilRelease.h"

namespace trovi::python {
namespace {

py::object import(const char* name)
{
    auto module = py::reinterpret_steal<py::object>(withoutUnwinding([name] { return PyImport_ImportModule(name); }));
    if (!module)
        throw py::error_already_set();
    return module;
}

} // namespace

NumpyArray::NumpyArray(const void* data, std::size_t size, const py::object& dtype, const py::tuple& shape,
                       const py::object& owner, bool writable)
{
    static constexpr char nothing = 0; // numpy takes no null
    const auto address = reinterpret_cast<std::uintptr_t>(data != nullptr ? data : &nothing);
    py::dict bytes; // numpy's array interface
    bytes["shape"] = py::make_tuple(py::int_(size));
    bytes["typestr"] = "|u1";
    bytes["data"] = py::make_tuple(py::int_(address), !writable);
    bytes["version"] = 3;
    const py::object memory =
        import("types").attr("SimpleNamespace")(py::arg("__array_interface__") = bytes, py::arg("owner") = owner);
    py::object array = import("numpy").attr("asarray")(memory);
    static_cast<py::object&>(*this) = array.attr("view")(dtype).attr("reshape")(shape);
}

} // namespace trovi::python
