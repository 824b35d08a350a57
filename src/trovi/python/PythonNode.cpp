#include "trovi/python/PythonNode.h"

#include <chrono>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "trovi/Dispatcher.h"
#include "trovi/Serial.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Remote.h"
#include "trovi/python/Waiting.h"
#include "util/ScopeGuard.h"

namespace trovi::python {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t pollIntervalMs = 100;

// The interpreter keeps a table of modules. A submodule that stayed there would be found again, with its old proxies,
// when a new one gets the name.
void forgetModule(py::handle parent, const std::string& name)
{
    const std::string full = std::string(PyModule_GetName(parent.ptr())) + "." + name;
    py::dict modules = py::module_::import("sys").attr("modules");
    if (modules.contains(full.c_str()))
        PyDict_DelItemString(modules.ptr(), full.c_str());
}

// A dot would name a module inside another one, and replace it.
void requirePlainName(const std::string& name)
{
    if (name.empty() || name.find_first_of(std::string_view(".\0", 2)) != std::string::npos)
        throw std::runtime_error("The name of a remote store must not be empty, nor hold a dot or a zero byte.");
}

} // namespace

PythonNode::PythonNode(const std::string& senderEndpoint, const std::string& requestsEndpoint, std::uint64_t id,
                       py::handle module)
    : TroviNode(senderEndpoint, requestsEndpoint, id, pollIntervalMs), module(module)
{
    dispatcher().setOnResponseMessageCommandCallback(StoreCommand::contentUpdate,
                                                     [this](std::istream& stream) { contentUpdated(stream); });
    dispatcher().setOnResponseMessageCommandCallback(StoreCommand::storeClosed, [this](std::istream& stream) {
        const auto storeId = deserializeElement<std::uint64_t>(stream);
        const util::Lock lock(openStores->mutex);
        openStores->ids.erase(storeId);
    });
}

PythonNode::~PythonNode()
{
    stop(); // the callbacks above use this object's members
}

void PythonNode::contentUpdated(std::istream& stream)
{
    auto elements = deserializeElement<std::vector<ElementDescription>>(stream);
    const py::gil_scoped_acquire lock;
    deferred.push_back(std::move(elements));
    if (!opening)
        for (const auto& update : std::exchange(deferred, {}))
            updateRemoteElements(update);
}

py::module_ PythonNode::makeSubmodule(const std::string& name, std::uint64_t storeId)
{
    forgetModule(module, name);
    py::module_ submodule =
        py::reinterpret_borrow<py::module_>(module).def_submodule(name.c_str(), "Automatically generated submodule.");
    submodule.def(
        "is_open",
        [stores = openStores, storeId] {
            const util::Lock lock(stores->mutex);
            return stores->ids.contains(storeId);
        },
        "False once the store has announced that it closes.");
    return submodule;
}

void PythonNode::removeSubmodule(const std::string& name)
{
    py::delattr(module, name.c_str());
    forgetModule(module, name);
}

// A publisher drops an answer for which it hasn't seen the subscription yet, and a client that has just connected may
// ask faster than it subscribes. So the question is repeated within the one second; any answer will do.
std::vector<ElementDescription> PythonNode::askForContent(std::uint64_t storeId)
{
    std::vector<std::future<std::vector<ElementDescription>>> answers;
    for (const auto patience : {50ms, 100ms, 150ms, 200ms, 250ms, 250ms}) { // one second in all
        {
            const GilRelease release;
            answers.push_back(getStoreContent(channel(), storeId));
        }
        static_cast<void>(waitWithSignals(answers.back(), patience));
        for (auto& answer : answers)
            if (answer.wait_for(0s) == std::future_status::ready)
                return valueOf(answer);
    }
    throw std::runtime_error("Store with ID: " + std::to_string(storeId) + " timed out on content request");
}

void PythonNode::openRemoteNode(std::uint64_t storeId, const std::string& name)
{
    {
        const GilRelease release;
        openMutex.lock();
    }
    const util::Lock oneAtATime(openMutex, std::adopt_lock);
    if (storeId == id())
        throw std::runtime_error("Trying to load local store as remote!");
    requirePlainName(name);
    if (py::hasattr(module, name.c_str()))
        throw std::runtime_error("Trying to use an already taken remote store name!");
    if (remoteModules.contains(storeId))
        throw std::runtime_error("Remote store id = " + std::to_string(storeId) + " already bound!");

    opening = true;
    // Whether opening succeeds or fails, an empty update then triggers those that were deferred. They are handled in
    // the channel's turn, where an exception ends the process.
    const util::ScopeGuard handleDeferred([this] {
        opening = false;
        if (!deferred.empty())
            channel().enqueue(messages::Response{id(), StoreCommand::contentUpdate,
                                                 serializeToBuffer(std::string(), std::vector<ElementDescription>())});
    });

    const std::vector<ElementDescription> content = askForContent(storeId);

    util::ScopeGuard undo([&] {
        if (py::hasattr(module, name.c_str()))
            removeSubmodule(name);
        remoteModules.erase(storeId);
    });
    py::module_ submodule = makeSubmodule(name, storeId);
    remoteModules[storeId] = submodule;
    for (const ElementDescription& element : content)
        Remote::executeBindingRule(submodule, sharedChannel(), element);
    {
        const util::Lock lock(openStores->mutex);
        openStores->ids.insert(storeId);
    }
    undo.dismiss();
}

void PythonNode::closeRemoteNode(const std::string& name)
{
    const py::str key(name); // with its zero bytes, if any
    if (!py::hasattr(module, key))
        throw std::runtime_error("Specified name doesen't exists!");
    const py::object submodule = module.attr(key);
    for (auto i = remoteModules.begin(); i != remoteModules.end(); ++i)
        if (i->second.is(submodule)) {
            remoteModules.erase(i);
            removeSubmodule(name);
            return;
        }
    throw std::runtime_error("Specified submodule is not a remote store proxy!");
}

void PythonNode::updateRemoteElements(const std::vector<ElementDescription>& elements)
{
    for (const ElementDescription& element : elements) {
        // the lookup leaves a null entry for a store that isn't bound; openRemoteNode() then refuses its id
        const py::object bound = remoteModules[element.ref.storeId];
        if (!bound)
            continue;
        auto submodule = py::reinterpret_borrow<py::module_>(bound);
        if (element.change == ElementDescription::added)
            Remote::executeBindingRule(submodule, sharedChannel(), element);
        else if (element.change == ElementDescription::removed && py::hasattr(submodule, element.name.c_str()))
            py::delattr(submodule, element.name.c_str());
    }
}

} // namespace trovi::python
