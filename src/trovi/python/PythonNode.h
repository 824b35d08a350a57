#pragma once
// The client node of an interpreter: it turns the content of remote stores into submodules of proxies.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <pybind11/pybind11.h>

#include "trovi/Node.h"

namespace trovi::python {

namespace py = pybind11;

/// Threads. Its own: the base's receiver and dispatcher. Python threads call openRemoteNode() and closeRemoteNode()
/// with the interpreter lock held. The dispatcher takes the interpreter lock to serve a `contentUpdate`, so nobody may
/// wait for the dispatcher with that lock held:
///   - openRemoteNode() gives the lock up while it waits. For the store's content to be bound before any update of it,
///     updates are then put aside, in order, and acted on when the opener is done;
///   - the node is destroyed with the lock released (PythonNodeSingleton sees to that).
/// Locks: openMutex (one opener at a time; taken with the interpreter lock released, before it), then the interpreter
/// lock, which guards `remoteModules`, `opening` and `deferred`; openStores' mutex is innermost and held for a look
/// only.
class PythonNode : public TroviNode<Subscriber, Pusher> {
public:
    /// Connects at once; a server that isn't there yet is no error.
    /// @param module  the vorna module, parent of every remote submodule; not owned
    /// @throws zmq::error_t for a malformed endpoint
    PythonNode(const std::string& senderEndpoint, const std::string& requestsEndpoint, std::uint64_t id,
               py::handle module);
    ~PythonNode() override;

    /// Makes the submodule `name` with a proxy for each object of the store of node `nodeId`.
    /// @throws std::runtime_error when the name or the id is taken, or the store doesn't answer within a second
    void openRemoteNode(std::uint64_t nodeId, const char* name);

    /// Takes the submodule away; the far node isn't told.
    /// @throws std::runtime_error when `name` is no submodule of proxies
    void closeRemoteNode(const char* name);

private:
    // Stores whose content has been read and that haven't announced their closing. Shared with the `is_open` functions
    // of submodules, which may outlive the node.
    struct OpenStores {
        std::mutex mutex;
        std::unordered_set<std::uint64_t> ids;
    };

    std::vector<ElementDescription> askForContent(std::uint64_t storeId);
    void contentUpdated(std::istream& stream);
    void updateRemoteElements(const std::vector<ElementDescription>& elements);
    py::module_ makeSubmodule(const char* name, std::uint64_t storeId);

    py::handle module;
    std::unordered_map<std::uint64_t, py::object> remoteModules; // null: an update came for a store that wasn't bound
    std::shared_ptr<OpenStores> openStores = std::make_shared<OpenStores>();
    std::mutex openMutex;
    bool opening = false;
    std::vector<std::vector<ElementDescription>> deferred;
};

/// Holder of the one PythonNode of the interpreter.
class PythonNodeSingleton {
public:
    /// @throws std::runtime_error "Local node not initialized! Please setup_local_node(...) first!" when there is none,
    /// or
    ///         when this process was forked off one that has
    static std::shared_ptr<PythonNode> getInstance();

    /// Makes `made` the node; null: none. The node before it, if any, is destroyed with the interpreter lock released,
    /// when nobody is inside one of its functions any more.
    static void replace(std::shared_ptr<PythonNode> made);

    /// For the exit hook: takes the node away, for good. A node made later would outlive the interpreter.
    static void end();

    /// @throws std::runtime_error after end()
    static void requireInterpreter();

private:
    static std::shared_ptr<PythonNode> instance;
    // Replaced from inside their own turn, as by a finalizer that an update ran: stopped at the interpreter's end.
    static std::vector<std::shared_ptr<PythonNode>> retired;
    static pid_t owner;
    static bool ended;
};

} // namespace trovi::python
