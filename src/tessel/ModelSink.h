#pragma once
// The node at which a graph hands events over to a tessel model.

#include <vector>

#include "graph/nodes/BasicSinkNode.h"
#include "tessel/event/Events.h"

namespace tessel {

/// Threads: thread-safe. The mutex is the base's; it is held while apply() waits.
class TesselModelSink : public graph::nodes::BasicSinkNode<event::InputEvent> {
public:
    /// Takes one batch in, for which it waits up to 10 ms, and hands out all events that were taken in and not yet
    /// handed out. They are then not written to the chip: the model's thread is who calls this otherwise.
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
                                      "Takes one batch in, for which it waits up to 10 ms, and hands its events out.\n"
                                      "They don't reach the chip then: the model's thread asks in the same way."),
                     graph::nodes::detail::inputNodeFunction<TesselModelSink>());
}
template <>
constexpr const char* trovi::registerDoc<tessel::TesselModelSink>()
{
    return "Takes events for the chip out of graphs.";
}
