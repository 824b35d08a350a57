#pragma once
// Releases the interpreter lock for a scope, safely even when the interpreter ends meanwhile.

#include <cxxabi.h>

#include <pybind11/pybind11.h>

namespace trovi::python {

/// Use this, never pybind11's gil_scoped_release. The interpreter does not give its lock back once it finalises: it
/// ends the thread that asks, by unwinding the stack. In a destructor that ends the process with std::terminate, and
/// anywhere else it would release Python objects without the lock. Here such a thread sleeps until the process exits.
/// So a scope must not hold what the exiting thread waits for: take locks inside the scope, not around it.
///
/// Threads: the constructor needs the interpreter lock; the destructor takes it back.
class GilRelease {
public:
    GilRelease() : GilRelease(true) {}
    /// Does nothing when not `releases`.
    explicit GilRelease(bool releases) : state(releases ? PyEval_SaveThread() : nullptr) {}
    GilRelease(const GilRelease&) = delete;
    GilRelease& operator=(const GilRelease&) = delete;
    ~GilRelease();

private:
    PyThreadState* state;
};

/// Sleeps until the process exits: the end of a thread that the exiting interpreter asks to end.
[[noreturn]] void sleepUntilExit();

/// Runs `body`, one call of a C function of Python's that runs Python code, such as an import. Python code releases the
/// interpreter lock from time to time, and may not get it back either. The body must own nothing. What a script may run
/// for long, such as the key of a sort, must be called through this.
template <class Body>
auto withoutUnwinding(Body body)
{
    try {
        return body();
    } catch (const abi::__forced_unwind&) {
        sleepUntilExit();
    }
}

} // namespace trovi::python
