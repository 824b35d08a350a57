#pragma once
// A raw address that may pass through Python, and over the wire, but is opened only in the process that made it. It is
// how the inputs of graph nodes reach a script, which hands them to other nodes of the same process.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "trovi/Reflect.h"

namespace trovi {

struct BoxedPtr {
    std::uint64_t address = 0;
    std::int32_t pid = 0;
    std::string type; ///< typeName of the pointer's type

    BoxedPtr() = default;

    /// Boxes `pointer` under this process's id. T is the pointer's type, "const std::any*" for a node's input.
    template <class T>
    static BoxedPtr of(T pointer)
    {
        static_assert(std::is_pointer_v<T>, "only a pointer can be boxed");
        return make(reinterpret_cast<std::uint64_t>(pointer), typeName<T>());
    }

    /// True when the address isn't null and is of this process.
    bool isValid() const;

    /// The pointer.
    /// @throws std::runtime_error when it is null, was boxed in another process, or is of another type
    template <class T>
    T get() const
    {
        static_assert(std::is_pointer_v<T>, "only a pointer can be taken out of a box");
        checkHolds(typeName<T>());
        return reinterpret_cast<T>(address);
    }

    friend bool operator==(const BoxedPtr&, const BoxedPtr&) = default;

private:
    static BoxedPtr make(std::uint64_t address, std::string_view type);
    void checkHolds(std::string_view wanted) const;
};

std::ostream& operator<<(std::ostream& stream, const BoxedPtr& boxed);

template <>
constexpr auto registerMembers<BoxedPtr>()
{
    return members(readOnlyMember("address", &BoxedPtr::address, "the raw address; 0: none"),
                   readOnlyMember("pid", &BoxedPtr::pid, "id of the process in which the address is good"),
                   readOnlyMember("type", &BoxedPtr::type, "type of the pointer, as the compiler spells it"));
}

template <>
constexpr auto registerMemberFunctions<BoxedPtr>()
{
    return functions(
        function("isValid", &BoxedPtr::isValid, "True when the address isn't null and is of this process."));
}

template <>
constexpr const char* registerDoc<BoxedPtr>()
{
    return "An address that can be handed to objects of the process that made it, and to no others.";
}

} // namespace trovi
