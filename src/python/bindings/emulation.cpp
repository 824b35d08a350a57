// Virtual cameras, which make the kit usable without hardware.

#include "emulation/cameras/VirtualCamera.h"
#include "python/Keywords.h"
#include "trovi/python/Local.h"

namespace py = pybind11;
using emulation::ReplayOptions;
using emulation::SceneOptions;
using emulation::VirtualCamera;

template <>
inline constexpr bool trovi::python::isShared<VirtualCamera> = true;

namespace {

std::string pathFrom(const py::object& source)
{
    std::string path;
    if (!trovi::python::loadPath(source, path))
        throw py::type_error("path: expected str or os.PathLike, got " + py::repr(source).cast<std::string>());
    return path;
}

constexpr const char* sceneDoc =
    "Plugs in a virtual camera with a synthetic scene. It is then found as one on USB is, before any real camera of "
    "its "
    "kind. Keyword arguments are the members of vorna.emulation.SceneOptions. As a context "
    "manager the camera is unplugged at the block's end; else it stays until unplug().";
constexpr const char* recordingDoc =
    "Plugs in a virtual camera that plays a recording: a .polarity, .evt3.raw, .aedat (AEDAT 3.1) or 5-byte .bin file. "
    "Keyword arguments are the members of vorna.emulation.ReplayOptions. Damage beyond the file's beginning ends the "
    "recording there and shows in damage().";

void definePlugs(py::module_& module, const char* camera,
                 std::shared_ptr<VirtualCamera> (*plugScene)(const SceneOptions&),
                 std::shared_ptr<VirtualCamera> (*plugRecording)(const std::string&, const ReplayOptions&))
{
    const std::string name = std::string("plug_virtual_") + camera;
    module.def(name.c_str(), plugScene, py::arg("scene"), "The same, with the options in one object.");
    module.def(
        name.c_str(), [=](const py::kwargs& keywords) { return plugScene(optionsFrom<SceneOptions>(keywords)); },
        sceneDoc);
    module.def(
        (name + "_recording").c_str(),
        [=](const py::object& path, const ReplayOptions& options) { return plugRecording(pathFrom(path), options); },
        py::arg("path"), py::arg("options"), "The same, with the options in one object.");
    module.def((name + "_recording").c_str(),
               [=](const py::object& path, const py::kwargs& keywords) {
                   return plugRecording(pathFrom(path), optionsFrom<ReplayOptions>(keywords));
               },
               py::arg("path"), recordingDoc);
}

} // namespace

VORNA_BIND_LOCAL(emulation::SceneOptions)
VORNA_BIND_LOCAL(emulation::ReplayOptions)
VORNA_BIND_LOCAL_WITH(emulation::VirtualCamera, [](auto& cls) {
    cls.def("__enter__", [](py::object self) { return self; });
    cls.def("__exit__", [](VirtualCamera& self, const py::args&) { self.unplug(); });
})

// After the classes, so that the signatures show them by their Python names.
VORNA_BINDING("trovi_bind_local_type_emulation_functions", [](py::module_& root) {
    py::module_ module = trovi::python::bindingDetails("emulation::", root).first;
    definePlugs(module, "davis", &emulation::plugVirtualDavis, &emulation::plugVirtualDavisRecording);
    definePlugs(module, "dvxplorer", &emulation::plugVirtualDvXplorer, &emulation::plugVirtualDvXplorerRecording);
    module.def("virtual_cameras", &emulation::virtualCameras,
               "The virtual cameras that are plugged in, in order of plugging.");
    module.def("unplug_all_virtual_cameras", &emulation::unplugAllVirtualCameras, "Unplugs every virtual camera.");
})
