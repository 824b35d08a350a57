#pragma once
// A sink that counts.

#include <cstdint>
#include <utility>

#include "graph/nodes/Batch.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/SinkNode.h"
#include "graph/nodes/detail/TurnMutex.h"
#include "util/Mutex.h"

namespace graph::nodes {

/// Threads: getCount() is thread-safe, also against apply().
template <class Event>
class EventCounterSink : public SinkNode<Batch<Event>> {
public:
    EventCounterSink() { this->inputChannel->leaveOutEmptyBatches(); }

    /// Takes one batch in, for which it waits up to 10 ms.
    void apply() override
    {
        const util::Lock lock(mutex);
        Batch<Event> batch;
        if (this->inputChannel->wait_dequeue_timed(batch, this->applyWaitUs))
            count += batch->size();
    }

    /// The number of events since the last call, also of those that apply() has not seen yet. Waits for a running
    /// apply().
    std::uint64_t getCount()
    {
        const util::Lock lock(mutex);
        Batch<Event> batch;
        // not those that come meanwhile: that may take for ever
        for (auto left = this->inputChannel->size_approx(); left > 0 && this->inputChannel->try_dequeue(batch); --left)
            count += batch->size();
        return std::exchange(count, 0);
    }

private:
    detail::TurnMutex mutex;
    std::uint64_t count VORNA_GUARDED_BY(mutex) = 0;
};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::EventCounterSink<Event>> {
    using Node = graph::nodes::EventCounterSink<Event>;

    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("EventCounterSink_"); }
    static constexpr auto registerMemberFunctions()
    {
        return functions(blockingFunction("getCount", &Node::getCount,
                                          "The number of events that arrived since the last call.\n"
                                          "Waits up to 10 ms when the node is in a running graph."),
                         graph::nodes::detail::inputFunction<Node>());
    }
    static constexpr const char* registerDoc() { return "Counts the events that it receives and drops them."; }
};
