#include "trovi/python/ErasedFunction.h"

#include <string_view>
#include <utility>

#include "trovi/Names.h"
#include "trovi/python/GilRelease.h"

namespace trovi::python {
namespace {

std::vector<std::string> argumentNames(std::string_view list)
{
    std::vector<std::string> names;
    while (!list.empty()) {
        const std::size_t comma = list.find(", ");
        const std::string_view name = list.substr(0, comma);
        names.push_back(name.size() == 1 ? std::string(name) : pythonName(name)); // M and L stay M and L
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 2);
    }
    return names;
}

class ErasedFunction : public py::cpp_function {
public:
    explicit ErasedFunction(const FunctionDescription& d)
    {
        auto owner = make_function_record();
        py::detail::function_record& record = *owner;
        record.name = const_cast<char*>(d.name); // copied by initialize_generic
        record.doc = const_cast<char*>(d.doc);
        record.impl = d.implementation;
        std::copy(std::begin(d.data), std::end(d.data), std::begin(record.data));
        record.nargs = static_cast<std::uint16_t>(d.arity);
        record.has_kwargs = d.hasKeywords;
        record.nargs_pos = static_cast<std::uint16_t>(d.arity - (d.hasKeywords ? 1 : 0));
        record.is_new_style_constructor = d.isConstructor;
        record.is_method = d.isMethod;
        record.is_operator = d.isOperator;
        record.scope = d.scope;
        const py::object sibling =
            d.scope ? py::getattr(d.scope, d.name, py::none()) : py::reinterpret_borrow<py::object>(py::none());
        record.sibling = sibling;

        const std::vector<std::string> names = argumentNames(d.arguments);
        const std::size_t positional = d.arity - (d.isMethod ? 1 : 0);
        if (!names.empty() && names.size() == positional) {
            if (d.isMethod)
                record.args.emplace_back("self", nullptr, py::handle(), true, false);
            for (const std::string& name : names)
                record.args.emplace_back(name.c_str(), nullptr, py::handle(), true, true);
        }
        initialize_generic(std::move(owner), d.signature.text.c_str(), d.signature.types.data(), d.arity);
    }
};

} // namespace

py::cpp_function makeFunction(const FunctionDescription& description)
{
    const ErasedFunction made(description);
    return static_cast<const py::cpp_function&>(made);
}

void addMethod(py::handle cls, FunctionDescription description)
{
    description.isMethod = true;
    description.scope = cls;
    const py::cpp_function made = makeFunction(description);
    py::setattr(cls, description.name, made);
    // as Python itself does for a class that defines equality
    if (std::strcmp(description.name, "__eq__") == 0 && !cls.attr("__dict__").contains("__hash__"))
        py::setattr(cls, "__hash__", py::none());
}

bool loadPath(py::handle source, std::string& path)
{
    auto text = py::reinterpret_steal<py::object>(withoutUnwinding([source] { return PyOS_FSPath(source.ptr()); }));
    py::detail::make_caster<std::string> caster;
    if (!text) {
        PyErr_Clear();
        return false;
    }
    if (!caster.load(text, true))
        return false;
    path = py::detail::cast_op<std::string&>(caster);
    if (path.find('\0') != std::string::npos)
        throw py::value_error("A path must not hold a zero byte.");
    return true;
}

void* loadInstance(py::handle source, const std::type_info& type)
{
    py::detail::type_caster_generic caster(type);
    return caster.load(source, false) ? caster.value : nullptr;
}

} // namespace trovi::python
