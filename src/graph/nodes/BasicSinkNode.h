#pragma once
// A sink whose owner takes the events out: a chip model is one.

#include <utility>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/SinkNode.h"
#include "graph/nodes/detail/TurnMutex.h"
#include "util/Mutex.h"

namespace graph::nodes {

/// Gathers the events of all batches in one vector, which has no limit. If the vector is empty and no other node has
/// the batch, the batch becomes the vector and no event is copied.
/// Threads: thread-safe.
template <class Event>
class BasicSinkNode : public SinkNode<Batch<Event>> {
public:
    BasicSinkNode() { this->inputChannel->leaveOutEmptyBatches(); }

    /// Takes one batch in, for which it waits up to 10 ms.
    void apply() override
    {
        const util::Lock lock(mutex);
        Batch<Event> batch;
        if (this->inputChannel->wait_dequeue_timed(batch, this->applyWaitUs))
            detail::takeIn(std::move(batch), events);
    }

    /// For the owner: all events that apply() took in since the last call. Waits for a running apply().
    std::vector<Event> takeEvents()
    {
        const util::Lock lock(mutex);
        return std::exchange(events, {});
    }

protected:
    detail::TurnMutex mutex;
    std::vector<Event> events VORNA_GUARDED_BY(mutex);
};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::BasicSinkNode<Event>> {
    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("BasicSinkNode_"); }
    static constexpr auto registerMemberFunctions()
    {
        return functions(graph::nodes::detail::inputNodeFunction<graph::nodes::BasicSinkNode<Event>>());
    }
    static constexpr const char* registerDoc() { return "Takes events out of graphs, for the object that owns it."; }
};
