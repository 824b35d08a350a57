#include "trovi/Reflect.h"

struct Camera {
    void start();
};

#ifndef MISUSE
template <>
constexpr auto trovi::registerMemberFunctions<Camera>()
{
    return functions(function("start", &Camera::start));
}
#endif

static_assert(trovi::functionCount<Camera> == 1);
