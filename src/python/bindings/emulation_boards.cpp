// Emulated boards: plugged in by a line of a script, and then found and opened as those on USB are.

#include <string_view>

#include "emulation/boards/VirtualBoards.h"
#include "python/Keywords.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Local.h"

namespace py = pybind11;
using emulation::VirtualBoard;
using emulation::VirtualDevKit;
using emulation::VirtualOpalKelly;
using emulation::WireFault;

template <>
inline constexpr bool trovi::python::isShared<emulation::MemoryChip> = true;
template <>
inline constexpr bool trovi::python::isShared<VirtualBoard> = true;
template <>
inline constexpr bool trovi::python::isShared<VirtualDevKit> = true;
template <>
inline constexpr bool trovi::python::isShared<VirtualOpalKelly> = true;

namespace {

template <class Options, class VirtualKind>
void definePlug(py::module_& module, const char* name, std::shared_ptr<VirtualKind> (*plug)(const Options&),
                const char* doc)
{
    module.def(name, plug, py::arg("options"), py::call_guard<trovi::python::GilRelease>(),
               "The same, with the options in one object.");
    module.def(
        name,
        [plug](const py::kwargs& keywords) {
            const auto options = optionsFrom<Options>(keywords);
            const trovi::python::GilRelease waiting;
            return plug(options);
        },
        doc);
}

} // namespace

VORNA_BIND_ENUM(emulation::ChipKind)
VORNA_BIND_ENUM(emulation::FaultKind)
VORNA_BIND_LOCAL(emulation::DevKitOptions)
VORNA_BIND_LOCAL(emulation::OpalKellyOptions)
VORNA_BIND_LOCAL(emulation::BoardCounters)
VORNA_BIND_LOCAL(emulation::WireFault)
VORNA_BIND_LOCAL(emulation::MemoryChip)
VORNA_BIND_LOCAL_WITH(emulation::VirtualBoard, [](auto& cls) {
    cls.def(
        "inject_fault",
        [](VirtualBoard& self, const py::kwargs& keywords) { self.injectFault(optionsFrom<WireFault>(keywords)); },
        "The same, with the fault's members as keyword arguments.");
    cls.def("__enter__", [](py::object self) { return self; });
    cls.def("__exit__", [](VirtualBoard& self, const py::args&) {
        const trovi::python::GilRelease waiting;
        self.unplug();
    });
})
VORNA_BIND_LOCAL_WITH(emulation::VirtualDevKit, [](auto& cls) {
    cls.def(
        "set_flash_bytes",
        [](VirtualDevKit& self, std::uint32_t address, const py::bytes& bytes) {
            const std::string_view content = bytes;
            self.setFlashBytes(address, {content.begin(), content.end()});
        },
        py::arg("address"), py::arg("bytes"), "The same, with a bytes object, as a file's content.");
})
VORNA_BIND_LOCAL(emulation::VirtualOpalKelly)

// After the classes, so that the signatures show them by their Python names.
VORNA_BINDING("trovi_bind_local_type_emulation_functions_of_boards", [](py::module_& root) {
    py::module_ module = trovi::python::bindingDetails("emulation::", root).first;
    definePlug(module, "plug_virtual_dev_kit", &emulation::plugVirtualDevKit,
               "Plugs an emulated dev kit in; it is then found as one on USB would be. Keyword arguments are the "
               "members of vorna.emulation.DevKitOptions. As a context manager the kit is unplugged at the block's "
               "end; else it stays until unplug(). RuntimeError, with a remedy, where the libusb of this process "
               "can't be used for it.");
    definePlug(module, "plug_virtual_opal_kelly", &emulation::plugVirtualOpalKelly,
               "Plugs an emulated Opal Kelly board in. Keyword arguments are the members of "
               "vorna.emulation.OpalKellyOptions; else as plug_virtual_dev_kit().");
    module.def("virtual_boards", &emulation::virtualBoards, py::call_guard<trovi::python::GilRelease>(),
               "The emulated boards that are plugged in, in order of plugging.");
    module.def("unplug_all_virtual_boards", &emulation::unplugAllVirtualBoards,
               py::call_guard<trovi::python::GilRelease>(), "Unplugs every emulated board.");
})
