// Proxies of the kinds of events. Compiled once for each family.

#include "python/EventKinds.h"
#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(event, Events)
#include "trovi/python/Remote.h"

namespace {

using VORNA_FAMILY::event::InputEvent;
using VORNA_FAMILY::event::OutputEvent;

[[maybe_unused]] const bool bound =
    vorna_python::forEachKind<InputEvent>([]<class Kind>(std::type_identity<Kind>) { VORNA_BIND_REMOTE(Kind) }) &&
    vorna_python::forEachKind<OutputEvent, InputEvent>(
        []<class Kind>(std::type_identity<Kind>) { VORNA_BIND_REMOTE(Kind) });

} // namespace
