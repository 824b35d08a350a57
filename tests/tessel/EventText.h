#pragma once
// An event as text: "DvsEvent(p=1 y=2 x=3 layer=9 timestamp=5)". The time is shown also where the description lacks it.

#include <string>
#include <variant>

#include "trovi/Reflect.h"

namespace event_text {

template <class Event>
std::string text(const Event& event)
{
    const std::string name(trovi::typeName<Event>());
    std::string members;
    const auto add = [&](const std::string& member, const auto& value) {
        members += (members.empty() ? "" : " ") + member + "=" + std::to_string(value);
    };
    trovi::forEach(trovi::MetaHolder<Event>::members, [&](const auto& m) { add(m.name, event.*(m.field)); });
    if constexpr (requires { event.timestamp; })
        if (members.find("timestamp") == std::string::npos)
            add("timestamp", event.timestamp);
    return name.substr(name.rfind(':') + 1) + "(" + members + ")";
}

template <class... Kinds>
std::string text(const std::variant<Kinds...>& event)
{
    return std::visit([](const auto& kind) { return text(kind); }, event);
}

} // namespace event_text
