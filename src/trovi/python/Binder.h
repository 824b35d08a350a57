#pragma once
// The list of everything that becomes Python API. Static initialisers of the binding files fill it, without any Python
// call; the module's entry then runs it in ascending key order, so that free functions come before local types and
// those before remote ones.

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <pybind11/pybind11.h>

#include "trovi/python/Integers.h" // for every file that binds something

namespace trovi::python {

namespace py = pybind11;

class Binder {
public:
    using BindingFunction = std::function<void(py::module_&)>;

    static Binder& getInstance();

    /// @return true, to initialise the file-scope boolean that registers
    /// @throws std::runtime_error when the key is taken, which at load ends the process: two files bind one type
    bool addBindingFunction(const std::string& key, const BindingFunction& function);

    /// Runs every function, in key order. Needs the interpreter lock.
    void bindModule(py::module_& module);

    /// Binds the type of this registered name now, if it is to be bound at all: the signatures and bases of other
    /// classes then show it by its Python name. Only good while bindModule() runs.
    void bindLocalTypeEarly(const std::string& registeredName);

private:
    Binder() = default;

    std::map<std::string, BindingFunction> functions;
    py::module_* bound = nullptr; // the module under construction
};

/// The innermost module for the namespaces of `typeName`, made where missing, and the last piece of the name.
/// @throws std::runtime_error when a namespace is taken by something that isn't a module
std::pair<py::module_, std::string> bindingDetails(std::string_view typeName, py::module_ module);

} // namespace trovi::python
