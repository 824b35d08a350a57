#pragma once
// Two components of one type: a position, a size, a stride.

#include <ostream>
#include <string>

#include "trovi/Reflect.h"

namespace util {

template <class T>
struct Vec2 {
    T x{};
    T y{};

    friend bool operator==(const Vec2&, const Vec2&) = default;

    /// "(-1,2)"; the components of a Vec2<unsigned char> or Vec2<bool> print as numbers.
    std::string toString() const { return "(" + std::to_string(+x) + "," + std::to_string(+y) + ")"; }
};

template <class T>
std::ostream& operator<<(std::ostream& stream, const Vec2<T>& vector)
{
    return stream << vector.toString();
}

} // namespace util

template <class T>
struct trovi::RegisterImplementation<util::Vec2<T>> {
    using Vec2 = util::Vec2<T>;

    static std::string registerName() { return "Vec2_" + snakeCase(typeName<T>()); }
    static constexpr auto registerMembers()
    {
        return members(member("x", &Vec2::x, "horizontal component"), member("y", &Vec2::y, "vertical component"));
    }
    static constexpr auto registerMemberFunctions()
    {
        return functions(function("toString", &Vec2::toString, "\"(x,y)\""));
    }
    static constexpr const char* registerDoc() { return "Two components, x and y."; }
};
