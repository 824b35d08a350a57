#include "trovi/BoxedPtr.h"

#ifdef MISUSE
using Boxed = int;
#else
using Boxed = int*;
#endif

trovi::BoxedPtr box(Boxed value) { return trovi::BoxedPtr::of(value); }
