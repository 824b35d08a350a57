#include "trovi/python/GilRelease.h"

#include <unistd.h>

namespace trovi::python {

GilRelease::~GilRelease()
{
    if (state == nullptr)
        return;
    withoutUnwinding([this] { PyEval_RestoreThread(state); });
}

// The interpreter calls pthread_exit(), and the unwinding stops while its handler runs, so the handler never ends.
void sleepUntilExit()
{
    for (;;)
        ::pause();
}

} // namespace trovi::python
