#pragma once
// Binds what belongs to each kind of event by a walk over the variant of events, so that a new kind needs no line here:
//
//   const bool bound = vorna_python::forEachKind<ravik::event::InputEvent>([]<class Kind>(std::type_identity<Kind>) {
//       VORNA_BIND_LOCAL(Kind)
//   });

#include <type_traits>
#include <variant>

namespace vorna_python {

template <class Event, class Variant>
inline constexpr bool isKindOf = false;
template <class Event, class... Kinds>
inline constexpr bool isKindOf<Event, std::variant<Kinds...>> = (std::is_same_v<Event, Kinds> || ...);

/// Calls visit(std::type_identity<Kind>()) for each alternative of Variant that is none of Others, in order.
/// @return true, to initialise a boolean at file scope
template <class Variant, class Others = std::variant<>, class Visit>
bool forEachKind(Visit visit)
{
    [&]<class... Kinds>(const std::variant<Kinds...>*) {
        const auto visitOne = [&]<class Kind>(std::type_identity<Kind> kind) {
            if constexpr (!isKindOf<Kind, Others>)
                visit(kind);
        };
        (visitOne(std::type_identity<Kinds>()), ...);
    }(static_cast<const Variant*>(nullptr));
    return true;
}

} // namespace vorna_python
