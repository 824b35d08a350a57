#pragma once
// The node to which a graph sends events for a tessel model.

#include <vector>

#include "graph/nodes/BasicSinkNode.h"
#include "tessel/event/Events.h"

namespace tessel {

/// Threads: thread-safe. The mutex is the base's; it is held while apply() waits.
class TesselModelSink : public graph::nodes::BasicSinkNode<event::InputEvent> {
public:
    /// Waits up to 10 ms for one batch, and returns all events that were received and not yet returned. These are then
    /// not written to the chip: the model's thread gets its events by this function too.
    std::vector<event::InputEvent> getEventBuf()
    {
        apply();
        return takeEvents();
    }
};

} // namespace tessel

// The order is the functions' numbers on the wire.
template <>
constexpr auto trovi::registerMemberFunctions<tessel::TesselModelSink>()
{
    using tessel::TesselModelSink;
    return functions(blockingFunction("getEventBuf", &TesselModelSink::getEventBuf,
                                      "Waits up to 10 ms for one batch and returns its events.\n"
                                      "These don't reach the chip: the model's thread gets its events by this too."),
                     graph::nodes::detail::inputNodeFunction<TesselModelSink>());
}
template <>
constexpr const char* trovi::registerDoc<tessel::TesselModelSink>()
{
    return "Receives events for the chip from graphs.";
}
