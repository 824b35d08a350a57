#pragma once
// The client node of an interpreter: it turns the content of remote stores into submodules of proxies.

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <pybind11/pybind11.h>

#include "trovi/TroviNode.h"
#include "util/Mutex.h"

namespace trovi::python {

namespace py = pybind11;

/// Threads. Its own: the base's receiver and dispatcher. Python threads call openRemoteNode() and closeRemoteNode()
/// with the interpreter lock held. The dispatcher takes the interpreter lock to handle a `contentUpdate`, so no thread
/// may wait for the dispatcher while it holds that lock:
///   - openRemoteNode() releases the lock while it waits. A store's content must be bound before any update of it, so
///     updates that arrive meanwhile are deferred, and handled in order when the opener is done;
///   - PythonNodeSingleton calls stop() with the lock released, and only then gives up its share.
/// Locks: openMutex lets one opener in at a time. It is taken with the interpreter lock released, and before it. The
/// interpreter lock guards `remoteModules`, `opening` and `deferred`. The mutex of openStores is innermost.
class PythonNode : public TroviNode<Subscriber, Pusher> {
public:
    /// Connects at once; a server that isn't there yet is no error.
    /// @param module  the vorna module, parent of every remote submodule; not owned
    /// @throws zmq::error_t for a malformed endpoint
    PythonNode(const std::string& senderEndpoint, const std::string& requestsEndpoint, std::uint64_t id,
               py::handle module);
    /// Needs the interpreter lock, and a node that was stopped before with the lock released.
    ~PythonNode() override;

    /// Makes the submodule `name` with a proxy for each object of the store of node `nodeId`.
    /// @throws std::runtime_error when the name is empty, holds a dot or a zero byte, or is taken; when the id is
    ///         taken; when the store doesn't answer within a second; when this node is stopped meanwhile
    void openRemoteNode(std::uint64_t nodeId, const std::string& name);

    /// Removes the submodule; nothing is sent.
    /// @throws std::runtime_error when `name` isn't a submodule of proxies
    void closeRemoteNode(const std::string& name);

private:
    // Stores whose content has been read and that haven't announced their closing. Shared with the `is_open` functions
    // of submodules, which may outlive the node.
    struct OpenStores {
        util::Mutex mutex;
        std::unordered_set<std::uint64_t> ids VORNA_GUARDED_BY(mutex);
    };

    std::vector<ElementDescription> askForContent(std::uint64_t storeId);
    void contentUpdated(std::istream& stream);
    void updateRemoteElements(const std::vector<ElementDescription>& elements);
    py::module_ makeSubmodule(const std::string& name, std::uint64_t storeId);
    void removeSubmodule(const std::string& name);

    py::handle module;
    std::unordered_map<std::uint64_t, py::object> remoteModules; // null: an update came for a store that wasn't bound
    std::shared_ptr<OpenStores> openStores = std::make_shared<OpenStores>();
    util::Mutex openMutex;
    bool opening = false;
    std::vector<std::vector<ElementDescription>> deferred;
};

} // namespace trovi::python
