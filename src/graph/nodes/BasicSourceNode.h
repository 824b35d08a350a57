#pragma once
// Feeds the events of a camera, a chip or a script into a graph.

#include <memory>
#include <utility>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/SourceNode.h"

namespace graph::nodes {

/// Threads: thread-safe. Batches of one writing thread arrive in order.
template <class Event>
class BasicSourceNode : public SourceNode<Batch<Event>> {
public:
    /// Sends `events` as one batch, on the caller's thread; an empty vector sends nothing.
    void write(std::vector<Event> events)
    {
        if (!events.empty())
            this->send(std::make_shared<std::vector<Event>>(std::move(events)));
    }
};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::BasicSourceNode<Event>> {
    using Node = graph::nodes::BasicSourceNode<Event>;

    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("BasicSourceNode_"); }
    static constexpr auto registerMemberFunctions()
    {
        return functions(blockingFunction("write", &Node::write,
                                          "Sends the events as one batch to every destination; none sends nothing.",
                                          "events"),
                         graph::nodes::detail::addDestinationFunction<Node>());
    }
    static constexpr const char* registerDoc() { return "Feeds events into graphs."; }
};
