#pragma once
// The graph that a user works with: nodes made by name, one thread that runs them, and a shape that is frozen
// meanwhile.
//
//   graph::EventFilterGraph graph;
//   const auto crop = graph.addFilterNode("DvsEventCrop").value();
//   camera.addDestination(graph.getNodeInput(crop));
//   graph.addDestination(crop, sink.getInput());
//   graph.start();

#include <any>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "graph/nodes/NodeReflection.h"
#include "ondra/Graph.h"
#include "trovi/BoxedPtr.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace graph {

/// start() starts the thread, stop() and the destructor join it. It runs passes one after the other at full speed: only
/// sinks among the nodes slow it down, by waiting for a batch for 10 ms. An exception out of a node ends the process.
///
/// Threads: thread-safe. Lock order: `lifecycle`, then the lock of ondra::Graph, then those of the nodes; the thread
/// takes all but the first, so stop() may hold that one while it joins. A node must not call stop().
class EventFilterGraph : public ondra::Graph {
public:
    EventFilterGraph() = default;
    ~EventFilterGraph() override;

    /// The new node's identifier: 0, 1, 2 and so on; none is used twice. Empty while running and for an unknown name.
    std::optional<std::uint64_t> addFilterNode(const std::string& name) VORNA_EXCLUDES(lifecycle);

    // These do nothing and return false while running; otherwise see ondra::Graph.
    bool remove(std::uint64_t id) noexcept override;
    bool connect(std::uint64_t source, std::uint64_t destination) noexcept override;
    bool disconnect(std::uint64_t source, std::uint64_t destination) noexcept override;
    using Graph::addDestination;
    using Graph::removeDestination;
    bool addDestination(std::uint64_t id, const trovi::BoxedPtr& boxed);
    bool removeDestination(std::uint64_t id, const trovi::BoxedPtr& boxed);

    /// The node's input; it holds null when there is no such node.
    trovi::BoxedPtr getNodeInput(std::uint64_t id) const;

    /// @return false when it runs already
    bool start() VORNA_EXCLUDES(lifecycle);
    /// Waits for the pass under way, up to 10 ms for each sink in the graph.
    /// @return false when it does not run
    bool stop() VORNA_EXCLUDES(lifecycle);
    bool isRunning() const { return running; }

    /// The same for scripts, with reasons.
    /// @throws std::invalid_argument in place of nothing, false or a null input; the text says why
    std::uint64_t addFilterNodeOrThrow(const std::string& name);
    trovi::BoxedPtr getNodeInputOrThrow(std::uint64_t id) const;
    bool connectOrThrow(std::uint64_t source, std::uint64_t destination);
    bool removeOrThrow(std::uint64_t id);
    bool disconnectOrThrow(std::uint64_t source, std::uint64_t destination);
    bool addDestinationOrThrow(std::uint64_t id, const trovi::BoxedPtr& boxed);
    bool removeDestinationOrThrow(std::uint64_t id, const trovi::BoxedPtr& boxed);
    /// As getNode(), and keeps the node alive when it leaves the graph or the graph is gone.
    std::shared_ptr<ondra::NodeInterface> getSharedNode(std::uint64_t id) const { return shareNode(id); }

private:
    bool orThrow(bool done, const std::string& whatWhileRunning, const std::string& textWhileStopped) const;

    util::Mutex lifecycle;
    std::uint64_t nextNodeId VORNA_GUARDED_BY(lifecycle) = 0;
    std::atomic<bool> running = false;              // written under `lifecycle`
    std::thread thread VORNA_GUARDED_BY(lifecycle); // joinable while running
};

} // namespace graph

template <>
constexpr auto trovi::registerMemberFunctions<graph::EventFilterGraph>()
{
    using Graph = graph::EventFilterGraph;
    // All of them block: each may wait for the pass under way.
    return functions(
        blockingFunction(
            "addFilterNode", &Graph::addFilterNodeOrThrow,
            "Makes a node and returns its identifier. Over camera events: \"DvsEventCrop\",\n"
            "\"DvsEventDecimate\", \"DvsEventRescale\". Over what comes from a chip, \"Tessel\" or\n"
            "\"Ravik\" for X: \"XLayerSelect\", \"XEventTypeFilter_OutputEvents\", \"XForward\". From camera\n"
            "to chip: \"DavisToXInput\", and \"Davis346Center128ToXInput\", which takes the middle of a\n"
            "sensor of 346 by 260. Raises ValueError for another name and while the graph is running.",
            "name"),
        blockingFunction("getNodeInput", &Graph::getNodeInputOrThrow,
                         "The input of a node, for add_destination() of what feeds the graph.\n"
                         "Raises ValueError when there is no such node.",
                         "id"),
        blockingFunction("connect", &Graph::connectOrThrow,
                         "Sends what one node gives to another; done twice, it is sent twice. Returns True.\n"
                         "Raises ValueError when a node is missing, when their events differ, when the connection\n"
                         "would close a cycle (branches that meet again may count as one), and while running.",
                         "source, destination"),
        blockingFunction("remove", &Graph::removeOrThrow,
                         "Takes a node out, with its connections. Returns True.\n"
                         "Raises ValueError when there is no such node and while the graph is running.",
                         "id"),
        blockingFunction("disconnect", &Graph::disconnectOrThrow,
                         "Removes the connection, however often it was made. Returns True.\n"
                         "Raises ValueError when there is none and while the graph is running.",
                         "source, destination"),
        blockingFunction("addDestination", &Graph::addDestinationOrThrow,
                         "Sends what a node gives to an input outside the graph too. Returns True.\n"
                         "Raises ValueError when there is no such node, when the input is of another process or takes\n"
                         "other events, and while the graph is running.",
                         "id, input"),
        blockingFunction("removeDestination", &Graph::removeDestinationOrThrow,
                         "Sends nothing to this input any more. Returns True.\n"
                         "Raises ValueError when it was no destination of the node and while the graph is running.",
                         "id, input"),
        blockingFunction("getNode", &Graph::getSharedNode,
                         "The node itself, to change its settings; also while the graph is running.\n"
                         "Raises IndexError when there is no such node.",
                         "id"),
        blockingFunction("hasNode", &Graph::hasNode, "True when there is a node of this identifier.", "id"),
        blockingFunction("start", &Graph::start, "Starts the thread that runs the nodes. False when it runs already."),
        blockingFunction("stop", &Graph::stop,
                         "Stops and joins it; takes up to 10 ms for each sink. False when it does not run."));
}

template <>
constexpr const char* trovi::registerDoc<graph::EventFilterGraph>()
{
    return "Nodes that filter events, joined by connections and run by one thread.\n"
           "While it runs, nodes can be set but neither added, removed nor connected.";
}
