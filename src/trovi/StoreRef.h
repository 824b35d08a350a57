#pragma once
// The address of an object in a store.

#include <cstdint>
#include <limits>
#include <ostream>
#include <string>

#include "trovi/Reflect.h"

namespace trovi {

struct StoreRef {
    static constexpr std::uint64_t invalidId = std::numeric_limits<std::uint64_t>::max();

    std::uint64_t storeId = 0;
    std::uint64_t objId = 0;

    static constexpr StoreRef invalid() { return {invalidId, invalidId}; }
    friend bool operator==(const StoreRef&, const StoreRef&) = default;
};

/// "trovi::StoreRef{ storeId = 1, objId = 3}"
inline std::string toString(const StoreRef& ref)
{
    return "trovi::StoreRef{ storeId = " + std::to_string(ref.storeId) + ", objId = " + std::to_string(ref.objId) + "}";
}
inline std::ostream& operator<<(std::ostream& stream, const StoreRef& ref) { return stream << toString(ref); }

template <>
constexpr auto registerMembers<StoreRef>()
{
    return members(member("storeId", &StoreRef::storeId, "id of the node whose store holds the object"),
                   member("objId", &StoreRef::objId, "number of the object in that store; never used twice"));
}

template <>
constexpr const char* registerDoc<StoreRef>()
{
    return "Address of an object in a store. Both ids all ones: invalid.";
}

} // namespace trovi
