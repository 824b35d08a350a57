#pragma once
// Keeps every n-th event.

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "graph/nodes/Batch.h"
#include "graph/nodes/FilterNode.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/detail/Decimation.h"

namespace graph::nodes {

/// Counts events across batches and keeps those whose number, from 0, the ratio divides. The ratio is 1 at first: all.
/// Threads: all of it is thread-safe and without a lock. An apply() that runs meanwhile may see the new ratio before
/// the count starts anew, which shifts the events that it keeps and does no harm.
template <class Event>
class EventDecimateNode : public FilterNode<Batch<Event>, Batch<Event>> {
public:
    /// Sends one vector with the kept events of all waiting batches, an empty one when there are none.
    void apply() override;

    /// Keeps `L` events out of every `M`, as far as an integer ratio can: every (M / L)-th, the next event first.
    /// 3 of 10 keeps every third.
    /// @throws std::runtime_error when either is zero or L is greater than M; nothing is changed then
    void setDecimationFraction(std::uint64_t M, std::uint64_t L)
    {
        const std::uint64_t newRatio = detail::decimationRatio(M, L);
        counter = 0;
        ratio = newRatio;
    }

    /// Keeps every event.
    void reset()
    {
        counter = 0;
        ratio = 1;
    }

private:
    std::atomic<std::uint64_t> counter = 0;
    std::atomic<std::uint64_t> ratio = 1;
};

template <class Event>
void EventDecimateNode<Event>::apply()
{
    const detail::WaitingBatches<Event> waiting(*this->inputChannel);
    auto kept = std::make_shared<std::vector<Event>>();
    kept->reserve(waiting.eventCount / ratio + waiting.batches.size());
    for (const auto& batch : waiting.batches) {
        const std::uint64_t step = ratio, size = batch->size();
        std::uint64_t index = detail::firstKept(counter.fetch_add(size), step);
        for (; index < size && step < size - index; index += step) // so that index + step cannot wrap
            kept->push_back((*batch)[index]);
        if (index < size)
            kept->push_back((*batch)[index]);
    }
    this->send(std::move(kept));
}

extern template class EventDecimateNode<davis::event::DvsEvent>;

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::EventDecimateNode<Event>> {
    using Node = graph::nodes::EventDecimateNode<Event>;

    static std::string registerName() { return "graph::nodes::DvsEventDecimate"; }
    static constexpr auto registerMemberFunctions()
    {
        return std::tuple_cat(
            functions(function("setDecimationFraction", &Node::setDecimationFraction,
                               "Keeps every (M / L)-th event, in integer division, beginning with the next one.\n"
                               "L of every M events are wanted: 3 of 10 keeps every third.\n"
                               "Raises RuntimeError, and changes nothing, when M or L is 0 or L is greater than M.",
                               "M, L"),
                      function("reset", &Node::reset, "Keeps every event.")),
            graph::nodes::detail::filterFunctions<Node>());
    }
    static constexpr const char* registerDoc() { return "Keeps every n-th event, counted across batches."; }
};
