// Python classes of the object core.

#include "python/Endpoints.h"
#include "python/VornaNode.h"
#include "trovi/BoxedPtr.h"
#include "trovi/Store.h"
#include "trovi/StoreRef.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

namespace py = pybind11;

template <>
inline constexpr bool trovi::python::ownsThreads<VornaNode> = true;

VORNA_BIND_LOCAL(trovi::StoreRef)
VORNA_BIND_LOCAL(trovi::BoxedPtr)
VORNA_BIND_LOCAL(trovi::ElementDescription)
VORNA_BIND_REMOTE(trovi::StoreRef)
VORNA_BIND_REMOTE(trovi::BoxedPtr)

VORNA_BIND_LOCAL_WITH(VornaNode, [](auto& cls) {
    cls.def(py::init([](const std::string& sender, const std::string& receiver, std::uint64_t id) {
                return vorna_python::namingEndpoints(
                    sender, receiver, [&] { return trovi::python::makeHeld<VornaNode>(sender, receiver, id); });
            }),
            py::arg("sender_endpoint"), py::arg("receiver_endpoint"), py::arg("id"),
            "Binds both endpoints and serves the store. A client gives them crossed to setup_local_node.");
    cls.def("close", &VornaNode::stop, py::call_guard<trovi::python::GilRelease>(),
            "Notifies clients that the store closes, ends the node's threads, closes its devices and frees its "
            "endpoints. Harmless a second time. The other methods of a closed node raise RuntimeError.");
    cls.def("__enter__", [](py::object self) {
        self.cast<VornaNode&>().requireOpen();
        return self;
    });
    cls.def("__exit__", [](VornaNode& self, const py::args&) {
        const trovi::python::GilRelease release;
        self.stop();
    });
})
VORNA_BIND_REMOTE(VornaNode)
