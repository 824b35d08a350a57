#pragma once
// A sink whose owner takes the events out: a chip model is one.

#include <mutex>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/SinkNode.h"
#include "graph/nodes/detail/TurnMutex.h"

namespace graph::nodes {

/// Gathers the events of all batches in one vector, which has no limit.
template <class Event>
class BasicSinkNode : public SinkNode<Batch<Event>> {
public:
    /// Takes one batch in, for which it waits up to 10 ms.
    void apply() override
    {
        const std::lock_guard lock(mutex);
        Batch<Event> batch;
        if (this->inputChannel->wait_dequeue_timed(batch, this->applyWaitUs))
            events.insert(events.end(), batch->begin(), batch->end());
    }

protected:
    detail::TurnMutex mutex;
    std::vector<Event> events; ///< under `mutex`
};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::BasicSinkNode<Event>> {
    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("BasicSinkNode_"); }
    static constexpr auto registerMemberFunctions() { return functions(); }
    static constexpr const char* registerDoc() { return "Takes events out of graphs, for the object that owns it."; }
};
