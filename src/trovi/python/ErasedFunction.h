#pragma once
// Python functions made from tables. pybind11's own cpp_function compiles much code for each bound function; here the
// large part is compiled once, and a signature adds only the conversion of its arguments and result. Overload choice,
// keyword names, arity checks and typed signatures in docstrings are still pybind11's.

#include <cstring>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "trovi/python/Binder.h"

namespace trovi::python {

/// Text of a signature in pybind11's form, "({%}, {int}) -> None", with a type for each %.
struct SignatureText {
    std::string text;
    std::vector<const std::type_info*> types; // ended by a null
};

/// The text of one type, "int" or "%" with its type.
template <class V>
SignatureText typeText()
{
    constexpr auto name = py::detail::make_caster<V>::name;
    const auto types = decltype(name)::types();
    return {name.text, {types.begin(), types.end()}};
}

using FunctionImplementation = py::handle (*)(py::detail::function_call&);

struct FunctionDescription {
    const char* name = "";
    const char* doc = "";
    const char* arguments = ""; ///< names without self, "a, b"; empty: unnamed
    SignatureText signature;
    std::size_t arity = 0; ///< with self
    FunctionImplementation implementation = nullptr;
    void* data[3] = {};
    bool isMethod = false;
    bool isConstructor = false; ///< the first argument is the place for the object
    bool hasKeywords = false;   ///< the last argument is the dict of keyword arguments
    bool isOperator = false;    ///< gives NotImplemented instead of an error when no overload fits
    py::handle scope = {};      ///< the class or module; an attribute of the same name is chained as an overload
};

/// Makes the function, chained to what the scope has under its name.
py::cpp_function makeFunction(const FunctionDescription& description);

/// Makes a method and sets it as an attribute of the class.
void addMethod(py::handle cls, FunctionDescription description);

/// Object of `type` in `source`, or null.
void* loadInstance(py::handle source, const std::type_info& type);

/// A path given as text or as anything that os.fspath takes; false for anything else.
bool loadPath(py::handle source, std::string& path);

} // namespace trovi::python
