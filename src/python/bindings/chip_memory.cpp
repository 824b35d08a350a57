// Python classes of a chip in memory and of a model over it. Compiled once for each family.

#include "python/VornaNode.h"
#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER(MemoryChip)
#include VORNA_FAMILY_HEADER(Model)
#include "trovi/python/Local.h"

template <>
inline constexpr bool trovi::python::isShared<VORNA_FAMILY::MemoryChip> = true;
template <>
inline constexpr bool trovi::python::ownsThreads<VORNA_FAMILY::MemoryModel> = true;

VORNA_BIND_LOCAL_WITH(VORNA_FAMILY::MemoryChip, [](auto& cls) {
    trovi::python::bindEarly<VornaNode>();
    using Chip = VORNA_FAMILY::MemoryChip;
    using Model = VORNA_FAMILY::VORNA_FAMILY_NAME(Model);
    cls.def(
        "open_model",
        [](std::shared_ptr<Chip> chip, VornaNode& node, const std::string& name) {
            using Device = VORNA_FAMILY::MemoryDeviceAPI;
            node.openDevice(name, std::make_unique<Model>(std::make_unique<Device>(std::move(chip))));
        },
        pybind11::arg("node"), pybind11::arg("name"), pybind11::call_guard<trovi::python::GilRelease>(),
        "Makes a model over this chip and puts it in the node's store under this name, where clients drive it by "
        "proxy.\n"
        "It runs until the node closes. Of two models over one chip, each answer reaches one.");
})
VORNA_BIND_LOCAL_WITH(VORNA_FAMILY::MemoryModel, [](auto& cls) {
    using Model = VORNA_FAMILY::MemoryModel;
    trovi::python::bindEarly<VORNA_FAMILY::MemoryChip>();
    cls.def(pybind11::init([](std::shared_ptr<VORNA_FAMILY::MemoryChip> chip) {
                return trovi::python::makeHeld<Model>(std::move(chip));
            }),
            pybind11::arg("chip"), "A model over this chip; it runs from here on.");
    cls.def("__enter__", [](pybind11::object self) { return self; });
    cls.def("__exit__", [](Model& self, const pybind11::args&) {
        const trovi::python::GilRelease release;
        self.stop();
    });
})
