#include "trovi/Serial.h"

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

void send(trovi::ByteWriter& writer, const Point& point) { trovi::encode(writer, point); }
