#include "keplin/detail/Check.h"

#include <cstdio>
#include <cstdlib>

namespace keplin::detail {

void endProcess(const char* text) noexcept
{
    std::fprintf(stderr, "keplin: assertion failed: %s\n", text);
    std::abort();
}

} // namespace keplin::detail
