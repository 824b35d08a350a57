#pragma once
// A sink that keeps events until a script asks for them.

#include <utility>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/SinkNode.h"
#include "graph/nodes/detail/TurnMutex.h"
#include "util/Mutex.h"

namespace graph::nodes {

/// Threads: getBuf() is thread-safe, also against apply().
template <class Event>
class BufferSinkNode : public SinkNode<Batch<Event>> {
public:
    BufferSinkNode() { this->inputChannel->leaveOutEmptyBatches(); }

    /// Takes one batch in, for which it waits up to 10 ms.
    void apply() override
    {
        const util::Lock lock(mutex);
        Batch<Event> batch;
        if (this->inputChannel->wait_dequeue_timed(batch, this->applyWaitUs))
            events.insert(events.end(), batch->begin(), batch->end());
    }

    /// All events since the last call, also those that apply() has not seen yet. Waits for a running apply().
    std::vector<Event> getBuf()
    {
        const util::Lock lock(mutex);
        detail::appendWaiting(*this->inputChannel, events);
        return std::exchange(events, {});
    }

private:
    detail::TurnMutex mutex;
    std::vector<Event> events VORNA_GUARDED_BY(mutex); // no limit
};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::BufferSinkNode<Event>> {
    using Node = graph::nodes::BufferSinkNode<Event>;

    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("BufferSinkNode_"); }
    static constexpr auto registerMemberFunctions()
    {
        return functions(blockingFunction("getBuf", &Node::getBuf,
                                          "All events that arrived since the last call, in order of arrival.\n"
                                          "Waits up to 10 ms when the node is in a running graph."),
                         graph::nodes::detail::inputFunction<Node>());
    }
    static constexpr const char* registerDoc()
    {
        return "Keeps all events that it receives, without limit, until get_buf() takes them.";
    }
};
