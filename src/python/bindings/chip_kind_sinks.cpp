// Python classes of the sinks that gather a single kind of a chip's events. Compiled once for each family.

#include "python/EventKinds.h"
#include "python/EventSinks.h"
#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(event, Events)

namespace {

[[maybe_unused]] const bool bound = vorna_python::forEachKind<VORNA_FAMILY::event::OutputEvent>(
    []<class Kind>(std::type_identity<Kind>) { VORNA_BIND_EVENT_SINK(Kind) });

} // namespace
