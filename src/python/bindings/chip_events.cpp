// Python classes of the kinds of events, towards a chip and from it. Compiled once for each family.

#include <cstdint>
#include <string_view>
#include <tuple>

#include "python/EventKinds.h"
#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(event, Events)
#include "trovi/Serial.h"
#include "trovi/python/Local.h"

namespace {

using VORNA_FAMILY::event::InputEvent;
using VORNA_FAMILY::event::OutputEvent;

template <class Event>
constexpr bool isTimeDescribed =
    std::apply([](const auto&... member) { return ((std::string_view(member.name) == "timestamp") || ...); },
               trovi::MetaHolder<Event>::members);

template <class Event>
concept HasHiddenTime = vorna_python::isKindOf<Event, OutputEvent> && requires(Event event)
{
    event.timestamp;
} && !isTimeDescribed<Event>;

/// Pickles keep the time as well: the bytes of the described members, then those of the time. Bytes without a time are
/// taken too.
template <class Event>
void pickleWithTime(auto& cls)
{
    namespace py = pybind11;
    py::delattr(cls, "__getstate__");
    py::delattr(cls, "__setstate__");
    cls.def(py::pickle(
        [](const Event& event) {
            trovi::Bytes bytes = trovi::serializeToBuffer(event);
            trovi::ByteWriter writer(bytes);
            trovi::encode(writer, event.timestamp);
            return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        },
        [](const py::bytes& state) {
            const std::string_view text = state;
            trovi::ByteReader reader({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
            Event event{};
            trovi::decode(reader, event);
            if (reader.available() != 0)
                trovi::decode(reader, event.timestamp);
            return event;
        }));
}

template <class Kind>
void bind(std::type_identity<Kind>)
{
    VORNA_BIND_LOCAL_WITH(Kind, [](auto& cls) {
        if constexpr (HasHiddenTime<Kind>)
            pickleWithTime<Kind>(cls);
    })
}

[[maybe_unused]] const bool bound = vorna_python::forEachKind<InputEvent>([](auto kind) { bind(kind); }) &&
                                    vorna_python::forEachKind<OutputEvent, InputEvent>([](auto kind) { bind(kind); });

} // namespace
