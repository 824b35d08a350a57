#pragma once
// One object of a store as other nodes see it.

#include <cstdint>
#include <string>

#include "trovi/StoreRef.h"

namespace trovi {

struct ElementDescription {
    enum Change : std::uint32_t { added = 0, removed = 1, existing = 2 };

    StoreRef ref;
    std::string type; ///< typeName of the held class
    std::string name;
    std::uint32_t change = existing;

    friend bool operator==(const ElementDescription&, const ElementDescription&) = default;
};

template <>
constexpr auto registerMembers<ElementDescription>()
{
    using E = ElementDescription;
    return members(member("ref", &E::ref, "address of the object"), member("type", &E::type, "name of its class"),
                   member("name", &E::name, "its name in the store"),
                   member("change", &E::change, "0: added, 1: removed, 2: element of a report"));
}

template <>
constexpr const char* registerDoc<ElementDescription>()
{
    return "One object of a store, as other nodes see it.";
}

} // namespace trovi
