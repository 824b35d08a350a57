// Python classes of the nodes that count a single kind of a chip's events. Compiled once for each family.

#include "graph/nodes/EventCounterSink.h"
#include "python/EventKinds.h"
#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(event, Events)
#include "trovi/python/Local.h"

namespace {

[[maybe_unused]] const bool bound =
    vorna_python::forEachKind<VORNA_FAMILY::event::OutputEvent>([]<class Kind>(std::type_identity<Kind>) {
        VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::EventCounterSink<Kind>)
    });

} // namespace
