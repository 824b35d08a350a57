#pragma once
// What moves through every event channel.

#include <memory>
#include <utility>
#include <vector>

#include "ondra/Channel.h"

namespace graph::nodes {

/// Each channel in which a batch waits owns it. A batch is read-only once it has been sent: a node that changes events
/// builds a new vector.
template <class Event>
using Batch = std::shared_ptr<std::vector<Event>>;

namespace detail {

/// All batches that wait in a channel at the time of the call. Not those that arrive meanwhile: if another filter sends
/// all the time, there may be no end of them.
template <class Event>
struct WaitingBatches {
    explicit WaitingBatches(ondra::Channel<Batch<Event>>& channel)
    {
        Batch<Event> batch;
        for (auto left = channel.size_approx(); left > 0 && channel.try_dequeue(batch); --left) {
            eventCount += batch->size();
            batches.push_back(std::move(batch));
        }
    }

    std::vector<Batch<Event>> batches; ///< in order of arrival, none of them null
    std::size_t eventCount = 0;        ///< of all of them
};

/// Appends the events of all waiting batches to `events`, which grows at most once.
template <class Event>
void appendWaiting(ondra::Channel<Batch<Event>>& channel, std::vector<Event>& events)
{
    const WaitingBatches<Event> waiting(channel);
    events.reserve(events.size() + waiting.eventCount);
    for (const auto& batch : waiting.batches)
        events.insert(events.end(), batch->begin(), batch->end());
}

/// Appends the events of `batch`. If there are none yet, and nobody else has the batch, its vector is taken as it is.
template <class Event>
void takeIn(Batch<Event> batch, std::vector<Event>& events)
{
    // Another owner may have read the events until it released the batch, and reading the count does not synchronise
    // with that release. Changing the count does: the library uses operations that acquire and release. So one more
    // owner is counted here, and what follows happens after all reads of the others.
    if (events.empty() && batch.use_count() == 1) {
        const Batch<Event> counted = batch; // NOLINT(performance-unnecessary-copy-initialization)
        events = std::move(*batch);
    } else {
        events.insert(events.end(), batch->begin(), batch->end());
    }
}

} // namespace detail
} // namespace graph::nodes
