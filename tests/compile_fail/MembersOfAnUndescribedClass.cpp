#include "trovi/Reflect.h"

struct Point {
    int x = 0;
};

#ifndef MISUSE
template <>
constexpr auto trovi::registerMembers<Point>()
{
    return members(member("x", &Point::x));
}
#endif

static_assert(trovi::memberCount<Point> == 1);
