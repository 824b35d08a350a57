#include "trovi/python/GilRelease.h"

#include <cxxabi.h>
#include <unistd.h>

namespace trovi::python {

GilRelease::~GilRelease()
{
    if (state == nullptr)
        return;
    try {
        PyEval_RestoreThread(state);
    } catch (const abi::__forced_unwind&) {
        // pthread_exit() inside the interpreter. The unwinding stops while its handler runs, so this one never ends.
        for (;;)
            ::pause();
    }
}

} // namespace trovi::python
