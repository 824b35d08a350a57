#pragma once
// Keeps the events of a region of interest and moves the origin to its corner.

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "graph/nodes/Batch.h"
#include "graph/nodes/FilterNode.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/detail/AlwaysTrue.h"
#include "graph/nodes/detail/ChunkAppender.h"
#include "graph/nodes/detail/EventCopy.h"
#include "graph/nodes/detail/RegionOfInterest.h"
#include "graph/nodes/detail/TurnMutex.h"
#include "util/Mutex.h"

namespace graph::nodes {

/// Event has unsigned 16-bit x and y. Until a region is set, and after reset(), everything passes as it is.
/// Threads: all of it is thread-safe; settings wait for a running apply().
template <class Event>
class EventCropNode : public FilterNode<Batch<Event>, Batch<Event>> {
public:
    using Predicate = std::function<bool(const Event&)>;

    /// Sends one vector with the kept events of all waiting batches, an empty one when there are none.
    /// @throws std::bad_function_call when a batch waits and the predicate is empty
    void apply() override;

    /// Keeps x in xtl to xbr and y in ytl to ybr, both ends included, in pixels; takes xtl and ytl off what is kept,
    /// modulo 65536.
    /// @throws std::runtime_error when xbr <= xtl or ybr <= ytl; nothing is changed then
    void setROI(std::int32_t xtl, std::int32_t ytl, std::int32_t xbr, std::int32_t ybr)
    {
        detail::validateROIVertices(xtl, ytl, xbr, ybr);
        install(detail::eventCropPredicate(xtl, ytl, xbr, ybr), xtl, ytl);
    }

    /// Keeps the events for which `predicate` holds; the origin stays.
    void setPredicate(Predicate predicate) { install(std::move(predicate), 0, 0); }

    void reset() { install(detail::AlwaysTrue(), 0, 0); }

private:
    void install(Predicate predicate, std::int32_t newXtl, std::int32_t newYtl)
    {
        const util::Lock lock(mutex);
        eventsInROI.swap(predicate);
        xtl = newXtl;
        ytl = newYtl;
    }

    detail::TurnMutex mutex;
    Predicate eventsInROI VORNA_GUARDED_BY(mutex) = detail::AlwaysTrue();
    std::int32_t xtl VORNA_GUARDED_BY(mutex) = 0; // this and `ytl` are subtracted from what is kept
    std::int32_t ytl VORNA_GUARDED_BY(mutex) = 0;
};

template <class Event>
void EventCropNode<Event>::apply()
{
    const util::Lock lock(mutex);
    const detail::WaitingBatches<Event> waiting(*this->inputChannel);
    auto kept = std::make_shared<std::vector<Event>>();
    kept->reserve(waiting.eventCount);
    // A region is by far the most common predicate: its test is compiled into the loop instead of called.
    if (const auto* region = eventsInROI.template target<detail::RegionOfInterest>()) {
        const auto left = static_cast<std::uint16_t>(xtl), top = static_cast<std::uint16_t>(ytl);
        const auto write = [region = *region, left, top](Event& slot, const Event& event) {
            const std::uint16_t x = event.x, y = event.y;
            detail::copyMoved(slot, event, static_cast<std::uint16_t>(x - left), static_cast<std::uint16_t>(y - top));
            return region.contains(x, y);
        };
        detail::ChunkAppender<Event> appender;
        for (const auto& batch : waiting.batches)
            appender.append(*kept, *batch, write);
    } else if (eventsInROI.template target<detail::AlwaysTrue>()) {
        for (const auto& batch : waiting.batches)
            kept->insert(kept->end(), batch->begin(), batch->end());
    } else {
        for (const auto& batch : waiting.batches)
            for (const Event& event : *batch)
                if (eventsInROI(event))
                    kept->push_back(event);
    }
    this->send(std::move(kept));
}

extern template class EventCropNode<davis::event::DvsEvent>;

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::EventCropNode<Event>> {
    using Node = graph::nodes::EventCropNode<Event>;

    static std::string registerName() { return "graph::nodes::DvsEventCrop"; }
    static constexpr auto registerMemberFunctions()
    {
        return std::tuple_cat(
            functions(blockingFunction(
                          "setROI", &Node::setROI,
                          "Keeps events with x in xtl to xbr and y in ytl to ybr, both ends included, in pixels.\n"
                          "What is kept gets its origin at (xtl, ytl): coordinates are unsigned 16-bit and wrap.\n"
                          "Raises RuntimeError, and changes nothing, unless xbr > xtl and ybr > ytl.",
                          "xtl, ytl, xbr, ybr"),
                      blockingFunction("reset", &Node::reset, "Lets everything pass as it is.")),
            graph::nodes::detail::filterFunctions<Node>());
    }
    static constexpr const char* registerDoc()
    {
        return "Keeps the events of a region of interest. Until one is set, everything passes.";
    }
};
