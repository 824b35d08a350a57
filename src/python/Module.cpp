// The entry of the extension module.

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <string_view>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "device/Log.h"
#include "python/Endpoints.h"
#include "trovi/python/Binder.h"
#include "trovi/python/LiveObjects.h"
#include "trovi/python/PythonNodeSingleton.h"

namespace {

namespace py = pybind11;
using trovi::python::LiveObjects;
using trovi::python::PythonNode;
using trovi::python::PythonNodeSingleton;

#define VORNA_TEXT_(x) #x
#define VORNA_TEXT(x) VORNA_TEXT_(x)
constexpr std::string_view builtFor = VORNA_TEXT(PY_MAJOR_VERSION) "." VORNA_TEXT(PY_MINOR_VERSION);

// "3.9.2 (default, ...)" is a 3.9, "3.90" isn't.
bool isBuiltFor(std::string_view version)
{
    return version.starts_with(builtFor) && (version.size() == builtFor.size() ||
                                             std::isdigit(static_cast<unsigned char>(version[builtFor.size()])) == 0);
}

constexpr const char* setupLocalNodeDoc =
    R"( Creates the trovi node associated to the python interpreter.

    Parameters:
        sender_endpoint: TCP endpoint where requests are SENT. Example "tcp://0.0.0.0:12345"
        requests_endpoint: TCP endpoint where requests are RECEIVED. Example "tcp://0.0.0.0:12345"
        nodeID: ID associated to the interpreter node.

    Returns:
        Nothing.
)";

constexpr const char* openRemoteNodeDoc =
    R"( Retrieves the content of a remote store by its ID.
    Creates a submodule 'name' with instances that will allow the interaction with objects in the remote store.

    Parameters:
        nodeID: ID associated to the remote node.
        name: Name that should be given to the submodule holding remote content proxies.

    Returns:
        Nothing.

    Throws:
        If the nodeID is not reacheable (tip: check the ZMQ endpoints and their order).
        If the chosen name is already in use.
)";

constexpr const char* closeRemoteNodeDoc =
    R"( Removes the content of an already bound remote store by its name.

    Parameters:
        name: Name with which the remote store was registered.

    Returns:
        Nothing.

    Throws:
        If the chosen name doesen't exist.
        If the chosen name refers to a module that doesen't hold a remote store content.
)";

void defineNodeFunctions(py::module_& module)
{
    const py::handle root = module; // the module outlives its functions
    module.def(
        "setup_local_node",
        [root](const std::string& senderEndpoint, const std::string& requestsEndpoint, std::uint64_t nodeId) {
            PythonNodeSingleton::requireInterpreter();
            PythonNodeSingleton::replace(vorna_python::namingEndpoints(senderEndpoint, requestsEndpoint, [&] {
                return std::make_shared<PythonNode>(senderEndpoint, requestsEndpoint, nodeId, root);
            }));
        },
        py::arg("sender_endpoint"), py::arg("requests_endpoint"), py::arg("nodeID"), setupLocalNodeDoc);
    module.def(
        "open_remote_node",
        [](std::uint64_t nodeId, const std::string& name) {
            PythonNodeSingleton::getInstance()->openRemoteNode(nodeId, name);
        },
        py::arg("nodeID"), py::arg("name"), openRemoteNodeDoc);
    module.def(
        "close_remote_node", [](const std::string& name) { PythonNodeSingleton::getInstance()->closeRemoteNode(name); },
        py::arg("name"), closeRemoteNodeDoc);
}

// With protocols 0 and 1 Python makes an instance of the last base class that is written in C. That of all bound
// classes ends the process when it is made. Protocol 2 has a better way, which older protocols can write as well.
void pickleByProtocol2()
{
    const py::handle base = reinterpret_cast<PyObject*>(py::detail::get_internals().instance_base);
    const py::handle object = reinterpret_cast<PyObject*>(&PyBaseObject_Type);
    base.attr("__reduce_ex__") =
        py::cpp_function([object](const py::handle self,
                                  int protocol) { return object.attr("__reduce_ex__")(self, std::max(protocol, 2)); },
                         py::name("__reduce_ex__"), py::is_method(base));
}

// Everything with threads is stopped while Python is alive: first the interpreter's own node, whose dispatcher calls
// into Python, then the rest, newest first.
void stopEverything()
{
    PythonNodeSingleton::end();
    LiveObjects::stopAll();
}

void bindAll(py::module_& module)
{
    module.attr("__version__") = VORNA_VERSION;
    device::logErrorsToStandardError();
    defineNodeFunctions(module);
    trovi::python::Binder::getInstance().bindModule(module);
    pickleByProtocol2();
    py::module_::import("atexit").attr("register")(py::cpp_function(&stopEverything));
    if (!py::module_::import("sys").attr("stdout").is_none()) // as under a windowed or detached interpreter
        py::print("finished bindings");
}

} // namespace

extern "C" PYBIND11_EXPORT PyObject* PyInit_vorna()
{
    const char* const version = Py_GetVersion();
    if (!isBuiltFor(version)) {
        PyErr_Format(PyExc_ImportError,
                     "Python version mismatch: module was compiled for Python %s, "
                     "but the interpreter version is incompatible: %s.",
                     std::string(builtFor).c_str(), version);
        return nullptr;
    }
    py::detail::get_internals();
    static py::module_::module_def definition;
    auto module = py::module_::create_extension_module("vorna", nullptr, &definition);
    try {
        bindAll(module);
        return module.release().ptr();
    } catch (py::error_already_set& error) {
        py::raise_from(error, PyExc_ImportError, error.what());
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_ImportError, error.what());
    }
    return nullptr;
}
