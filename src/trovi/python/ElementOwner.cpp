#include "trovi/python/ElementOwner.h"

#include <functional>
#include <map>

namespace trovi::python {
namespace {

struct ElementOwner {
    void* container;
    TakeContent take;
    py::object owner;
    py::handle self;               // the capsule that this belongs to
    std::shared_ptr<void> content; // taken over
};

// By the address of the container; those that took the content over are not here any more. Never destroyed, as a
// capsule may outlive static objects.
std::map<const void*, ElementOwner*, std::less<>>& attached()
{
    static auto* const table = new std::map<const void*, ElementOwner*, std::less<>>;
    return *table;
}

void destroy(void* pointer)
{
    const std::unique_ptr<ElementOwner> made(static_cast<ElementOwner*>(pointer));
    if (!made->content)
        attached().erase(made->container);
}

} // namespace

py::object elementOwner(void* container, py::handle owner, TakeContent take)
{
    if (const auto found = attached().find(container); found != attached().end())
        return py::reinterpret_borrow<py::object>(found->second->self);
    auto made = std::make_unique<ElementOwner>(
        ElementOwner{container, take, py::reinterpret_borrow<py::object>(owner), {}, nullptr});
    py::capsule capsule(made.get(), &destroy);
    made->self = capsule;
    attached().emplace(container, made.get());
    static_cast<void>(made.release()); // the capsule's now
    return capsule;
}

void setElementsAside(const void* begin, std::size_t size)
{
    auto& table = attached();
    const std::less<> less;
    const void* const end = static_cast<const char*>(begin) + size;
    for (auto at = table.lower_bound(begin); at != table.end() && less(at->first, end); at = table.erase(at))
        at->second->content = at->second->take(at->second->container);
}

py::object handOver(const void* element, const std::type_info& type, void* copy)
{
    using namespace py::detail;
    const type_info* const info = get_type_info(type);
    instance* const found = with_instance_map(element, [&](instance_map& instances) -> instance* {
        const auto range = instances.equal_range(element);
        for (auto at = range.first; at != range.second; ++at)
            if (!at->second->owned && Py_TYPE(at->second) == info->type)
                return at->second;
        return nullptr;
    });
    if (found == nullptr)
        return {};
    value_and_holder value = found->get_value_and_holder(info);
    deregister_instance(found, value.value_ptr(), info);
    value.set_instance_registered(false);
    value.value_ptr() = copy;
    found->owned = true;
    info->init_instance(found, nullptr); // registers the new address, and makes the owner
    return py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(found));
}

} // namespace trovi::python
