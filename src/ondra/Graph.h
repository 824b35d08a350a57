#pragma once
// A set of nodes under numeric identifiers, and the edges between them. The graph decides what may be connected and in
// which order the nodes run; the nodes move the data.

#include <any>
#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "ondra/NodeInterface.h"
#include "ondra/SpinLock.h"
#include "ondra/detail/DAG.h"
#include "util/Mutex.h"

namespace ondra {

class GraphExecutor;

/// Failures are reported as false, without a reason. An exception out of an operation declared noexcept, such as
/// std::bad_alloc, ends the process.
///
/// Threads: thread-safe. `lock` is held during a whole pass and during every change. A change therefore spins for up
/// to one pass, while a pass that finds the lock held or waited for is skipped. Nodes lock their own mutexes within it.
class Graph {
public:
    Graph() = default;
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;
    virtual ~Graph() = default;

    /// One pass on the calling thread: apply() of each node, each before those that its edges lead to. What a node
    /// throws is passed on. Where branches meet, adding or removing a node may make them count as a cycle after all;
    /// no node runs then.
    virtual void compute();
    /// Queues all nodes in that order, and does not wait for them. The graph must not be changed while they run.
    virtual void compute(GraphExecutor& executor);

    /// The node, good for as long as it is part of the graph.
    /// @throws std::out_of_range "_Map_base::at" when there is none of this identifier
    virtual NodeInterface& getNode(std::uint64_t id) const;

    /// @return false when the identifier is taken or `node` is null; `node` is then dropped
    virtual bool add(std::uint64_t id, std::shared_ptr<NodeInterface> node) noexcept;
    /// Removes the node and its edges. Its predecessors drop its channel at their next send.
    virtual bool remove(std::uint64_t id) noexcept;
    virtual bool hasNode(std::uint64_t id) const noexcept;

    /// @return false, and nothing is changed, when a node is missing, when the edge would close a cycle, or when the
    ///         element types differ. Two branches that meet again may count as a cycle, see detail::DAG.
    /// Connecting an edge again gives true and doubles what is delivered.
    virtual bool connect(std::uint64_t source, std::uint64_t destination) noexcept;
    /// Removes the edge, however often it was connected. False when there is none.
    virtual bool disconnect(std::uint64_t source, std::uint64_t destination) noexcept;

    /// Feeds a channel outside the graph from a node. False as NodeInterface's, and without such a node.
    virtual bool addDestination(std::uint64_t id, const std::any* channel) noexcept;
    virtual bool removeDestination(std::uint64_t id, const std::any* channel) noexcept;

    /// The node's input; null when there is no such node.
    virtual const std::any* getTypeErasedNodeInputChannel(std::uint64_t id) const noexcept;

protected:
    /// As getNode(); the node may outlive the graph.
    std::shared_ptr<NodeInterface> shareNode(std::uint64_t id) const;

private:
    class Guard;

    bool isNode(std::uint64_t id) const VORNA_REQUIRES(lock) { return nodes.contains(id) && dag.hasNode(id); }
    const std::shared_ptr<NodeInterface>& nodeAt(std::uint64_t id) const VORNA_REQUIRES(lock);
    void validateExecutorCache() VORNA_REQUIRES(lock);

    mutable std::atomic<int> waiting = 0; // threads that wait for `lock`
    mutable SpinLock lock;
    // An identifier is a key of both `nodes` and `dag` or of neither.
    std::unordered_map<std::uint64_t, std::shared_ptr<NodeInterface>> nodes VORNA_GUARDED_BY(lock);
    detail::DAG<std::uint64_t> dag VORNA_GUARDED_BY(lock);
    bool cacheValid VORNA_GUARDED_BY(lock) = false;
    std::vector<std::shared_ptr<NodeInterface>> cache VORNA_GUARDED_BY(lock); // all nodes in order, for an executor
};

} // namespace ondra
