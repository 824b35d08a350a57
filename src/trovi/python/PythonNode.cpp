#include "trovi/python/PythonNode.h"

#include <chrono>
#include <stdexcept>
#include <unistd.h>
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

// The interpreter keeps its own table of modules; a submodule that stayed there would be found again, with the proxies
// of another day, when its name is used anew.
void forgetModule(py::handle parent, const char* name)
{
    const std::string full = std::string(PyModule_GetName(parent.ptr())) + "." + name;
    py::dict modules = py::module_::import("sys").attr("modules");
    if (modules.contains(full.c_str()))
        PyDict_DelItemString(modules.ptr(), full.c_str());
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
        const std::lock_guard lock(openStores->mutex);
        openStores->ids.erase(storeId);
    });
}

PythonNode::~PythonNode()
{
    stop(); // the callbacks above use this object's members
    const py::gil_scoped_acquire lock;
    remoteModules.clear();
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

py::module_ PythonNode::makeSubmodule(const char* name, std::uint64_t storeId)
{
    forgetModule(module, name);
    py::module_ submodule =
        py::reinterpret_borrow<py::module_>(module).def_submodule(name, "Automatically generated submodule.");
    submodule.def(
        "is_open",
        [stores = openStores, storeId] {
            const std::lock_guard lock(stores->mutex);
            return stores->ids.contains(storeId);
        },
        "False once the store has announced that it closes.");
    return submodule;
}

// A publisher drops an answer for which it hasn't seen the subscription yet, and a client that has just connected may
// ask faster than it subscribes. So the question is put again after a while, within the one second; any answer will do.
std::vector<ElementDescription> PythonNode::askForContent(std::uint64_t storeId)
{
    const std::string noAnswer = "Store with ID: " + std::to_string(storeId) + " timed out on content request";
    std::vector<std::future<std::vector<ElementDescription>>> answers;
    for (const auto patience : {50ms, 100ms, 200ms, 650ms}) { // one second in all
        {
            const GilRelease release;
            answers.push_back(getStoreContent(channel(), storeId));
        }
        static_cast<void>(waitWithSignals(answers.back(), patience));
        for (auto& answer : answers)
            if (answer.wait_for(0s) == std::future_status::ready)
                return valueOf(answer, noAnswer);
    }
    throw std::runtime_error(noAnswer);
}

void PythonNode::openRemoteNode(std::uint64_t storeId, const char* name)
{
    std::unique_lock oneAtATime(openMutex, std::defer_lock);
    {
        const GilRelease release;
        oneAtATime.lock();
    }
    if (storeId == id())
        throw std::runtime_error("Trying to load local store as remote!");
    if (py::hasattr(module, name))
        throw std::runtime_error("Trying to use an already taken remote store name!");
    if (remoteModules.contains(storeId))
        throw std::runtime_error("Remote store id = " + std::to_string(storeId) + " already bound!");

    opening = true;
    // Whatever becomes of the opening, an empty update then brings on those that were put aside, on a thread that may
    // end the process for what they hold.
    const util::ScopeGuard bringOn([this] {
        opening = false;
        if (!deferred.empty())
            channel().enqueue(messages::Response{id(), StoreCommand::contentUpdate,
                                                 serializeToBuffer(std::string(), std::vector<ElementDescription>())});
    });

    const std::vector<ElementDescription> content = askForContent(storeId);

    util::ScopeGuard undo([&] {
        if (py::hasattr(module, name))
            py::delattr(module, name);
        forgetModule(module, name);
        remoteModules.erase(storeId);
    });
    py::module_ submodule = makeSubmodule(name, storeId);
    remoteModules[storeId] = submodule;
    for (const ElementDescription& element : content)
        Remote::executeBindingRule(submodule, sharedChannel(), element);
    {
        const std::lock_guard lock(openStores->mutex);
        openStores->ids.insert(storeId);
    }
    undo.dismiss();
}

void PythonNode::closeRemoteNode(const char* name)
{
    if (!py::hasattr(module, name))
        throw std::runtime_error("Specified name doesen't exists!");
    const py::object submodule = module.attr(name);
    for (auto i = remoteModules.begin(); i != remoteModules.end(); ++i)
        if (i->second.is(submodule)) {
            remoteModules.erase(i);
            py::delattr(module, name);
            forgetModule(module, name);
            return;
        }
    throw std::runtime_error("Specified submodule is not a remote store proxy!");
}

void PythonNode::updateRemoteElements(const std::vector<ElementDescription>& elements)
{
    for (const ElementDescription& element : elements) {
        // the look-up leaves a null entry for a store that isn't bound, and openRemoteNode() then refuses its id
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

std::shared_ptr<PythonNode> PythonNodeSingleton::instance;
std::vector<std::shared_ptr<PythonNode>> PythonNodeSingleton::retired;
pid_t PythonNodeSingleton::owner = 0;
bool PythonNodeSingleton::ended = false;

void PythonNodeSingleton::end()
{
    ended = true;
    replace(nullptr);
    auto last = std::exchange(retired, {});
    const GilRelease release;
    last.clear();
}

void PythonNodeSingleton::requireInterpreter()
{
    if (ended)
        throw std::runtime_error("The interpreter is exiting: no node can be set up any more.");
}

std::shared_ptr<PythonNode> PythonNodeSingleton::getInstance()
{
    if (!instance || owner != ::getpid())
        throw std::runtime_error("Local node not initialized! Please setup_local_node(...) first!");
    // The last share may be given up by a thread that was inside the node while it was replaced; the lock must be free
    // then.
    return {instance.get(), [share = instance](PythonNode*) mutable {
                const GilRelease release;
                share.reset();
            }};
}

void PythonNodeSingleton::replace(std::shared_ptr<PythonNode> made)
{
    std::shared_ptr<PythonNode> former = std::exchange(instance, std::move(made));
    if (std::exchange(owner, ::getpid()) != ::getpid() && former) {
        new std::shared_ptr<PythonNode>(
            std::move(former)); // its threads are the parent process's: never to be joined here
        return;
    }
    if (former && former->channel().isMyTurn()) {
        retired.push_back(std::move(former));
        return;
    }
    const GilRelease release;
    former.reset();
}

} // namespace trovi::python
