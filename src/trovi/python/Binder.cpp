#include "trovi/python/Binder.h"

#include <stdexcept>
#include <utility>

#include "trovi/Names.h"

namespace trovi::python {

Binder& Binder::getInstance()
{
    static Binder instance;
    return instance;
}

bool Binder::addBindingFunction(const std::string& key, const BindingFunction& function)
{
    if (!functions.try_emplace(key, function).second)
        throw std::runtime_error("Binding function for \"" + key + "\" was already registered!\n");
    return true;
}

void Binder::bindModule(py::module_& module)
{
    bound = &module;
    for (const auto& [key, function] : functions)
        function(module);
    bound = nullptr;
}

void Binder::bindLocalTypeEarly(const std::string& registeredName)
{
    const auto found = functions.find("trovi_bind_local_type_" + registeredName);
    if (bound != nullptr && found != functions.end())
        found->second(*bound);
}

std::pair<py::module_, std::string> bindingDetails(std::string_view typeName, py::module_ module)
{
    const std::vector<std::string> pieces = splitNamespaceString(typeName);
    py::module_ current = std::move(module);
    for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        const char* const name = pieces[i].c_str();
        if (py::hasattr(current, name)) {
            py::object attribute = current.attr(name);
            if (!PyModule_Check(attribute.ptr()))
                throw std::runtime_error("An invalid namespace has been bound at compile time!");
            current = py::reinterpret_borrow<py::module_>(attribute);
        } else {
            current = current.def_submodule(name);
        }
    }
    return {current, pieces.back()};
}

} // namespace trovi::python
