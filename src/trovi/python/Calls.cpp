#include "trovi/python/Calls.h"

namespace trovi::python::detail {

py::handle castShared(std::shared_ptr<void> owner, py::handle instance)
{
    // One share for each Python object, however often it is handed out: it sits in the object's own dictionary-free
    // patient list, so it must be added only when the object was made just now.
    if (instance && Py_REFCNT(instance.ptr()) == 1) {
        const py::capsule share(new std::shared_ptr<void>(std::move(owner)),
                                [](void* p) { delete static_cast<std::shared_ptr<void>*>(p); });
        py::detail::keep_alive_impl(instance, share);
    }
    return instance;
}

} // namespace trovi::python::detail
