// Python classes of the small value types.

#include "trovi/python/Local.h"
#include "util/Vec2.h"

VORNA_BIND_LOCAL_ALIASED("util", util::Vec2<unsigned int>)
VORNA_BIND_LOCAL_ALIASED("util", util::Vec2<int>)
VORNA_BIND_LOCAL_ALIASED("util", util::Vec2<unsigned char>)
VORNA_BIND_LOCAL_ALIASED("util", util::Vec2<bool>)
