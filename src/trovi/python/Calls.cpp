#include "trovi/python/Calls.h"

#include <string_view>

namespace trovi::python::detail {
namespace {

// The type of the argument in "(self: vorna.X, events: List[vorna.Y]) -> None", and for a list that of its elements.
std::string_view expectedElement(std::string_view signature, std::size_t argument)
{
    std::size_t begin = signature.find('(') + 1;
    std::size_t depth = 0;
    for (std::size_t at = begin; at < signature.size(); ++at) {
        const char c = signature[at];
        if (c == '[' || c == '(')
            ++depth;
        if ((c == ',' || c == ')') && depth == 0) {
            if (argument-- == 0) {
                std::string_view type = signature.substr(begin, at - begin);
                type = type.substr(type.find(": ") + 2);
                const std::size_t bracket = type.find('[');
                return bracket == std::string_view::npos ? type : type.substr(bracket + 1, type.size() - bracket - 2);
            }
            begin = at + 2;
        } else if (c == ']' || c == ')') {
            --depth;
        }
    }
    return "an object";
}

// A None among the objects of a list is what conversion stumbles over.
void throwForNone(const py::detail::function_call& call)
{
    for (std::size_t argument = 0; argument < call.args.size(); ++argument) {
        const py::handle list = call.args[argument];
        if (PyList_Check(list.ptr()) == 0 && PyTuple_Check(list.ptr()) == 0)
            continue;
        const auto items = py::reinterpret_borrow<py::sequence>(list);
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (!py::object(items[i]).is_none())
                continue;
            const auto& names = call.func.args;
            const bool named = argument < names.size() && names[argument].name != nullptr;
            throwWrongValue(std::string(call.func.name) +
                                "(): " + (named ? names[argument].name : "argument " + std::to_string(argument)) + "[" +
                                std::to_string(i) + "]",
                            std::string(expectedElement(call.func.signature, argument)), items[i]);
        }
    }
}

} // namespace

bool loadsArguments(void* loader, py::detail::function_call& call, bool (*load)(void*, py::detail::function_call&))
{
    try {
        return load(loader, call);
    } catch (const py::reference_cast_error&) {
        throwForNone(call);
        return false;
    }
}

py::handle castShared(std::shared_ptr<void> owner, py::handle instance)
{
    // One share for each Python object, however often it is handed out. pybind11 keeps the share in the object's list
    // of patients, so it must be added only when the object has just been made.
    if (instance && Py_REFCNT(instance.ptr()) == 1) {
        const py::capsule share(new std::shared_ptr<void>(std::move(owner)),
                                [](void* p) { delete static_cast<std::shared_ptr<void>*>(p); });
        py::detail::keep_alive_impl(instance, share);
    }
    return instance;
}

} // namespace trovi::python::detail
