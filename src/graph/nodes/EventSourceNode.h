#pragma once
// A source that a script makes for itself, to try a graph without a camera or a chip.

#include "graph/nodes/BasicSourceNode.h"

namespace graph::nodes {

/// Threads: thread-safe.
template <class Event>
class EventSourceNode : public BasicSourceNode<Event> {};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::EventSourceNode<Event>> {
    using Node = graph::nodes::EventSourceNode<Event>;

    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("graph::nodes::EventSource_"); }
    static constexpr auto registerMemberFunctions()
    {
        return functions(blockingFunction("write", &Node::write,
                                          "Sends the events as one batch to every destination; none sends nothing.",
                                          "events"),
                         graph::nodes::detail::addDestinationFunction<Node>(),
                         graph::nodes::detail::removeDestinationFunction<Node>());
    }
    static constexpr const char* registerDoc() { return "Feeds events of a script's own into graphs."; }
};
